#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/random.h"
#include "standalone/host_context.h"
#include "tests/picture_support.h"

using namespace testpic;

namespace {

constexpr unsigned kPointillize = 10, kRain = 27, kTriangles = 28, kSmudge = 29;
constexpr std::uint16_t kSpacing17 = 0;     // Number 0
constexpr std::uint16_t kOnGrid = 15;       // Randomness 15: no displacement
constexpr std::uint16_t kMostRandom = 255;  // displacement up to 15 pixels

// Weights [row][column]; row 0 is the lowest picture row of a mark.
using Shape = int[6][6];
const Shape kLargeDot = {{0, 192, 256, 256, 192, 0},     {192, 256, 256, 256, 256, 192},
                         {256, 256, 256, 256, 256, 256}, {256, 256, 256, 256, 256, 256},
                         {192, 256, 256, 256, 256, 192}, {0, 192, 256, 256, 192, 0}};
const Shape kSmallDot = {{0, 0, 0, 0, 0, 0},       {0, 0, 192, 192, 0, 0}, {0, 192, 256, 256, 192, 0},
                         {0, 192, 256, 256, 192, 0}, {0, 0, 192, 192, 0, 0}, {0, 0, 0, 0, 0, 0}};
const Shape kStreakA = {{0, 0, 0, 0, 256, 256},    {0, 0, 0, 256, 256, 256}, {0, 0, 192, 256, 256, 0},
                        {0, 128, 192, 192, 0, 0}, {64, 128, 128, 0, 0, 0}, {64, 64, 0, 0, 0, 0}};
const Shape kStreakB = {{256, 256, 0, 0, 0, 0},     {256, 256, 256, 0, 0, 0},  {0, 256, 256, 192, 0, 0},
                        {0, 0, 192, 192, 128, 0}, {0, 0, 0, 128, 128, 64}, {0, 0, 0, 0, 64, 64}};
const Shape kTriangleRight = {{256, 192, 0, 0, 0, 0},         {256, 256, 256, 192, 0, 0},
                              {256, 256, 256, 192, 256, 192}, {256, 256, 256, 256, 256, 192},
                              {256, 256, 256, 192, 0, 0},     {256, 192, 0, 0, 0, 0}};
const Shape kTriangleLeft = {{0, 0, 0, 0, 192, 256},         {0, 0, 192, 256, 256, 256},
                             {192, 256, 192, 256, 256, 256}, {192, 256, 256, 256, 256, 256},
                             {0, 0, 192, 256, 256, 256},     {0, 0, 0, 0, 192, 256}};
const Shape kSmear = {{0, 0, 128, 128, 192, 192}, {0, 128, 128, 192, 192, 255}, {0, 0, 128, 128, 192, 192},
                      {0, 128, 128, 192, 192, 255}, {0, 0, 128, 128, 192, 192}, {0, 128, 128, 192, 192, 255}};

struct EffectShapes {
    unsigned effect;
    const Shape* first;
    const Shape* second;
};
const EffectShapes kEffects[] = {{kPointillize, &kLargeDot, &kSmallDot},
                                 {kRain, &kStreakA, &kStreakB},
                                 {kTriangles, &kTriangleRight, &kTriangleLeft},
                                 {kSmudge, &kSmear, &kSmear}};

// Background colour blue 10, green 20, red 250.
constexpr std::uint32_t kColour = 0x000A14FA;
const Bgra kBackground{10, 20, 250, 255};

int mixByAlpha(int s, int v, int a) { return (s * (255 - a) + v * a) / 255; }

// The expected picture, built mark by mark from the documented painting rule.
struct Expected {
    int w, h;
    bool alpha;
    std::vector<Bgra> px;
    Expected(const View& src, bool hasAlpha) : w(src.width()), h(src.height()), alpha(hasAlpha) {
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const Bgra s = src.at(x, y);
                const int a = alpha ? s.a : 255;
                px.push_back(Bgra{std::uint8_t(mixByAlpha(s.b, kBackground.b, a)),
                                  std::uint8_t(mixByAlpha(s.g, kBackground.g, a)),
                                  std::uint8_t(mixByAlpha(s.r, kBackground.r, a)), std::uint8_t(a)});
            }
    }

