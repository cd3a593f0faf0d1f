#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <set>
#include <utility>
#include <vector>

#include "effects/rows/row_effects.h"
#include "engine/pixel.h"
#include "platform/random.h"
#include "tests/picture_support.h"

using namespace testpic;

namespace {
constexpr unsigned kShake = 14, kFrazzle = 23, kReflection = 30, kKaleidoscope = 37;

// The generator rule written out on its own: results after seeding with 0.
struct Draws {
    std::uint32_t state = 0;
    int next() {
        state = state * 214013u + 2531011u;
        return int((state >> 16) & 0x7FFF);
    }
    int nth(unsigned n) {   // the n-th result (1-based) after the seed
        *this = Draws{};
        int r = 0;
        for (unsigned i = 0; i < n; ++i) r = next();
        return r;
    }
};

// Pixels that name their own place: blue = x, green = y.
Bgra coords(int x, int y) {
    return Bgra{std::uint8_t(x), std::uint8_t(y), std::uint8_t(x * 7 + y * 13 + 1), 255};
}

void expectSamePixels(const View& a, const View& b, const char* what) {
    ASSERT_EQ(a.width(), b.width());
    ASSERT_EQ(a.height(), b.height());
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x) ASSERT_EQ(a.at(x, y), b.at(x, y)) << what << " at " << x << "," << y;
}

Bgra average(const Bgra& p, const Bgra& q) {
    return Bgra{std::uint8_t((p.b + q.b) / 2), std::uint8_t((p.g + q.g) / 2), std::uint8_t((p.r + q.r) / 2),
                std::uint8_t((p.a + q.a) / 2)};
}

// Reflection's rows: the wave offset after each row of a render, from seed 0.
std::vector<int> waveOffsets(int height, int p1) {
    Draws d;
    const int a = p1 >> 4;
    std::vector<int> w(std::size_t(height) + 1, 0);   // w[y + 1] is the offset after row y
    for (int y = 0; y < height; ++y) w[std::size_t(y) + 1] = w[std::size_t(y)] + a - d.next() % (2 * a + 1);
    return w;
}

// Pixel x of row y after Reflection's passes with shifts s0 and s1.
Bgra reflected(const View& in, int y, int x, int s0, int s1) {
    const int w = in.width();
    if (s1 > 0 && x <= s1) return in.at(0, y);
    if (s1 < 0 && x >= w + s1) return in.at(w - 1, y);
    return average(in.at(std::min(w - 1, std::max(0, x - s0)), y), in.at(x - s1, y));
}
}  // namespace

TEST(DisplacementEffects, UnchangedAtProgressZeroOrTooLittleAmount) {
    struct Case { unsigned effect; std::uint32_t progress; std::uint16_t p1, p2; };
    const Case cases[] = {{kShake, 0, 0, 255},      {kShake, 16384, 64, 7},   {kShake, 1023, 0, 128},
                          {kFrazzle, 0, 0, 0},      {kReflection, 0, 255, 0}, {kReflection, 16384, 15, 0},
                          {kKaleidoscope, 0, 0, 0}};
    const int sizes[][2] = {{7, 5}, {1, 1}, {1, 6}, {6, 1}};
    for (int bits : {24, 32})
        for (const auto& size : sizes) {
            Owned src(make(size[0], size[1], bits, pattern));
            View in(src);
            for (const Case& c : cases) {
                Owned out(runFilter(c.effect, src, c.progress, c.p1, c.p2));
                ASSERT_NE(out.h, nullptr);
                expectSamePixels(View(out), in, "unchanged");
            }
        }
}

