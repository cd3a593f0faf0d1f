#include <gtest/gtest.h>

#include <vector>

#include "effects/rows/row_effects.h"
#include "engine/pixel.h"
#include "tests/picture_support.h"

using namespace testpic;

namespace {
constexpr unsigned kMosaic = 9, kSampler = 33, kCrosshair = 34;
constexpr std::uint32_t kColour = 0x00C08040;   // red 0x40, green 0x80, blue 0xC0
const Bgra kPainted{0xC0, 0x80, 0x40, 255};

// Pixels that name their own place: blue = x, green = y.
Bgra coords(int x, int y) {
    return Bgra{std::uint8_t(x), std::uint8_t(y), std::uint8_t(x * 7 + y * 13 + 1), 255};
}
}  // namespace

TEST(Mosaic, BlocksFromTheBottomLeft) {
    Owned src(make(20, 20, 24, coords));
    struct Case { std::uint32_t progress; int block; };
    for (const Case c : {Case{0, 1}, Case{1023, 1}, Case{1024, 2}, Case{5000, 5}, Case{16384, 17}}) {
        Owned out(runFilter(kMosaic, src, c.progress));
        View v(out);
        for (int y = 0; y < 20; ++y)
            for (int x = 0; x < 20; ++x)
                ASSERT_EQ(v.at(x, y), coords(x / c.block * c.block, y / c.block * c.block))
                    << "progress " << c.progress << " at " << x << "," << y;
    }
    // At full progress columns 0..16 show column 0, 17..19 column 17 (rows alike).
    Owned out(runFilter(kMosaic, src, 16384));
    View v(out);
    EXPECT_EQ(v.at(16, 3), coords(0, 0));
    EXPECT_EQ(v.at(17, 3), coords(17, 0));
    EXPECT_EQ(v.at(19, 19), coords(17, 17));
}

TEST(Sampler, RingOfEachCell) {
    Owned src(make(20, 19, 24, coords));
    // Which pixels show the source, by cell size N = (P1 >> 4) + 1.
    struct Case { std::uint16_t p1; bool (*shows)(int x, int y); };
    const Case cases[] = {
        {0, [](int, int) { return false; }},
        {15, [](int, int) { return false; }},
        {16, [](int x, int y) { return x % 2 == 1 && y % 2 == 1; }},
        {32, [](int x, int y) { return x % 3 != 0 && y % 3 != 0; }},
        {128, [](int x, int y) {
             const int xm = x % 9, ym = y % 9;
             return xm != 0 && ym != 0 && (xm == 1 || xm == 8 || ym == 1 || ym == 8);
         }},
    };
    for (const Case& c : cases) {
        Owned out(runFilter(kSampler, src, 16384, c.p1, 0, 0, kColour));
        View v(out);
        for (int y = 0; y < 19; ++y)
            for (int x = 0; x < 20; ++x)
                ASSERT_EQ(v.at(x, y), c.shows(x, y) ? coords(x, y) : kPainted) << "P1 " << c.p1 << " at " << x << "," << y;
    }
    // The default nine: (xm, ym) = (1,5), (8,8), (4,1) show; (0,1), (4,4), (2,7) are painted.
    Owned out(runFilter(kSampler, src, 0, 128, 0, 0, kColour));
    View v(out);
    EXPECT_EQ(v.at(10, 5), coords(10, 5));
    EXPECT_EQ(v.at(17, 17), coords(17, 17));
    EXPECT_EQ(v.at(4, 10), coords(4, 10));
    EXPECT_EQ(v.at(9, 1), kPainted);
    EXPECT_EQ(v.at(13, 4), kPainted);
    EXPECT_EQ(v.at(2, 16), kPainted);
}

TEST(Crosshair, DiscAndCross) {
    Owned src(make(100, 60, 24, coords));
    struct Case { std::uint16_t p1; int x, y; bool shows; };
    const Case cases[] = {
        {255, 80, 30, false},  // on the cross
        {255, 80, 33, false},  // outside the disc of radius 30 about (50, 30)
        {255, 70, 40, true},
        {255, 68, 54, true},   // 18^2 + 24^2 = 900, on the rim
        {255, 68, 55, false},
        {255, 52, 40, true},   {255, 51, 40, false}, {255, 60, 32, true}, {255, 60, 31, false},
        {128, 65, 45, true},   // R2 = 128 x 900 / 255 = 451: 450 inside
        {128, 66, 44, false},  // 452 outside
        {0, 50, 30, false},    {0, 52, 32, false},
    };
    for (const Case& c : cases) {
        Owned out(runFilter(kCrosshair, src, 0, c.p1, 0, 0, kColour));
        EXPECT_EQ(View(out).at(c.x, c.y), c.shows ? coords(c.x, c.y) : kPainted)
            << "P1 " << c.p1 << " at " << c.x << "," << c.y;
    }
}