    // One mark whose shape entry [0][0] lies at (x0, y0); cut at the right and
    // top, nothing when (x0, y0) lies outside.
    void paint(const View& src, int x0, int y0, const Shape& shape) {
        const int cols = std::min(6, w - x0), rows = std::min(6, h - y0);
        int count = 0, sum[3] = {0, 0, 0};
        for (int r = 0; r < rows; ++r)
            for (int c = 0; c < cols; ++c)
                if (shape[r][c]) {
                    const Bgra s = src.at(x0 + c, y0 + r);
                    ++count, sum[0] += s.b, sum[1] += s.g, sum[2] += s.r;
                }
        for (int r = 0; r < rows && count; ++r)
            for (int c = 0; c < cols; ++c) {
                Bgra& o = px[std::size_t((y0 + r) * w + x0 + c)];
                const Bgra s = src.at(x0 + c, y0 + r);
                std::uint8_t* out[3] = {&o.b, &o.g, &o.r};
                const int in[3] = {s.b, s.g, s.r}, wt = shape[r][c];
                for (int k = 0; k < 3; ++k) {
                    const int t = (*out[k] * (256 - wt) + sum[k] / count * wt) >> 8;
                    *out[k] = std::uint8_t(alpha ? mixByAlpha(in[k], t, s.a) : t);
                }
            }
    }
};

// Where the picture differs from the expected one: the first differing pixel.
std::string difference(const View& out, const Expected& want) {
    for (int y = 0; y < want.h; ++y)
        for (int x = 0; x < want.w; ++x) {
            const Bgra got = out.at(x, y), exp = want.px[std::size_t(y * want.w + x)];
            if (!(got == exp))
                return "pixel (" + std::to_string(x) + ", " + std::to_string(y) + ") is " + std::to_string(got.b) + "," +
                       std::to_string(got.g) + "," + std::to_string(got.r) + "," + std::to_string(got.a) + " not " +
                       std::to_string(exp.b) + "," + std::to_string(exp.g) + "," + std::to_string(exp.r) + "," +
                       std::to_string(exp.a);
        }
    return "";
}

// The next displacement drawn from the shared sequence: x first, then y.
void draw(int jitter, int& dx, int& dy) {
    const int span = 2 * jitter + 1;
    dx = jitter - plat::rand() % span;
    dy = jitter - plat::rand() % span;
}

Bgra varied(int x, int y) {
    return Bgra{std::uint8_t(x * 41 + y * 7), std::uint8_t(200 - x * 9 + y * 13), std::uint8_t(x * y * 5 + 30),
                std::uint8_t(x * 60 + y * 25)};
}

}  // namespace

// One cell, on the grid: both shapes painted at the same place over the
// background, each blending the truncated average of the source under its
// non-zero weights. A table typed wrong or upside down, averages taken from the
// output or over zero weights, or the wrong order of the two shapes all show.
TEST(MeanMapEffects, OneCellPaintsBothShapesFromSourceAverages) {
    for (int bits : {24, 32}) {
        // Alpha varies on 32-bit pictures: zero weights are still pulled toward the source.
        Owned src(make(6, 6, bits, varied));
        View in(src);
        for (const EffectShapes& e : kEffects) {
            Owned out(runFilter(e.effect, src, 16384, kSpacing17, kOnGrid, 0, kColour));
            ASSERT_NE(out.h, nullptr);
            Expected want(in, bits == 32);
            want.paint(in, 0, 0, *e.first);
            want.paint(in, 0, 0, *e.second);
            EXPECT_EQ(difference(View(out), want), "") << "effect " << e.effect << " bits " << bits;
        }
    }
    // Spelled out: Pointillize's corner (0, 0) has weight 0 in both shapes. On
    // 24 bits it keeps the background; on 32 bits the background and each of
    // the two marks mix it toward the source by its alpha.
    Owned src24(make(6, 6, 24, [](int, int) { return Bgra{200, 100, 40, 255}; }));
    Owned src32(make(6, 6, 32, [](int, int) { return Bgra{200, 100, 40, 100}; }));
    Owned out24(runFilter(kPointillize, src24, 16384, kSpacing17, kOnGrid, 0, kColour));
    Owned out32(runFilter(kPointillize, src32, 16384, kSpacing17, kOnGrid, 0, kColour));
    EXPECT_EQ(View(out24).at(0, 0), kBackground);
    EXPECT_EQ(View(out24).at(1, 0), (Bgra{std::uint8_t((10 * 64 + 200 * 192) >> 8),
                                          std::uint8_t((20 * 64 + 100 * 192) >> 8),
                                          std::uint8_t((250 * 64 + 40 * 192) >> 8), 255}));
    auto pull = [](int s, int v) { return (s * 155 + v * 100) / 255; };
    EXPECT_EQ(View(out32).at(0, 0), (Bgra{std::uint8_t(pull(200, pull(200, pull(200, 10)))),
                                          std::uint8_t(pull(100, pull(100, pull(100, 20)))),
                                          std::uint8_t(pull(40, pull(40, pull(40, 250)))), 100}));
}

