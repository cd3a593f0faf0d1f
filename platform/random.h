// The runtime's random generator, reproduced exactly: state = state * 214013 +
// 2531011 (mod 2^32), result (state >> 16) & 0x7FFF. The state is per thread so
// renders on different threads never disturb each other's sequence.
#pragma once

#include <cstdint>

namespace plat {

struct RandomState {
    std::uint32_t state = 1;
    void seed(std::uint32_t s) { state = s; }
    int next() {
        state = state * 214013u + 2531011u;
        return static_cast<int>((state >> 16) & 0x7FFF);
    }
};

RandomState& threadRandom();
inline void srand(std::uint32_t seed) { threadRandom().seed(seed); }
inline int rand() { return threadRandom().next(); }

}  // namespace plat
