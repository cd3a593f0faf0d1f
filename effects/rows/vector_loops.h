// Marks the plain byte loops of the row effects: kept out of line so their
// callers stay small, and on x86-64 ELF builds with GCC cloned for AVX2 with
// the choice made at load time. Other builds compile plain code.
#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/vector_clones.h"

#if defined(__GNUC__)
#define FLR_VECTOR_LOOP FLAIRIZE_CLONES __attribute__((noinline))
#else
#define FLR_VECTOR_LOOP
#endif

namespace rowpx {

// keys[i] = L of pixel i of `count` pixels of Step bytes, from the shifted
// channels themselves so that the loop vectorises (the table form does not).
template <unsigned Step>
inline void luminanceRun(const std::uint8_t* __restrict p, unsigned count, std::uint8_t* __restrict keys) {
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned b = p[Step * i], g = p[Step * i + 1], r = p[Step * i + 2];
        keys[i] = static_cast<std::uint8_t>((b >> 3) - (b >> 6) + (g >> 1) + (g >> 4) + (g >> 5) + (r >> 2) +
                                            (r >> 4) - (r >> 6) + (r >> 7));
    }
}

}  // namespace rowpx
