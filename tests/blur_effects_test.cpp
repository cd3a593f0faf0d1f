#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <utility>

#include "tests/colour_pictures.h"

using namespace testpic;

namespace {

constexpr unsigned kMotionBlur = 20, kCenterBlur = 21, kRadialBlur = 22;
constexpr int kAllBits[] = {8, 24, 32};

// The average of the listed pixels of `v`, per channel, truncating.
Bgra average(const View& v, const std::vector<std::pair<int, int>>& at) {
    int b = 0, g = 0, r = 0, n = 0;
    for (const auto& p : at) {
        const Bgra c = v.at(p.first, p.second);
        b += c.b, g += c.g, r += c.r, ++n;
    }
    return Bgra{std::uint8_t(b / n), std::uint8_t(g / n), std::uint8_t(r / n), 255};
}

struct Vec {
    int x, y;
};

// The walk as plainly as it can be written: step, clamp, sample, n times.
Bgra walkedBlur(const View& src, int x0, int y0, Vec v, int n) {
    const int w = src.width(), h = src.height();
    const int sx = (v.x > 0) - (v.x < 0), sy = (v.y > 0) - (v.y < 0), mx = std::abs(v.x), my = std::abs(v.y);
    int x = x0, y = y0, ex = sx, ey = sy;
    const Bgra start = src.at(x0, y0);
    int b = start.b, g = start.g, r = start.r;
    for (int k = 0; k < n; ++k) {
        if (ey < ex) {
            x += sx;
            ey += my;
        } else {
            y += sy;
            ex += mx;
        }
        x = x < 0 ? 0 : x >= w ? w - 1 : x;
        y = y < 0 ? 0 : y >= h ? h - 1 : y;
        const Bgra c = src.at(x, y);
        b += c.b, g += c.g, r += c.r;
    }
    const Bgra mean{std::uint8_t(b / (n + 1)), std::uint8_t(g / (n + 1)), std::uint8_t(r / (n + 1)), 255};
    return alphaMixed(start, mean);  // alpha 255 (24-bit and palette sources) gives the mean
}

Vec motionVector(int p1) {
    const double t = (p1 * 0.00392156862745098) * 6.2831853071958;
    return Vec{int(15.0 * std::sin(t)), int(15.0 * std::cos(t))};
}

// Expected result of `effect` at (x, y) for a source of the given size.
Bgra expectedBlur(unsigned effect, const View& src, int x, int y, std::uint32_t progress, int p1) {
    const int cx = src.width() >> 1, cy = src.height() >> 1;
    switch (effect) {
        case kMotionBlur:
            return walkedBlur(src, x, y, motionVector(p1), int((progress * 15) >> 14));
        case kCenterBlur:
            return walkedBlur(src, x, y, Vec{x - cx, y - cy}, int(((unsigned(p1) >> 3) * progress) >> 14));
        default:
            return walkedBlur(src, x, y, Vec{y - cy, cx - x}, int((progress * 15) >> 14));
    }
}

}  // namespace

TEST(BlurEffects, WorkedWalks) {
    using Samples = std::vector<std::pair<int, int>>;
    // Walks held at a border: angle 0 near the top counts the top row 14 times;
    // angle 128 at row 1 steps once in place, once down, then stays on row 0.
    Samples heldAtTop = {{1, 17}, {1, 18}}, heldAtBottom = {{2, 1}, {2, 1}};
    heldAtTop.insert(heldAtTop.end(), 14, {1, 19});
    heldAtBottom.insert(heldAtBottom.end(), 14, {2, 0});
    struct Case {
        unsigned effect;
        std::uint16_t p1;
        std::uint32_t progress;
        int width, height, x, y;
        Samples samples;  // start pixel first
    };
    const Case cases[] = {
        // Vector (10, 10), n = 4: up, right, up, right.
        {kMotionBlur, 32, 5000, 9, 9, 3, 3, {{3, 3}, {3, 4}, {4, 4}, {4, 5}, {5, 5}}},
        // Vector (0, -14), n = 3: the first step stays put, then two steps down.
        {kMotionBlur, 128, 4000, 9, 9, 4, 5, {{4, 5}, {4, 5}, {4, 4}, {4, 3}}},
        // Vector (3, 1), three right of and one above the centre (6, 4), n = 4.
        {kCenterBlur, 32, 16384, 13, 9, 9, 5, {{9, 5}, {9, 6}, {10, 6}, {11, 6}, {12, 6}}},
        // Radial Blur on the centre column above the centre: to the right (n = 3).
        {kRadialBlur, 0, 4000, 11, 11, 5, 6, {{5, 6}, {6, 6}, {7, 6}, {8, 6}}},
        // ... and on the centre row left of it: upward.
        {kRadialBlur, 0, 4000, 11, 11, 3, 5, {{3, 5}, {3, 6}, {3, 7}, {3, 8}}},
        {kMotionBlur, 0, 16384, 3, 20, 1, 17, heldAtTop},
        {kMotionBlur, 128, 16384, 3, 20, 2, 1, heldAtBottom},
    };
    for (const Case& c : cases)
        for (int bits : kAllBits) {
            Owned src(makeColours(c.width, c.height, bits, opaquePattern));
            Owned out(runFilter(c.effect, src, c.progress, c.p1));
            View in(src), v(out);
            EXPECT_EQ(v.at(c.x, c.y), average(in, c.samples))
                << c.effect << " at " << c.x << "," << c.y << ", " << bits;
        }
}

