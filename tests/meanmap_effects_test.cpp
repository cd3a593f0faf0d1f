#include <gtest/gtest.h>

#include <algorithm>

#include "platform/random.h"
#include "standalone/host_context.h"
#include "tests/picture_support.h"

using namespace testpic;

namespace {

constexpr unsigned kPointillize = 10, kRain = 27, kTriangles = 28, kSmudge = 29;
constexpr std::uint32_t kColour = 0x000A14FA;   // background blue 10, green 20, red 250

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
    const Shape *first, *second;
};
const EffectShapes kEffects[] = {{kPointillize, &kLargeDot, &kSmallDot}, {kRain, &kStreakA, &kStreakB},
                                 {kTriangles, &kTriangleRight, &kTriangleLeft}, {kSmudge, &kSmear, &kSmear}};

int mixByAlpha(int s, int v, int a) { return (s * (255 - a) + v * a) / 255; }

// The expected picture, built mark by mark from the documented painting rule.
struct Expected {
    const View& src;
    bool alpha;
    std::vector<Bgra> px;
    Expected(const View& in, bool hasAlpha) : src(in), alpha(hasAlpha) {
        for (int y = 0; y < src.height(); ++y)
            for (int x = 0; x < src.width(); ++x) {
                const Bgra s = src.at(x, y);
                const int a = alpha ? s.a : 255;
                px.push_back(Bgra{std::uint8_t(mixByAlpha(s.b, 10, a)), std::uint8_t(mixByAlpha(s.g, 20, a)),
                                  std::uint8_t(mixByAlpha(s.r, 250, a)), std::uint8_t(a)});
            }
    }
    Bgra at(int x, int y) const { return px[std::size_t(y * src.width() + x)]; }