// Marks displaced at random: shifted inward at the left and bottom, cut at the
// right and top, painted band by band, left to right, first shape then second.
// Undisplaced, spacing 17 on 18 columns or rows puts marks of one column or
// row at the last one, averaged over that line alone.
TEST(MeanMapEffects, DisplacedMarksFollowTheSequence) {
    struct Case { int w, h; std::uint16_t number, randomness; };
    const Case cases[] = {{61, 47, kSpacing17, kMostRandom}, {23, 19, 200, 100}, {7, 40, 255, 255},
                          {18, 7, kSpacing17, kOnGrid},          {7, 18, kSpacing17, 0}};
    int shiftedLeft = 0, shiftedDown = 0, cutRight = 0, cutTop = 0;
    for (int bits : {24, 32}) {
        for (const Case& c : cases) {
            Owned src(make(c.w, c.h, bits, varied));
            View in(src);
            const int spacing = (255 - c.number) / 16 + 2, jitter = c.randomness >> 4;
            for (const EffectShapes& e : kEffects) {
                Expected want(in, bits == 32);
                plat::srand(0);
                for (int y = 0; y < c.h; y += spacing)
                    for (int x = 0; x < c.w; x += spacing)
                        for (const Shape* shape : {e.first, e.second}) {
                            int dx, dy;
                            draw(jitter, dx, dy);
                            shiftedLeft += x + dx < 0;
                            shiftedDown += y + dy < 0;
                            cutRight += x + dx == c.w - 1;   // one column left
                            cutTop += y + dy == c.h - 1;
                            want.paint(in, std::max(x + dx, 0), std::max(y + dy, 0), *shape);
                        }
                Owned out(runFilter(e.effect, src, 0, c.number, c.randomness, 0, kColour));
                ASSERT_NE(out.h, nullptr);
                EXPECT_EQ(difference(View(out), want), "")
                    << "effect " << e.effect << " size " << c.w << "x" << c.h << " bits " << bits;
                Owned again(runFilter(e.effect, src, 0, c.number, c.randomness, 0, kColour));
                EXPECT_EQ(View(again).bytes(), View(out).bytes()) << "renders repeat exactly";
            }
        }
    }
    // The cases reach every edge.
    EXPECT_GT(shiftedLeft, 0);
    EXPECT_GT(shiftedDown, 0);
    EXPECT_GT(cutRight, 0);
    EXPECT_GT(cutTop, 0);
}

TEST(MeanMapEffects, AlphaZeroKeepsTheSourceAndFullAlphaMatches24Bit) {
    Owned clear(make(29, 23, 32, [](int x, int y) { Bgra p = pattern(x, y); p.a = 0; return p; }));
    Owned opaque(make(29, 23, 32, [](int x, int y) { Bgra p = pattern(x, y); p.a = 255; return p; }));
    Owned plain(make(29, 23, 24, pattern));
    for (const EffectShapes& e : kEffects) {
        Owned a(runFilter(e.effect, clear, 0, 230, 200, 0, kColour));
        Owned b(runFilter(e.effect, opaque, 0, 230, 200, 0, kColour));
        Owned c(runFilter(e.effect, plain, 0, 230, 200, 0, kColour));
        View va(a), vb(b), vc(c), vs(clear);
        for (int y = 0; y < 23; ++y)
            for (int x = 0; x < 29; ++x) {
                ASSERT_EQ(va.at(x, y), vs.at(x, y)) << e.effect << " at " << x << "," << y;
                ASSERT_EQ(vb.at(x, y), vc.at(x, y)) << e.effect << " at " << x << "," << y;
            }
    }
}

