// Shake and Motion Blur truncate 15 sin and 15 cos of the angle to whole
// pixels. For every angle the value lies far from a whole number (or below 1
// in size, where truncation gives 0 either way), so any math library accurate
// to 1e-9 gives the same vectors; the conformance table, run against the
// Windows build and on aarch64, covers the other uses of the math library.
#include <gtest/gtest.h>

#include <cmath>

namespace {

// Distance of v from the nearest whole number where that decides the truncation.
double truncationMargin(double v) {
    if (std::fabs(v) < 1.0) return 1.0 - std::fabs(v);   // truncates to 0 whatever its last bits
    return std::fabs(v - std::round(v));
}

}  // namespace

TEST(PortableMath, DirectionVectorsOfShakeAndMotionBlur) {
    double smallest = 1.0;
    for (int p1 = 0; p1 <= 255; ++p1) {
        const double t = (p1 * 0.00392156862745098) * 6.2831853071958;
        for (double v : {15.0 * std::sin(t), 15.0 * std::cos(t)}) {
            // Angles 0 and just past a full turn (P1 0 and 255): cos is within 1e-22 of 1,
            // so every faithful library returns exactly 1 and the vector is exactly 15.
            if ((p1 == 0 || p1 == 255) && v == 15.0) continue;
            const double m = truncationMargin(v);
            EXPECT_GT(m, 1e-9) << "P1 " << p1 << " value " << v;
            smallest = std::min(smallest, m);
        }
    }
    EXPECT_GT(smallest, 1e-9);
}