    // One mark whose shape entry [0][0] lies at (x0, y0); cut at the right and
    // top, nothing when (x0, y0) lies outside.
    void paint(int x0, int y0, const Shape& shape) {
        const int cols = std::min(6, src.width() - x0), rows = std::min(6, src.height() - y0);
        int count = 0, sum[3] = {0, 0, 0};
        for (int r = 0; r < rows; ++r)
            for (int c = 0; c < cols; ++c)
                if (shape[r][c]) {
                    const Bgra s = src.at(x0 + c, y0 + r);
                    ++count, sum[0] += s.b, sum[1] += s.g, sum[2] += s.r;
                }
        for (int r = 0; r < rows && count; ++r)
            for (int c = 0; c < cols; ++c) {
                Bgra& o = px[std::size_t((y0 + r) * src.width() + x0 + c)];
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

Bgra varied(int x, int y) {
    return Bgra{std::uint8_t(x * 41 + y * 7), std::uint8_t(200 - x * 9 + y * 13), std::uint8_t(x * y * 5 + 30),
                std::uint8_t(x * 60 + y * 25)};
}

}  // namespace

// Every pixel against a picture painted from the shape tables: background by
// alpha, marks displaced by two draws each from the sequence seeded with 0 (x,
// then y, also when nothing moves), shifted inward at the left and bottom, cut
// at the right and top, painted band by band, left to right, first shape then
// second, averaged from the source under non-zero weights; one row tick per band.
TEST(MeanMapEffects, MarksFollowTheShapesAndTheSequence) {
    struct Case { int w, h; std::uint16_t number, randomness; };
    const Case cases[] = {{61, 47, 0, 255}, {23, 19, 200, 100}, {7, 40, 255, 255}, {18, 7, 0, 15},
                          {7, 18, 0, 0},    {1, 35, 0, 0},      {35, 1, 255, 16}};
    int shiftedLeft = 0, shiftedDown = 0, cutRight = 0, cutTop = 0;
    for (int bits : {24, 32}) {
        for (const Case& c : cases) {
            Owned src(make(c.w, c.h, bits, varied));
            View in(src);
            const int spacing = (255 - c.number) / 16 + 2, jitter = c.randomness >> 4, span = 2 * jitter + 1;
            for (const EffectShapes& e : kEffects) {
                Expected want(in, bits == 32);
                plat::srand(0);
                long bands = 0;
                for (int y = 0; y < c.h; y += spacing, ++bands)
                    for (int x = 0; x < c.w; x += spacing)
                        for (const Shape* shape : {e.first, e.second}) {
                            const int x0 = x + jitter - plat::rand() % span, y0 = y + jitter - plat::rand() % span;
                            shiftedLeft += x0 < 0, shiftedDown += y0 < 0;
                            cutRight += x0 == c.w - 1, cutTop += y0 == c.h - 1;   // one column or row left
                            want.paint(std::max(x0, 0), std::max(y0, 0), *shape);
                        }
                const int nextDraw = plat::rand();
                const long ticks = standalone::operationCounts().rowTicks;
                Owned out(runFilter(e.effect, src, 0, c.number, c.randomness, 0, kColour));
                ASSERT_NE(out.h, nullptr);
                SCOPED_TRACE("effect " + std::to_string(e.effect) + " size " + std::to_string(c.w) + "x" +
                             std::to_string(c.h) + " bits " + std::to_string(bits));
                EXPECT_EQ(firstDifference(View(out), [&](int x, int y) { return want.at(x, y); }), "");
                EXPECT_EQ(standalone::operationCounts().rowTicks - ticks, bands);
                EXPECT_EQ(plat::rand(), nextDraw) << "two draws per mark";
            }
        }
    }
    EXPECT_TRUE(shiftedLeft && shiftedDown && cutRight && cutTop) << "the cases reach every edge";
}

TEST(MeanMapEffects, AlphaZeroKeepsTheSourceAndFullAlphaMatches24Bit) {
    auto alpha = [](int a) { return [a](int x, int y) { Bgra p = pattern(x, y); p.a = std::uint8_t(a); return p; }; };
    Owned clear(make(29, 23, 32, alpha(0))), opaque(make(29, 23, 32, alpha(255))), plain(make(29, 23, 24, pattern));
    for (const EffectShapes& e : kEffects) {
        Owned a(runFilter(e.effect, clear, 0, 230, 200, 0, kColour));
        Owned b(runFilter(e.effect, opaque, 0, 230, 200, 0, kColour));
        Owned c(runFilter(e.effect, plain, 0, 230, 200, 0, kColour));
        EXPECT_EQ(firstDifference(View(a), View(clear)), "") << e.effect;
        EXPECT_EQ(firstDifference(View(b), View(c)), "") << e.effect;
    }
}

TEST(MeanMapEffects, PaletteSourceGivesTheResultOfItsColours) {
    Owned indexed(testpic::indexed(33, 21, [](int x, int y) { return x * 7 + y * 31; }));
    Owned expanded(trueColour(indexed));
    for (const EffectShapes& e : kEffects) {
        Owned a(runFilter(e.effect, indexed, 0, 200, 255, 0, kColour));
        Owned b(runFilter(e.effect, expanded, 0, 200, 255, 0, kColour));
        ASSERT_NE(a.h, nullptr);
        EXPECT_EQ(View(a).bytes(), View(b).bytes()) << e.effect;
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
    Owned odd(withHeader(make(8, 8, 24, pattern), [](BITMAPINFOHEADER& h) { h.biBitCount = 16; }));
    EXPECT_EQ(runFilter(kPointillize, odd, 0, 128, 128), nullptr);
    EXPECT_TRUE(messages.messages.empty()) << "refused quietly";
    Owned good(make(8, 8, 24, pattern));
    EXPECT_TRUE(failsCleanly(1, [&] { return runFilter(kPointillize, good, 0, 128, 128); }));
    EXPECT_EQ(messages.messages, std::vector<std::string>{"Not enough memory to complete operation"});
}
