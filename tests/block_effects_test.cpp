#include <gtest/gtest.h>

#include <functional>
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

// Every pixel of a 20 x 19 picture: Mosaic's blocks of (progress >> 10) + 1
// anchored at the bottom left (cut at the top and right) take their first
// pixel; Sampler keeps the ring just inside each cell of (P1 >> 4) + 1 and
// paints the rest.
TEST(BlockEffects, MosaicBlocksAndSamplerRings) {
    auto block = [](int b) { return [b](int x, int y) { return coords(x / b * b, y / b * b); }; };
    auto ring = [](bool (*shows)(int, int)) {
        return [shows](int x, int y) { return shows(x, y) ? coords(x, y) : kPainted; };
    };
    struct Case { unsigned effect; std::uint32_t progress; std::uint16_t p1; std::function<Bgra(int, int)> want; };
    const Case cases[] = {
        {kMosaic, 0, 0, block(1)},     {kMosaic, 1023, 0, block(1)},   {kMosaic, 1024, 0, block(2)},
        {kMosaic, 5000, 0, block(5)},  {kMosaic, 16384, 0, block(17)},
        {kSampler, 16384, 0, ring([](int, int) { return false; })},
        {kSampler, 0, 15, ring([](int, int) { return false; })},
        {kSampler, 0, 16, ring([](int x, int y) { return x % 2 == 1 && y % 2 == 1; })},
        {kSampler, 0, 32, ring([](int x, int y) { return x % 3 != 0 && y % 3 != 0; })},
        {kSampler, 0, 128, ring([](int x, int y) {
             const int xm = x % 9, ym = y % 9;
             return xm != 0 && ym != 0 && (xm == 1 || xm == 8 || ym == 1 || ym == 8);
         })},
    };
    Owned src(make(20, 19, 24, coords));
    for (const Case& c : cases) {
        Owned out(runFilter(c.effect, src, c.progress, c.p1, 0, 0, kColour));
        EXPECT_EQ(firstDifference(View(out), c.want), "")
            << "effect " << c.effect << " progress " << c.progress << " P1 " << c.p1;
    }
}

TEST(Crosshair, DiscAndCross) {
    Owned src(make(100, 60, 24, coords));
    struct Case { std::uint16_t p1; int x, y; bool shows; };
    const Case cases[] = {
        {255, 80, 30, false}, {255, 80, 33, false},  // on the cross; outside the disc of radius 30 about (50, 30)
        {255, 70, 40, true},  {255, 68, 54, true}, {255, 68, 55, false},   // 18^2 + 24^2 = 900, on the rim
        {255, 52, 40, true},  {255, 51, 40, false}, {255, 49, 40, false},  // beside the cross
        {255, 60, 32, true},  {255, 60, 31, false}, {255, 60, 29, false},
        {128, 65, 45, true},  {128, 66, 44, false},  // R2 = 128 x 900 / 255 = 451: 450 inside, 452 outside
        {0, 50, 30, false},   {0, 52, 32, false},
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

// 32-bit pictures: every pixel is the 24-bit result mixed over its own source
// pixel by its alpha (0, 255 and between), alpha kept.
TEST(BlockEffects, AlphaMixesOverTheOwnPixel) {
    const std::uint8_t alphas[] = {0, 255, 100, 37};
    Owned src24(make(21, 19, 24, coords)), src32(make(21, 19, 32, [&](int x, int y) {
        Bgra p = coords(x, y);
        p.a = alphas[(x + 3 * y) % 4];
        return p;
    }));
    const View in(src32);
    struct Case { unsigned effect; std::uint16_t p1; std::uint32_t progress; };
    for (const Case c : {Case{kMosaic, 0, 3000}, Case{kSampler, 64, 0}, Case{kCrosshair, 255, 0}}) {
        Owned o24(runFilter(c.effect, src24, c.progress, c.p1, 0, 0, kColour));
        Owned o32(runFilter(c.effect, src32, c.progress, c.p1, 0, 0, kColour));
        const View v24(o24);
        EXPECT_EQ(firstDifference(View(o32), [&](int x, int y) {
                      const Bgra s = in.at(x, y), v = v24.at(x, y);
                      return Bgra{px::alphaMix(s.b, v.b, s.a), px::alphaMix(s.g, v.g, s.a),
                                  px::alphaMix(s.r, v.r, s.a), s.a};
                  }),
                  "")
            << "effect " << c.effect;
    }
}

TEST(BlockEffects, PaletteSourcesMatchTheirColours) {
    Owned src8(indexed(23, 21, [](int x, int y) { return x * 31 + y * 17; }));
    Owned src24(trueColour(src8));
    struct Case { unsigned effect; std::uint16_t p1; std::uint32_t progress; };
    for (const Case c : {Case{kMosaic, 0, 4096}, Case{kSampler, 80, 0}, Case{kCrosshair, 200, 0}}) {
        Owned a(runFilter(c.effect, src8, c.progress, c.p1, 0, 0, kColour));
        Owned b(runFilter(c.effect, src24, c.progress, c.p1, 0, 0, kColour));
        EXPECT_EQ(firstDifference(View(a), View(b)), "") << "effect " << c.effect;
    }
}