TEST(Shake, WalksAlongTheAngleAndFoldsEachSample) {
    Owned src(make(6, 6, 24, pattern));
    View in(src);
    using Samples = std::vector<std::pair<int, int>>;
    struct Case { std::uint16_t angle, amount; std::uint32_t progress; int x, y; Samples samples; };
    const Case cases[] = {
        {0, 32, 16384, 2, 1, {{2, 2}, {2, 3}, {2, 4}, {2, 5}}},            // up
        {0, 32, 16384, 2, 4, {{2, 5}, {2, 5}, {2, 5}, {2, 5}}},            // held at the top row
        {0, 128, 8192, 0, 0, {{0, 1}, {0, 2}, {0, 3}, {0, 4}, {0, 5}, {0, 5}, {0, 5}, {0, 5}}},
        {32, 32, 16384, 1, 1, {{1, 2}, {2, 2}, {2, 3}, {3, 3}}},           // up first, then right
        {64, 32, 16384, 1, 1, {{2, 1}, {3, 1}, {4, 1}, {5, 1}}},           // right
        {96, 32, 16384, 2, 3, {{3, 3}, {3, 2}, {4, 2}, {4, 1}}},           // right first, then down
        {128, 32, 16384, 3, 4, {{3, 4}, {3, 3}, {3, 2}, {3, 1}}},          // the first step stays put
        {192, 32, 16384, 4, 1, {{4, 1}, {3, 1}, {2, 1}, {1, 1}}},          // left
        {192, 32, 16384, 1, 3, {{1, 3}, {0, 3}, {0, 3}, {0, 3}}},          // held at column 0
    };
    for (const Case& c : cases) {
        Owned out(runFilter(kShake, src, c.progress, c.angle, c.amount));
        const Bgra s = in.at(c.x, c.y);
        unsigned a[3] = {s.b, s.g, s.r};
        for (const auto& p : c.samples) {
            const Bgra q = in.at(p.first, p.second);
            const unsigned v[3] = {q.b, q.g, q.r};
            for (int i = 0; i < 3; ++i) a[i] = (v[i] + 7 * a[i]) / 8;
        }
        const unsigned l = unsigned(px::luminance(int(a[0]), int(a[1]), int(a[2])));
        const Bgra want{std::uint8_t((s.b * l + a[0] * (255 - l)) / 255), std::uint8_t((s.g * l + a[1] * (255 - l)) / 255),
                        std::uint8_t((s.r * l + a[2] * (255 - l)) / 255), 255};
        EXPECT_EQ(View(out).at(c.x, c.y), want) << "angle " << c.angle << " at " << c.x << "," << c.y;
    }
    // Black under white, one step up: the fold gives 31, luminance 27, so 31 * 228 / 255.
    Owned bw(make(1, 2, 24, [](int, int y) { return y ? Bgra{255, 255, 255, 255} : Bgra{0, 0, 0, 255}; }));
    Owned out(runFilter(kShake, bw, 16384, 0, 8));
    EXPECT_EQ(View(out).at(0, 0), (Bgra{27, 27, 27, 255}));
    EXPECT_EQ(View(out).at(0, 1), (Bgra{255, 255, 255, 255}));
}

TEST(Frazzle, TwoDrawsPerPixelFromSeedZero) {
    const int w = 10, h = 7;
    Owned src(make(w, h, 24, coords));
    struct Pixel { int x, y; };
    // (4,0), (3,1) and (6,1) have negative offsets that 8191 leaves fractional.
    const Pixel pixels[] = {{0, 0}, {4, 0}, {3, 1}, {6, 1}, {9, 1}, {5, 2}, {9, 6}};
    Draws d;
    for (std::uint32_t progress : {16384u, 8191u, 3000u}) {
        plat::srand(99), plat::rand();   // whatever came before, each render starts afresh
        Owned out(runFilter(kFrazzle, src, progress));
        View v(out);
        for (const Pixel& p : pixels) {
            const unsigned first = 2u * unsigned(p.y * w + p.x) + 1;
            const int dx = d.nth(first) % w - w / 2, dy = d.nth(first + 1) % h - h / 2;
            const int xs = std::min(w - 1, std::max(0, p.x + int(progress) * dx / 16384));
            const int ys = std::min(h - 1, std::max(0, p.y + int(progress) * dy / 16384));
            EXPECT_EQ(v.at(p.x, p.y), coords(xs, ys)) << progress << " at " << p.x << "," << p.y;
        }
    }
    // Full progress on a picture 10 wide: column 5 is never clamped and meets every offset -5 .. 4.
    Owned tall(make(10, 200, 24, coords));
    Owned out(runFilter(kFrazzle, tall, 16384));
    View v(out);
    std::set<int> offsets;
    for (int y = 0; y < 200; ++y) offsets.insert(v.at(5, y).b - 5);
    EXPECT_EQ(offsets, (std::set<int>{-5, -4, -3, -2, -1, 0, 1, 2, 3, 4}));
}

