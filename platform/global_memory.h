// Movable global memory blocks, the currency of pictures between host and engine.
// Every block comes zero-filled so no picture ever carries leftover memory.
#pragma once

#include "platform/win_types.h"

namespace plat {

HGLOBAL globalAlloc(std::size_t size);           // zero-filled; 0 on failure
void* globalLock(HGLOBAL block);                 // null for a null handle
void globalUnlock(HGLOBAL block);
void globalFree(HGLOBAL block);                  // null is accepted
std::size_t globalSize(HGLOBAL block);           // 0 for a null handle

void* localAlloc(std::size_t size);              // zero-filled working memory
void localFree(void* memory);

// Test hooks. failAllocationAfter(n): the n-th allocation from now (1 = the next)
// fails, counting global and local blocks alike; 0 switches it off.
void failAllocationAfter(long n);
long liveBlocks();                               // global + local blocks not yet freed
// countAllocations(bytes): from now on counts every allocation that succeeds,
// and apart those of at least `bytes` bytes (a frame-sized block, say).
struct AllocationCount {
    long all, large;
};
void countAllocations(std::size_t largeBytes);
AllocationCount countedAllocations();

}  // namespace plat
