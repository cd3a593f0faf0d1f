// Reading a fuzzer's input field by field: fixed-width values from the front,
// zero once the bytes run out, the rest handed over as a block.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

struct FuzzInput {
    const std::uint8_t* data;
    std::size_t size;

    template <typename T>
    T take() {
        T value{};
        const std::size_t n = size < sizeof value ? size : sizeof value;
        std::memcpy(&value, data, n);
        data += n, size -= n;
        return value;
    }
    // The first `n` remaining bytes (fewer when the input ends first).
    const std::uint8_t* bytes(std::size_t& n) {
        if (n > size) n = size;
        const std::uint8_t* p = data;
        data += n, size -= n;
        return p;
    }
};

// A fuzz target that finds the product doing what it must not: abort with the
// reason, so libFuzzer keeps the input as a crash.
#define FUZZ_CHECK(condition)                                                                   \
    do {                                                                                        \
        if (!(condition)) {                                                                     \
            std::fprintf(stderr, "fuzz check failed: %s (%s:%d)\n", #condition, __FILE__, __LINE__); \
            std::abort();                                                                  \
        }                                                                                       \
    } while (0)

#include "platform/global_memory.h"
#include "platform/win_types.h"

// The rest of the input as a packed DIB in a movable block, header and all, so
// damaged headers reach the picture checks. Null for pictures that claim more
// than 256 pixels either way: each run stays fast.
inline HGLOBAL fuzzPictureBlock(FuzzInput& in) {
    std::size_t n = in.size;
    const std::uint8_t* bytes = in.bytes(n);
    if (n >= 12) {
        std::int32_t width, height;
        std::memcpy(&width, bytes + 4, 4);
        std::memcpy(&height, bytes + 8, 4);
        if (width > 256 || width < -256 || height > 256 || height < -256) return nullptr;
    }
    HGLOBAL block = plat::globalAlloc(n ? n : 1);
    if (block && n) {
        std::memcpy(plat::globalLock(block), bytes, n);
        plat::globalUnlock(block);
    }
    return block;
}