TEST(Frazzle, RowsRepeatAcrossRendersAndHeights) {
    // Colours that depend on the column only, so a picture of half the height
    // (whose vertical offsets differ) must give the same bottom rows.
    auto columns = [](int x, int) { return pattern(x, 0); };
    Owned full(make(9, 8, 24, columns)), half(make(9, 4, 24, columns));
    Owned a(runFilter(kFrazzle, full, 16384));
    plat::rand();
    Owned b(runFilter(kFrazzle, full, 16384));
    Owned c(runFilter(kFrazzle, half, 16384));
    expectSamePixels(View(a), View(b), "second render");
    View va(a), vc(c);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 9; ++x) ASSERT_EQ(va.at(x, y), vc.at(x, y)) << x << "," << y;
}

TEST(Reflection, ShiftsEndPixelsAndAverages) {
    // Row 1 of a render, called directly: the wave offset o0 before the row and
    // the draw after seed 0 (38) give offset o0 + a - 38 % (2a + 1).
    const int w = 6;
    std::vector<Bgra> pixels(w);
    for (int i = 0; i < w; ++i)
        pixels[std::size_t(i)] = Bgra{std::uint8_t(10 + 37 * i), std::uint8_t(200 - 29 * i), std::uint8_t(7 + 51 * i),
                                  std::uint8_t(3 + 41 * i)};
    struct Case { std::uint16_t p1; std::int32_t before; std::uint32_t progress; std::vector<std::pair<int, int>> want; };
    const Case cases[] = {
        {0, 2, 16384, {{0, 0}, {0, 0}, {0, 0}, {1, 1}, {2, 2}, {3, 3}}},
        {128, -2, 16384, {{0, 0}, {0, 0}, {0, 0}, {3, 1}, {4, 2}, {5, 3}}},   // offsets -2 -> 2: passes 0 and 2
        {128, -6, 16384, {{4, 2}, {5, 3}, {5, 4}, {5, 5}, {5, 5}, {5, 5}}},   // -6 -> -2: passes -4 and -2
        {0, -3, 8192, {{1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}, {5, 5}}},      // -1.5 truncates to -1
        {16, -1, 16384, {{1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 5}, {5, 5}}},    // -1 -> -2: (-3) / 2 is -1
        {0, 5, 16384, {{0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}}},
        {0, 6, 16384, {{0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}}},
        {0, -5, 16384, {{5, 5}, {5, 5}, {5, 5}, {5, 5}, {5, 5}, {5, 5}}},
        {0, -1000, 16384, {{5, 5}, {5, 5}, {5, 5}, {5, 5}, {5, 5}, {5, 5}}},
        // 262147 x 16384 wraps to 49152 in 32 bits, a shift of 3; exact, it passes the row.
        {0, 262147, 16384, {{0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}}},
        {0, -262147, 16384, {{5, 5}, {5, 5}, {5, 5}, {5, 5}, {5, 5}, {5, 5}}},
    };
    std::vector<std::uint8_t> table(1024, 0), indices(w), row24(3 * w), row32(4 * w);
    for (int i = 0; i < w; ++i) {
        const Bgra& p = pixels[std::size_t(i)];
        const std::uint8_t b[4] = {p.b, p.g, p.r, p.a};
        for (int k = 0; k < 4; ++k) row32[std::size_t(4 * i + k)] = b[k];
        for (int k = 0; k < 3; ++k) row24[std::size_t(3 * i + k)] = table[std::size_t(4 * (50 + i) + k)] = b[k];
        indices[std::size_t(i)] = std::uint8_t(50 + i);
    }
    for (const Case& c : cases)
        for (int form = 0; form < 3; ++form) {   // palette, 24-bit, 32-bit
            const std::uint8_t* rows[2] = {nullptr, form == 0 ? indices.data() : form == 1 ? row24.data() : row32.data()};
            const int slot = form == 0 ? 0 : 1;
            std::vector<std::uint8_t> out(4 * w, 0);
            RenderState& rs = renderState();
            publishRenderValues(c.p1, 0, 0, 0);
            rs.waveOffset[slot] = c.before;
            rs.waveOffset[1 - slot] = 77;
            plat::srand(0);
            if (form == 0)
                ReflectionLine1(1, c.progress, w, 2, rows, out.data(), table.data());
            else
                ReflectionLine2(1, c.progress, w, 2, rows, out.data(), form == 2 ? 1 : 0);
            const int a = c.p1 >> 4;
            EXPECT_EQ(rs.waveOffset[slot], c.before + a - 38 % (2 * a + 1));
            EXPECT_EQ(rs.waveOffset[1 - slot], 77) << "the other slot keeps its offset";
            const unsigned bytes = form == 2 ? 4 : 3;
            for (int x = 0; x < w; ++x) {
                const auto& pair = c.want[std::size_t(x)];
                const Bgra e = average(pixels[std::size_t(pair.first)], pixels[std::size_t(pair.second)]);
                const std::uint8_t* o = out.data() + bytes * unsigned(x);
                const Bgra got{o[0], o[1], o[2], bytes == 4 ? o[3] : e.a};
                EXPECT_EQ(got, e) << "offset " << c.before << " form " << form << " x " << x;
            }
        }
}

