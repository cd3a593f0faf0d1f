// The runtime's random generator, reproduced exactly: srand sets the state;
// each rand makes state = state * 214013 + 2531011 (mod 2^32) and gives
// (state >> 16) & 0x7FFF. Every render keeps its own, so renders never disturb
// each other's sequence.
#pragma once

#include <cstdint>

namespace plat {

struct Random {
    std::uint32_t state = 1;
    void srand(std::uint32_t seed) { state = seed; }
    int rand() {
        state = state * 214013u + 2531011u;
        return static_cast<int>((state >> 16) & 0x7FFF);
    }
    // Moves on as n calls of rand would, in log n steps: n steps of x -> a x + c
    // compose to x -> A x + C, built by squaring.
    void skip(std::uint64_t n) {
        std::uint32_t A = 1, C = 0, a = 214013u, c = 2531011u;
        for (; n; n >>= 1) {
            if (n & 1) A *= a, C = C * a + c;
            c = c * a + c;
            a *= a;
        }
        state = state * A + C;
    }
};

}  // namespace plat
