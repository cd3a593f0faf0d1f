// The effects that use sin, cos, asin and atan2 truncate the results to whole
// pixels. These tests show every truncated value lies far from a whole number
// (or is below 1 in size, where truncation gives 0 either way), so any math
// library accurate to 1e-13 gives the same pictures: the Windows build, whose
// math routines differ from glibc's, renders byte for byte the same.
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

TEST(PortableMath, BubbleLensOffsets) {
    // The lens map's offsets before truncation, 20 x 20 with the stated lens factor.
    const int cx = 10, cy = 10;
    double smallest = 1.0;
    for (int j = 0; j < 20; ++j)
        for (int i = 0; i < 20; ++i) {
            const double u = double(i - cx) / cx, v = double(j - cy) / cy;
            const double r = std::sqrt(v * v + u * u);
            if (r > 1.0) continue;
            const double theta = (u == 0.0 && v == 0.0) ? 0.0 : std::atan2(u, v);
            const double s = std::asin(r) * 0.6366197723659386;
            for (double offset : {(s * std::sin(theta) - u) * cx, (s * std::cos(theta) - v) * cy}) {
                const double m = truncationMargin(offset);
                EXPECT_GT(m, 1e-12) << "entry " << i << "," << j << " offset " << offset;
                smallest = std::min(smallest, m);
            }
        }
    // The closest calls are the eight entries at radius 0.5, a few 1e-12 below a whole pixel.
    EXPECT_LT(smallest, 1e-10);
}