TEST(Reflection, RendersFollowTheDrawsRowByRow) {
    const int w = 7, h = 30;
    Owned src(make(w, h, 24, pattern)), bottom(make(w, 12, 24, pattern));
    Owned a(runFilter(kReflection, src, 16384, 255));
    plat::rand();
    Owned b(runFilter(kReflection, src, 16384, 255));
    Owned c(runFilter(kReflection, bottom, 16384, 255));
    expectSamePixels(View(a), View(b), "second render");
    View va(a), vc(c), in(src);
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < w; ++x) ASSERT_EQ(va.at(x, y), vc.at(x, y)) << x << "," << y;

    // Rows 0, 1 and the top row from the draws: pixel 3 averages the two passes.
    const std::vector<int> wave = waveOffsets(h, 255);
    for (int y : {0, 1, h - 1}) {
        const int prev = wave[std::size_t(y)], now = wave[std::size_t(y) + 1];
        const int s0 = (prev + now) / 2, s1 = now;
        for (int x = 0; x < w; ++x)
            EXPECT_EQ(va.at(x, y), reflected(in, y, x, s0, s1)) << "row " << y << " x " << x << " shifts " << s0 << "," << s1;
    }

    // No amount: the picture stays, yet every row still takes its draw.
    Owned still(runFilter(kReflection, src, 16384, 15));
    expectSamePixels(View(still), in, "amount 15");
    EXPECT_EQ(plat::rand(), Draws{}.nth(h + 1));
}

TEST(Reflection, TallPictureAtFullAmount) {
    const int w = 2, h = 60000;
    Owned src(make(w, h, 24, [](int x, int y) {
        return Bgra{std::uint8_t(x ? 200 : 11), std::uint8_t(y), std::uint8_t(y >> 8), 255};
    }));
    Owned out(runFilter(kReflection, src, 16384, 255));
    ASSERT_NE(out.h, nullptr);
    View v(out), in(src);
    const std::vector<int> wave = waveOffsets(h, 255);
    int checked = 0;
    for (int y = 0; y < h; y += 997) {
        const int prev = wave[std::size_t(y)], now = wave[std::size_t(y) + 1];
        for (int x = 0; x < w; ++x, ++checked)
            ASSERT_EQ(v.at(x, y), reflected(in, y, x, (prev + now) / 2, now)) << "row " << y;
    }
    EXPECT_GT(checked, 100);
}

