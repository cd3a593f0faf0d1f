#include "platform/global_memory.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace plat {
namespace {

std::atomic<long> g_failCountdown{0};
std::atomic<long> g_live{0};
std::atomic<long> g_counted{0}, g_countedLarge{0};
std::atomic<std::size_t> g_largeBytes{SIZE_MAX};

void counted(std::size_t size) {
    ++g_live;
    ++g_counted;
    if (size >= g_largeBytes.load()) ++g_countedLarge;
}

bool allocationAllowed() {
    long n = g_failCountdown.load();
    while (n > 0) {
        if (g_failCountdown.compare_exchange_weak(n, n - 1)) return n != 1;
    }
    return true;
}

}  // namespace

void failAllocationAfter(long n) { g_failCountdown.store(n < 0 ? 0 : n); }
long liveBlocks() { return g_live.load(); }
void countAllocations(std::size_t largeBytes) {
    g_largeBytes.store(largeBytes);
    g_counted.store(0);
    g_countedLarge.store(0);
}
AllocationCount countedAllocations() { return {g_counted.load(), g_countedLarge.load()}; }

#ifdef _WIN32

HGLOBAL globalAlloc(std::size_t size) {
    if (!allocationAllowed()) return nullptr;
    HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, size);
    if (h) counted(size);
    return h;
}
void* globalLock(HGLOBAL block) { return block ? GlobalLock(block) : nullptr; }
void globalUnlock(HGLOBAL block) { if (block) GlobalUnlock(block); }
void globalFree(HGLOBAL block) {
    if (!block) return;
    GlobalFree(block);
    --g_live;
}
std::size_t globalSize(HGLOBAL block) { return block ? GlobalSize(block) : 0; }

void* localAlloc(std::size_t size) {
    if (!allocationAllowed()) return nullptr;
    HLOCAL h = LocalAlloc(LMEM_FIXED | LMEM_ZEROINIT, size);
    if (h) counted(size);
    return h;
}
void localFree(void* memory) {
    if (!memory) return;
    LocalFree(static_cast<HLOCAL>(memory));
    --g_live;
}

#else

}  // namespace plat

// A block keeps its size in front of the data; the handle is the block itself,
// so locking is a plain address computation and never moves memory.
struct GlobalBlock {
    std::size_t size;
    std::atomic<std::uint32_t> locks;   // renders on several threads may lock one source
    alignas(16) unsigned char data[1];
};

namespace plat {

HGLOBAL globalAlloc(std::size_t size) {
    if (!allocationAllowed()) return nullptr;
    if (size > SIZE_MAX - sizeof(GlobalBlock)) return nullptr;
    void* raw = std::calloc(1, offsetof(GlobalBlock, data) + (size ? size : 1));
    if (!raw) return nullptr;
    auto* block = static_cast<GlobalBlock*>(raw);
    block->size = size;
    counted(size);
    return block;
}
void* globalLock(HGLOBAL block) {
    if (!block) return nullptr;
    ++block->locks;
    return block->data;
}
void globalUnlock(HGLOBAL block) {
    if (!block) return;
    std::uint32_t n = block->locks.load();
    while (n && !block->locks.compare_exchange_weak(n, n - 1)) {}
}
void globalFree(HGLOBAL block) {
    if (!block) return;
    std::free(block);
    --g_live;
}
std::size_t globalSize(HGLOBAL block) { return block ? block->size : 0; }

void* localAlloc(std::size_t size) {
    if (!allocationAllowed()) return nullptr;
    void* p = std::calloc(1, size ? size : 1);
    if (p) counted(size);
    return p;
}
void localFree(void* memory) {
    if (!memory) return;
    std::free(memory);
    --g_live;
}

#endif

}  // namespace plat