TEST(Crosshair, LargestPictureRadius) {
    // One row of a 65535 x 65535 picture; P1 x r x r reaches 2.7e11.
    const unsigned n = 65535, y = 32769;   // two rows above the centre row
    std::vector<std::uint8_t> row(3 * n), out(3 * n);
    for (unsigned x = 0; x < n; ++x) row[3 * x] = std::uint8_t(x | 1);
    std::vector<const std::uint8_t*> rows(n, nullptr);
    rows[y] = row.data();
    for (const std::uint16_t p1 : {std::uint16_t(255), std::uint16_t(200)}) {
        publishRenderValues(p1, 0, 0, 0);
        CrosshairLine2(std::uint16_t(y), 0, n, n, rows.data(), out.data(), 0);
        const std::int64_t r = n / 2, r2 = p1 * r * r / 255, dy = std::int64_t(y) - r;
        int shown = 0;
        for (unsigned x = 0; x < n; ++x) {
            const std::int64_t dx = std::int64_t(x) - r;
            const bool shows = dx * dx + dy * dy <= r2 && (dx >= 2 || dx <= -2);
            ASSERT_EQ(out[3 * x], shows ? row[3 * x] : 0) << "P1 " << p1 << " x " << x;
            shown += shows;
        }
        if (p1 == 255) {
            EXPECT_EQ(shown, 65533 - 3);   // columns 1..65533 but the cross
        }
    }
}

TEST(BlockEffects, AlphaMixesOverTheOwnPixel) {
    const std::uint8_t alphas[] = {0, 255, 100, 37};
    auto withAlpha = [&](int x, int y) {
        Bgra p = coords(x, y);
        p.a = alphas[(x + 3 * y) % 4];
        return p;
    };
    Owned src24(make(21, 19, 24, coords)), src32(make(21, 19, 32, withAlpha));
    View in(src32);
    struct Case { unsigned effect; std::uint16_t p1; std::uint32_t progress; };
    for (const Case c : {Case{kMosaic, 0, 3000}, Case{kSampler, 64, 0}, Case{kCrosshair, 255, 0}}) {
        Owned o24(runFilter(c.effect, src24, c.progress, c.p1, 0, 0, kColour));
        Owned o32(runFilter(c.effect, src32, c.progress, c.p1, 0, 0, kColour));
        View v24(o24), v32(o32);
        for (int y = 0; y < 19; ++y)
            for (int x = 0; x < 21; ++x) {
                const Bgra s = in.at(x, y), v = v24.at(x, y);
                const Bgra want{px::alphaMix(s.b, v.b, s.a), px::alphaMix(s.g, v.g, s.a), px::alphaMix(s.r, v.r, s.a), s.a};
                ASSERT_EQ(v32.at(x, y), want) << "effect " << c.effect << " at " << x << "," << y;
            }
    }
}

TEST(BlockEffects, PaletteSourcesMatchTheirColours) {
    const auto table = palette256();
    auto index = [](int x, int y) { return std::uint8_t(x * 31 + y * 17); };
    Owned src8(make(23, 21, 8, [&](int x, int y) { return Bgra{index(x, y), 0, 0, 0}; }, table));
    Owned src24(make(23, 21, 24, [&](int x, int y) { return table[index(x, y)]; }));
    struct Case { unsigned effect; std::uint16_t p1; std::uint32_t progress; };
    for (const Case c : {Case{kMosaic, 0, 4096}, Case{kSampler, 80, 0}, Case{kCrosshair, 200, 0}}) {
        Owned a(runFilter(c.effect, src8, c.progress, c.p1, 0, 0, kColour));
        Owned b(runFilter(c.effect, src24, c.progress, c.p1, 0, 0, kColour));
        View va(a), vb(b);
        for (int y = 0; y < 21; ++y)
            for (int x = 0; x < 23; ++x) ASSERT_EQ(va.at(x, y), vb.at(x, y)) << c.effect << " at " << x << "," << y;
    }
}