TEST(Kaleidoscope, FoldsAndDiagonalReflection) {
    struct Case { int w, h; std::uint32_t progress; int x, y, fromX, fromY; };
    const Case cases[] = {
        {5, 5, 16384, 2, 0, 0, 2}, {5, 5, 16384, 1, 3, 1, 1},
        {5, 5, 5000, 2, 0, 1, 1},   // from (2,0) toward (0,2): -1.39 truncates to -1
        {4, 4, 16384, 0, 0, 0, 0}, {4, 4, 16384, 1, 0, 0, 1}, {4, 4, 16384, 2, 0, 0, 2},
        {4, 4, 16384, 3, 0, 0, 0},   // width 4 folds columns 0 1 2 3 to 0 1 2 0
        {5, 1, 16384, 3, 0, 0, 0}, {5, 1, 8192, 3, 0, 1, 0},   // one row high: column 0
        // 20 x 3, row 1: k = 6; column 7 reflects to (9, 0), and at 5000 moves
        // from x = 7 toward 9 by 1.39, truncated to 1.
        {20, 3, 16384, 6, 1, 6, 1}, {20, 3, 16384, 7, 1, 9, 0}, {20, 3, 5000, 7, 1, 8, 0},
    };
    for (const Case& c : cases) {
        Owned src(make(c.w, c.h, 24, coords));
        Owned out(runFilter(kKaleidoscope, src, c.progress));
        EXPECT_EQ(View(out).at(c.x, c.y), coords(c.fromX, c.fromY))
            << c.w << "x" << c.h << " at " << c.x << "," << c.y << " progress " << c.progress;
    }
    // Odd sizes at full progress: mirror images about the middle column and row.
    Owned src(make(7, 5, 24, pattern));
    Owned out(runFilter(kKaleidoscope, src, 16384));
    View v(out);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 7; ++x) {
            EXPECT_EQ(v.at(x, y), v.at(6 - x, y));
            EXPECT_EQ(v.at(x, y), v.at(x, 4 - y));
        }
}

TEST(Kaleidoscope, StaysInsideOnEverySize) {
    for (int w = 1; w <= 9; ++w)
        for (int h = 1; h <= 9; ++h) {
            Owned src(make(w, h, 24, coords));
            for (std::uint32_t progress : {5000u, 8192u, 16384u}) {
                Owned out(runFilter(kKaleidoscope, src, progress));
                View v(out);
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x) {
                        const Bgra p = v.at(x, y);
                        ASSERT_TRUE(p.b < w && p.g < h && p == coords(p.b, p.g))
                            << w << "x" << h << " at " << x << "," << y << " progress " << progress;
                    }
            }
        }
}