TEST(MeanMapEffects, PaletteSourceGivesTheResultOfItsColours) {
    const auto table = palette256();
    Owned indexed(make(33, 21, 8, [](int x, int y) { return Bgra{std::uint8_t(x * 7 + y * 31), 0, 0, 0}; }, table));
    Owned expanded(make(33, 21, 24, [&](int x, int y) { return table[std::uint8_t(x * 7 + y * 31)]; }));
    for (const EffectShapes& e : kEffects) {
        Owned a(runFilter(e.effect, indexed, 0, 200, kMostRandom, 0, kColour));
        Owned b(runFilter(e.effect, expanded, 0, 200, kMostRandom, 0, kColour));
        ASSERT_NE(a.h, nullptr);
        EXPECT_EQ(View(a).header().biBitCount, 24);
        EXPECT_EQ(View(a).bytes(), View(b).bytes()) << e.effect;
    }
}

// One row tick per band of marks, and exactly two random draws per mark even
// when nothing is displaced.
TEST(MeanMapEffects, OneTickPerBandAndTwoDrawsPerMark) {
    struct Case { int w, h; std::uint16_t number, randomness; };
    const Case cases[] = {{20, 20, 128, 0}, {20, 20, 128, 255}, {1, 35, 0, 0}, {35, 1, 255, 16}, {9, 10, 128, 7}};
    for (const Case& c : cases) {
        Owned src(make(c.w, c.h, 24, pattern));
        const int spacing = (255 - c.number) / 16 + 2;
        const long bands = (c.h + spacing - 1) / spacing, cells = bands * ((c.w + spacing - 1) / spacing);
        const long ticks = standalone::operationCounts().rowTicks;
        Owned out(runFilter(kRain, src, 0, c.number, c.randomness));
        EXPECT_EQ(standalone::operationCounts().rowTicks - ticks, bands) << c.w << "x" << c.h;
        const int next = plat::rand();
        plat::srand(0);
        for (long i = 0; i < 4 * cells; ++i) plat::rand();
        EXPECT_EQ(next, plat::rand()) << c.w << "x" << c.h << " number " << c.number;
    }
}

TEST(MeanMapEffects, SlidersAreClampedTo255) {
    Owned src(make(31, 17, 24, pattern));
    Owned clamped(runFilter(kTriangles, src, 0, 300, 4000, 0, kColour));
    Owned top(runFilter(kTriangles, src, 0, 255, 255, 0, kColour));
    ASSERT_NE(clamped.h, nullptr);
    EXPECT_EQ(View(clamped).bytes(), View(top).bytes());
}

TEST(MeanMapEffects, RefusedPicturesAndMemoryFailure) {
    MessageCapture messages;
    Owned good(make(8, 8, 24, pattern));
    {   // a 16-bit picture is refused without a message
        Owned odd(make(8, 8, 24, pattern));
        auto* h = static_cast<BITMAPINFOHEADER*>(plat::globalLock(odd));
        h->biBitCount = 16;
        plat::globalUnlock(odd);
        EXPECT_EQ(runFilter(kPointillize, odd, 0, 128, 128), nullptr);
    }
    EXPECT_TRUE(messages.messages.empty());
    const long live = plat::liveBlocks();
    plat::failAllocationAfter(1);
    HGLOBAL out = runFilter(kPointillize, good, 0, 128, 128);
    plat::failAllocationAfter(0);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(plat::liveBlocks(), live);
    ASSERT_EQ(messages.messages.size(), 1u);
    EXPECT_EQ(messages.messages[0], "Not enough memory to complete operation");
}