TEST(CenterBlur, ThirtyOneSamplesOutwardAlongTheCentreRow) {
    // Width 41: the centre is (20, 2). From (21, 2) the walk runs right to
    // column 40 in 19 steps and samples it 12 more times.
    Owned src(make(41, 5, 24, opaquePattern));
    View in(src);
    int b = 0, g = 0, r = 0;
    for (int x = 21; x <= 40 + 12; ++x) {
        const Bgra c = in.at(x > 40 ? 40 : x, 2);
        b += c.b, g += c.g, r += c.r;
    }
    const Bgra want{std::uint8_t(b / 32), std::uint8_t(g / 32), std::uint8_t(r / 32), 255};
    Owned out(runFilter(kCenterBlur, src, 16384, 255));
    Owned weak(runFilter(kCenterBlur, src, 16384, 7));  // "Amount" below 8: no samples
    View v(out), w(weak);
    EXPECT_EQ(v.at(21, 2), want);
    EXPECT_EQ(v.at(20, 2), in.at(20, 2));  // the centre never moves
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 41; ++x) ASSERT_EQ(w.at(x, y), in.at(x, y));
}

TEST(MotionBlur, AngleGivesTheDirection) {
    struct Case {
        int p1;
        Vec v;
    };
    const Case cases[] = {{0, {0, 15}},    {1, {0, 14}},     {3, {1, 14}},    {32, {10, 10}},
                          {64, {14, 0}},   {96, {10, -10}},  {128, {0, -14}}, {160, {-10, -10}},
                          {192, {-14, 0}}, {224, {-10, 10}}, {255, {0, 15}}};
    Owned src(make(11, 11, 24, opaquePattern));
    View in(src);
    for (const Case& c : cases) {
        Owned out(runFilter(kMotionBlur, src, 16384, std::uint16_t(c.p1)));
        View v(out);
        for (int y = 0; y < 11; ++y)
            for (int x = 0; x < 11; ++x)
                ASSERT_EQ(v.at(x, y), walkedBlur(in, x, y, c.v, 15))
                    << "angle " << c.p1 << " at " << x << "," << y;
    }
}

TEST(BlurEffects, EveryPixelFollowsTheClampedWalk) {
    const std::pair<int, int> sizes[] = {{1, 1}, {2, 1}, {1, 2},  {2, 2},  {1, 7},
                                         {7, 1}, {9, 7}, {17, 5}, {5, 17}, {40, 33}, {70, 66}};
    const std::uint32_t progresses[] = {0, 1000, 5000, 16384};
    // Angles (Motion Blur) or amounts (Center Blur); 70 x 66 leaves room for
    // 31-sample walks that never reach a border.
    const int angles[] = {0, 32, 64, 100, 128, 192, 200, 255};
    // Varied alpha at 32 bits; at most 240 colours, so the palette form holds them.
    auto colour = [](int x, int y) { return pattern(x % 16, y % 15); };
    for (unsigned effect : {kMotionBlur, kCenterBlur, kRadialBlur})
        for (const auto& size : sizes)
            for (int bits : kAllBits) {
                Owned src(makeColours(size.first, size.second, bits, colour));
                View in(src);
                for (std::uint32_t progress : progresses)
                    for (int p1 : angles) {
                        Owned out(runFilter(effect, src, progress, std::uint16_t(p1)));
                        ASSERT_NE(out.h, nullptr);
                        View v(out);
                        for (int y = 0; y < size.second; ++y)
                            for (int x = 0; x < size.first; ++x) {
                                const Bgra want = progress == 0
                                                      ? in.at(x, y)
                                                      : expectedBlur(effect, in, x, y, progress, p1);
                                ASSERT_EQ(v.at(x, y), want)
                                    << effect << " " << size.first << "x" << size.second << " " << bits
                                    << " bits, progress " << progress << ", P1 " << p1 << " at " << x << ","
                                    << y;
                            }
                    }
            }
}

TEST(BlurEffects, RendersRepeatExactly) {
    for (unsigned effect : {kMotionBlur, kCenterBlur, kRadialBlur})
        EXPECT_TRUE(renderForms(effect, 15, 13, pattern, 12000, 77).repeatable) << effect;
}

TEST(BlurEffects, LargerPicturesFollowTheClampedWalk) {
    // Far from the centre many neighbouring pixels walk alike; these sizes give
    // long runs of them, with 32-bit alpha and palette forms.
    const std::pair<int, int> sizes[] = {{257, 131}, {131, 257}};
    auto colour = [](int x, int y) {
        Bgra c = pattern(x % 16, y % 15);
        c.a = std::uint8_t(x * 29 + y * 53);
        return c;
    };
    for (unsigned effect : {kMotionBlur, kCenterBlur, kRadialBlur})
        for (const auto& size : sizes)
            for (int bits : {8, 32}) {
                Owned src(makeColours(size.first, size.second, bits, colour));
                View in(src);
                for (int p1 : {77, 255}) {
                    Owned out(runFilter(effect, src, 16384, std::uint16_t(p1)));
                    ASSERT_NE(out.h, nullptr);
                    View v(out);
                    for (int y = 0; y < size.second; ++y)
                        for (int x = 0; x < size.first; ++x)
                            ASSERT_EQ(v.at(x, y), expectedBlur(effect, in, x, y, 16384, p1))
                                << effect << " " << size.first << "x" << size.second << " " << bits << " bits, P1 "
                                << p1 << " at " << x << "," << y;
                }
            }
}