TEST(DisplacementEffects, AlphaRules) {
    const std::uint8_t alphas[] = {0, 255, 100, 37};
    auto withAlpha = [&](int x, int y) {
        Bgra p = coords(x, y);
        p.a = alphas[(x + 2 * y) % 4];
        return p;
    };
    auto alphaAsBlue = [&](int x, int y) { return Bgra{withAlpha(x, y).a, 0, 0, 255}; };
    Owned src24(make(7, 6, 24, coords)), src32(make(7, 6, 32, withAlpha)), alpha24(make(7, 6, 24, alphaAsBlue));
    View in(src32);
    struct Case { unsigned effect; std::uint16_t p1, p2; std::uint32_t progress; };
    for (const Case c : {Case{kShake, 32, 255, 16384}, Case{kFrazzle, 0, 0, 12000},
                         Case{kKaleidoscope, 0, 0, 12000}, Case{kReflection, 255, 0, 16384}}) {
        Owned o24(runFilter(c.effect, src24, c.progress, c.p1, c.p2));
        Owned o32(runFilter(c.effect, src32, c.progress, c.p1, c.p2));
        Owned oAlpha(runFilter(c.effect, alpha24, c.progress, c.p1, c.p2));
        View v24(o24), v32(o32), va(oAlpha);
        for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 7; ++x) {
                const Bgra s = in.at(x, y), v = v24.at(x, y);
                Bgra want;
                if (c.effect == kReflection) {   // alpha moves and averages like a colour byte
                    want = Bgra{v.b, v.g, v.r, va.at(x, y).b};
                } else {
                    // Frazzle takes the displaced pixel's alpha, the others their own.
                    const unsigned a = c.effect == kFrazzle ? in.at(v.b, v.g).a : s.a;
                    want = Bgra{px::alphaMix(s.b, v.b, a), px::alphaMix(s.g, v.g, a), px::alphaMix(s.r, v.r, a),
                                std::uint8_t(a)};
                }
                ASSERT_EQ(v32.at(x, y), want) << "effect " << c.effect << " at " << x << "," << y;
            }
    }
}

TEST(DisplacementEffects, PaletteSourcesMatchTheirColours) {
    const auto table = palette256();
    auto index = [](int x, int y) { return std::uint8_t(x * 31 + y * 17); };
    Owned src8(make(9, 7, 8, [&](int x, int y) { return Bgra{index(x, y), 0, 0, 0}; }, table));
    Owned src24(make(9, 7, 24, [&](int x, int y) { return table[index(x, y)]; }));
    struct Case { unsigned effect; std::uint16_t p1, p2; std::uint32_t progress; };
    for (const Case c : {Case{kShake, 96, 200, 12000}, Case{kFrazzle, 0, 0, 12000},
                         Case{kReflection, 255, 0, 16384}, Case{kKaleidoscope, 0, 0, 12000}}) {
        Owned a(runFilter(c.effect, src8, c.progress, c.p1, c.p2));
        Owned b(runFilter(c.effect, src24, c.progress, c.p1, c.p2));
        expectSamePixels(View(a), View(b), "palette");
    }
}

TEST(DisplacementEffects, LargestPictureRows) {
    // One row of a 65535 x 65535 picture: every row-table entry points at the
    // same row, whose pixels name their column in blue and green.
    const unsigned n = 65535;
    std::vector<std::uint8_t> row(3 * n), out(3 * n);
    for (unsigned x = 0; x < n; ++x) row[3 * x] = std::uint8_t(x), row[3 * x + 1] = std::uint8_t(x >> 8);
    const std::vector<const std::uint8_t*> rows(n, row.data());
    auto column = [&](unsigned x) { return out[3 * x] | out[3 * x + 1] << 8; };

    FrazzleLine2(0, 16384, n, n, rows.data(), out.data(), 0);
    Draws d;
    for (unsigned x : {0u, 1u, 30000u, 65534u}) {
        const int dx = d.nth(2 * x + 1) % int(n) - int(n / 2);
        EXPECT_EQ(column(x), std::min(int(n) - 1, std::max(0, int(x) + dx))) << "Frazzle " << x;
    }

    // Row 40000 folds to 25534; columns past it reflect to column 25534 x 65534 / 65534.
    struct Case { std::uint32_t progress; unsigned x; int from; };
    const Case cases[] = {{16384, 100, 100},    {16384, 30000, 25534}, {16384, 40000, 25534},
                          {16384, 65534, 0},    {5000, 30000, 25534 + 4466 * 11384 / 16384},
                          {5000, 65534, 65534 * 11384 / 16384}};
    for (const Case& c : cases) {
        KaleidoscopeLine2(40000, c.progress, n, n, rows.data(), out.data(), 0);
        EXPECT_EQ(column(c.x), c.from) << "Kaleidoscope " << c.x << " progress " << c.progress;
    }
}

