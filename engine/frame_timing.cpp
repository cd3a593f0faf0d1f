// Frame timing: a sequence position becomes the effect's progress, bent by the
// speed curve and mapped through the direction.
#include "engine/curve_pow.h"
#include "engine/flairize.h"

namespace flairize {

std::uint32_t speedCurve(std::uint32_t p, std::int8_t speed) {
    if (speed == 0) return p;
    const double s = speed;
    const double e = speed < 0 ? 1.0 + s * 0.008 : 1.0 + (s * 0.01) * 4.0;
    const double v = timing::curvePow(p * 6.103515625e-05, e) * 16384.0;
    // Speeds below -124 make position 0 infinite; such values saturate.
    if (!(v >= 0.0)) return 0;
    if (v >= 4294967295.0) return 0xFFFFFFFFu;
    return static_cast<std::uint32_t>(v);
}

std::uint32_t applyDirection(std::uint32_t p, std::uint32_t direction) {
    switch (direction & 3) {
    case 0: return 16384u - p;
    case 1: return p <= 8192u ? 2u * p : 2u * (16384u - p);
    case 2: return p;
    default: return p <= 8192u ? 2u * (8192u - p) : 2u * p - 16384u;
    }
}

std::uint32_t sequencePosition(std::uint64_t frame, std::uint64_t frames) {
    return frames <= 1 ? 16384u : static_cast<std::uint32_t>(frame * 16384 / (frames - 1));
}

}  // namespace flairize