namespace {

// Shake at (x, y) written out step by step: the walk clamped after every step,
// each sample folded in, then the luminance blend and the alpha mix.
Bgra plainShake(const View& src, int x, int y, std::uint32_t progress, int angle, int amount) {
    const double t = (angle * 0.00392156862745098) * 6.2831853071958;
    const int vx = int(15.0 * std::sin(t)), vy = int(15.0 * std::cos(t));
    const int sx = (vx > 0) - (vx < 0), sy = (vy > 0) - (vy < 0), mx = std::abs(vx), my = std::abs(vy);
    const unsigned n = ((unsigned(amount) >> 3) * progress) >> 14;
    const int w = src.width(), h = src.height();
    const Bgra s = src.at(x, y);
    unsigned a[3] = {s.b, s.g, s.r};
    int px = x, py = y, ex = sx, ey = sy;
    for (unsigned k = 0; k < n; ++k) {
        if (ey < ex) {
            px += sx;
            ey += my;
        } else {
            py += sy;
            ex += mx;
        }
        px = px < 0 ? 0 : px >= w ? w - 1 : px;
        py = py < 0 ? 0 : py >= h ? h - 1 : py;
        const Bgra q = src.at(px, py);
        const unsigned v[3] = {q.b, q.g, q.r};
        for (int i = 0; i < 3; ++i) a[i] = (v[i] + 7 * a[i]) / 8;
    }
    const unsigned l = unsigned(px::luminance(int(a[0]), int(a[1]), int(a[2])));
    const unsigned own[3] = {s.b, s.g, s.r};
    std::uint8_t out[3];
    for (int i = 0; i < 3; ++i) out[i] = std::uint8_t((own[i] * l + a[i] * (255 - l)) / 255);
    const unsigned al = s.a;
    auto mix = [&](unsigned sc, unsigned vc) { return std::uint8_t((sc * (255 - al) + vc * al) / 255); };
    return Bgra{mix(s.b, out[0]), mix(s.g, out[1]), mix(s.r, out[2]), s.a};
}

}  // namespace

TEST(Shake, EveryPixelFollowsThePlainWalk) {
    const std::pair<int, int> sizes[] = {{1, 1}, {2, 1}, {1, 2}, {3, 2}, {1, 9}, {9, 1}, {37, 23}, {70, 40}};
    const int angles[] = {0, 1, 3, 32, 64, 96, 128, 160, 192, 224, 255};
    const int amounts[] = {0, 7, 8, 128, 255};
    const std::uint32_t progresses[] = {0, 1000, 16384};
    // Varied alpha at 32 bits; 8-bit forms read 240 distinct colours from their table.
    auto colour = [](int x, int y) {
        Bgra c = pattern(x % 16, y % 15);
        c.a = std::uint8_t(x * 29 + y * 53);
        return c;
    };
    for (const auto& size : sizes)
        for (int bits : {8, 24, 32}) {
            Owned src(bits == 8 ? make(size.first, size.second, 8,
                                       [](int x, int y) { return Bgra{std::uint8_t(x * 31 + y * 17), 0, 0, 0}; },
                                       palette256())
                                : make(size.first, size.second, bits, colour));
            View in(src);
            for (int angle : angles)
                for (int amount : amounts)
                    for (std::uint32_t progress : progresses) {
                        Owned out(runFilter(kShake, src, progress, std::uint16_t(angle), std::uint16_t(amount)));
                        ASSERT_NE(out.h, nullptr);
                        View v(out);
                        for (int y = 0; y < size.second; ++y)
                            for (int x = 0; x < size.first; ++x)
                                ASSERT_EQ(v.at(x, y), plainShake(in, x, y, progress, angle, amount))
                                    << size.first << "x" << size.second << " " << bits << " bits, angle " << angle
                                    << ", amount " << amount << ", progress " << progress << " at " << x << ","
                                    << y;
                    }
        }
}
