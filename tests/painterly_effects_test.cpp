#include <gtest/gtest.h>

#include <map>
#include <utility>

#include "engine/pixel.h"
#include "tests/colour_pictures.h"

using namespace testpic;

namespace {

constexpr unsigned kDarkStrokes = 17, kFresco = 18, kStamp = 19;
constexpr std::uint32_t kColourRef = 0x00336699;  // red 0x99, green 0x66, blue 0x33
const Bgra kPaint{0x33, 0x66, 0x99, 255}, kInverse{0xCC, 0x99, 0x66, 255};
constexpr int kAllBits[] = {8, 24, 32};

Bgra rgb(int b, int g, int r) { return Bgra{std::uint8_t(b), std::uint8_t(g), std::uint8_t(r), 255}; }

// Greys 0, 64, 128 and 192 (luminance 0, 64, 129, 193) laid out so that the
// picks of corners (third of four), sides (fourth of six) and the centre
// (sixth of nine) fall on different levels than their neighbouring positions.
Bgra pickGrid(int x, int y) {
    static const int level[3][3] = {{0, 64, 0}, {128, 192, 192}, {0, 0, 0}};
    return grey(level[y][x]);
}

// Fresco's pick as the exchange procedure itself finds it: the 3 x 3 list in
// row order from the bottom, exchanged pairwise, then quantised.
Bgra exchangePick(const View& src, int x, int y) {
    std::vector<Bgra> list;
    for (int yy = y - 1; yy <= y + 1; ++yy)
        for (int xx = x - 1; xx <= x + 1; ++xx)
            if (xx >= 0 && yy >= 0 && xx < src.width() && yy < src.height()) list.push_back(src.at(xx, yy));
    auto key = [](const Bgra& c) { return px::luminance(c.b, c.g, c.r); };
    for (std::size_t i = 1; i < list.size(); ++i)
        for (std::size_t j = 0; j < i; ++j)
            if (key(list[j]) > key(list[i])) std::swap(list[j], list[i]);
    std::size_t pick = (list.size() + 1) / 2;
    if (pick >= list.size()) pick = list.size() - 1;
    const Bgra& c = list[pick];
    return rgb(c.b & 192, c.g & 192, c.r & 192);
}

// `perKey` colours for each of `keys` luminance values, all of one key told
// apart by their top two bits, so that the order of equal keys shows.
std::vector<Bgra> tiedColours(unsigned keys, unsigned perKey) {
    std::map<int, std::vector<Bgra>> byKey;
    for (int b = 0; b < 256; b += 15)
        for (int g = 0; g < 256; g += 15)
            for (int r = 0; r < 256; r += 15) {
                std::vector<Bgra>& same = byKey[px::luminance(b, g, r)];
                const Bgra c = rgb(b, g, r);
                bool distinct = same.size() < perKey;
                for (const Bgra& o : same)
                    distinct = distinct && ((o.b ^ c.b) | (o.g ^ c.g) | (o.r ^ c.r)) & 192;
                if (distinct) same.push_back(c);
            }
    std::vector<int> usable;
    for (const auto& entry : byKey)
        if (entry.second.size() == perKey) usable.push_back(entry.first);
    std::vector<Bgra> pool;
    for (unsigned i = 0; i < keys && keys <= usable.size(); ++i) {
        const std::vector<Bgra>& same =
            byKey[usable[(i * usable.size()) / keys + usable.size() / (2 * keys)]];
        pool.insert(pool.end(), same.begin(), same.end());
    }
    return pool;
}

}  // namespace

TEST(DarkStrokes, ShiftsChannelsByTheLuminanceAwayFromGrey) {
    // A colour of luminance 127 exactly (no grey has it).
    Bgra mid{};
    for (int g = 0; g < 256 && mid.a == 0; ++g)
        for (int r = 0; r < 256; ++r)
            if (px::luminance(0, g, r) == 127) {
                mid = rgb(0, g, r);
                break;
            }
    ASSERT_EQ(mid.a, 255);
    struct Case {
        Bgra colour;
        std::uint32_t progress;
        Bgra want;
    };
    const Case cases[] = {
        {rgb(0, 0, 255), 16384, rgb(0, 0, 204)},  // L = 76: d = -51
        {rgb(0, 0, 255), 8192, rgb(0, 0, 230)},   // -25.5 truncates to -25
        {grey(100), 8192, grey(87)},              // L = 100: -13.5 -> -13
        {grey(200), 8192, grey(236)},             // L = 200: 36.5 -> 36
        {grey(200), 16384, grey(255)},            // 200 + 73 clamps
        {grey(255), 16384, grey(255)},
        {grey(0), 16384, grey(0)},
        {rgb(10, 200, 90), 0, rgb(10, 200, 90)},
        {mid, 16384, mid},
    };
    for (const Case& c : cases)
        for (int bits : kAllBits) {
            Owned src(makeColours(2, 3, bits, [&](int, int) { return c.colour; }));
            Owned out(runFilter(kDarkStrokes, src, c.progress));
            View v(out);
            EXPECT_EQ(v.at(1, 2), c.want) << bits << " bits, progress " << c.progress;
        }
}

// Every pixel against the rule written out plainly, for all depths and many progresses.
TEST(DarkStrokes, EveryPixelFollowsThePlainRule) {
    for (int bits : kAllBits)
        for (std::uint32_t progress : {0u, 1u, 4095u, 8192u, 12345u, 16383u, 16384u}) {
            // At most 240 colours, so the 8-bit form holds them all.
            Owned src(makeColours(37, 23, bits, [](int x, int y) { return pattern(x % 16, y % 15); }));
            ASSERT_NE(src.h, nullptr);
            Owned out(runFilter(kDarkStrokes, src, progress));
            View in(src), v(out);
            for (int y = 0; y < 23; ++y)
                for (int x = 0; x < 37; ++x) {
                    const Bgra s = in.at(x, y);
                    const int d = (px::luminance(s.b, s.g, s.r) - 127) * int(progress) / 16384;
                    auto shifted = [&](int c) { return std::uint8_t(px::clamp255(c + d)); };
                    Bgra want{shifted(s.b), shifted(s.g), shifted(s.r), bits == 32 ? s.a : std::uint8_t(255)};
                    if (bits == 32)
                        want = Bgra{px::alphaMix(s.b, want.b, s.a), px::alphaMix(s.g, want.g, s.a),
                                    px::alphaMix(s.r, want.r, s.a), s.a};
                    ASSERT_EQ(v.at(x, y), want) << bits << " bits, progress " << progress << " at " << x << "," << y;
                }
        }
}

TEST(Painterly, AlphaMixUsesEachPixelsOwnAlpha) {
    auto colour = [](int x, int y) {
        return Bgra{std::uint8_t(40 + 50 * x), 90, 160, std::uint8_t((x * 90 + y * 40) % 256)};
    };
    Owned src(make(3, 3, 32, colour));
    Owned opaqueSrc(make(3, 3, 24, colour));
    for (unsigned effect : {kDarkStrokes, kFresco, kStamp}) {
        Owned out(runFilter(effect, src, 16384, 0, 0, 0, kColourRef));
        Owned plain(runFilter(effect, opaqueSrc, 16384, 0, 0, 0, kColourRef));
        View v(out), p(plain);
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 3; ++x) EXPECT_EQ(v.at(x, y), alphaMixed(colour(x, y), p.at(x, y))) << effect;
    }
}

TEST(Fresco, PicksByNeighbourhoodSizeAndQuantises) {
    const int want[3][3] = {{128, 128, 192}, {64, 64, 64}, {128, 128, 192}};
    for (int bits : kAllBits) {
        Owned src(makeColours(3, 3, bits, pickGrid));
        Owned out(runFilter(kFresco, src, 16384));
        View v(out);
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 3; ++x)
                EXPECT_EQ(v.at(x, y), grey(want[y][x])) << bits << " bits at " << x << "," << y;
    }
}

TEST(Fresco, EqualKeysFollowTheExchangeOrder) {
    // A column of three: a (bottom) and b share luminance 28, c (top) is black.
    // The middle pixel's list a, b, c sorts to c, b, a; its pick (position 2) is a.
    const Bgra blue = rgb(255, 0, 0), green = rgb(0, 48, 0);
    ASSERT_EQ(px::luminance(255, 0, 0), px::luminance(0, 48, 0));
    struct Case {
        Bgra a, b;
        Bgra middle, ends;
    };
    const Case cases[] = {{blue, green, rgb(192, 0, 0), rgb(0, 0, 0)},
                          {green, blue, rgb(0, 0, 0), rgb(192, 0, 0)}};
    for (const Case& c : cases)
        for (int bits : kAllBits) {
            Owned src(makeColours(1, 3, bits, [&](int, int y) {
                return y == 0 ? c.a : y == 1 ? c.b : grey(0);
            }));
            Owned out(runFilter(kFresco, src, 16384));
            View v(out);
            EXPECT_EQ(v.at(0, 1), c.middle) << bits;
            // Two entries: position 1, here b both times (a, b stay; b, c swap).
            EXPECT_EQ(v.at(0, 0), c.ends) << bits;
            EXPECT_EQ(v.at(0, 2), c.ends) << bits;
        }
}

TEST(Fresco, TieHeavyPicturesFollowTheExchangeProcedure) {
    // Few luminance values, several colours each: most neighbourhoods hold runs
    // of equal keys, whose order after the exchanges decides the pick.
    for (unsigned keys : {1u, 2u, 4u}) {
        const std::vector<Bgra> pool = tiedColours(keys, 3);
        ASSERT_EQ(pool.size(), keys * 3);
        std::uint32_t state = 12345;
        std::vector<Bgra> pixels(23 * 19);
        for (Bgra& p : pixels) {
            state = state * 1103515245u + 12345u;
            p = pool[(state >> 16) % pool.size()];
        }
        auto colour = [&](int x, int y) { return pixels[std::size_t(y * 23 + x)]; };
        for (int bits : kAllBits) {
            Owned src(makeColours(23, 19, bits, colour));
            Owned out(runFilter(kFresco, src, 16384));
            View in(src), v(out);
            for (int y = 0; y < 19; ++y)
                for (int x = 0; x < 23; ++x)
                    ASSERT_EQ(v.at(x, y), exchangePick(in, x, y))
                        << keys << " keys, " << bits << " bits at " << x << "," << y;
        }
    }
}

TEST(Fresco, ProgressFadesFromTheSourceToTheQuantisedColour) {
    struct Case {
        std::uint32_t progress;
        Bgra want;
    };
    const Case cases[] = {
        {0, rgb(200, 100, 50)}, {8192, rgb(196, 82, 25)}, {16384, rgb(192, 64, 0)}, {4096, rgb(198, 91, 37)}};
    for (const Case& c : cases)
        for (int bits : kAllBits) {
            // One pixel: its neighbourhood is itself, and so is the pick.
            Owned src(makeColours(1, 1, bits, [](int, int) { return rgb(200, 100, 50); }));
            Owned out(runFilter(kFresco, src, c.progress));
            View v(out);
            EXPECT_EQ(v.at(0, 0), c.want) << bits << " bits, progress " << c.progress;
        }
    // At full progress every channel is one of four levels.
    Owned src(make(9, 7, 24, pattern));
    Owned out(runFilter(kFresco, src, 16384));
    View v(out);
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x) {
            const Bgra p = v.at(x, y);
            for (int ch : {p.b, p.g, p.r}) ASSERT_EQ(ch & 63, 0) << x << "," << y;
        }
}

TEST(Stamp, PickedLuminanceChoosesColourOrInverse) {
    // The pick grid: corners and top/bottom sides pick 129 or 193, the middle row 64.
    struct Case {
        std::uint32_t colour;
        Bgra dark, light;
    };
    const Case cases[] = {{0, grey(0), grey(255)}, {kColourRef, kPaint, kInverse}};
    for (const Case& c : cases)
        for (int bits : kAllBits) {
            Owned src(makeColours(3, 3, bits, pickGrid));
            Owned out(runFilter(kStamp, src, 16384, 0, 0, 0, c.colour));
            Owned still(runFilter(kStamp, src, 0, 0, 0, 0, c.colour));
            View v(out);
            for (int y = 0; y < 3; ++y)
                for (int x = 0; x < 3; ++x)
                    EXPECT_EQ(v.at(x, y), y == 1 ? c.dark : c.light) << bits << " " << x << "," << y;
            EXPECT_EQ(resultBytes(out), resultBytes(still));  // the row function ignores progress
        }
}

TEST(Painterly, NarrowAndShortPictures) {
    // Two pixels, black and white: each neighbourhood holds both, and the pick
    // (position 1) is the white one.
    for (int bits : kAllBits)
        for (const std::pair<int, int>& size : {std::make_pair(2, 1), std::make_pair(1, 2)}) {
            Owned src(makeColours(size.first, size.second, bits,
                                  [](int x, int y) { return grey(x + y ? 255 : 0); }));
            Owned fresco(runFilter(kFresco, src, 16384));
            Owned stamp(runFilter(kStamp, src, 16384));
            View f(fresco), s(stamp);
            for (int i = 0; i < 2; ++i) {
                const int x = size.first == 2 ? i : 0, y = size.first == 2 ? 0 : i;
                EXPECT_EQ(f.at(x, y), grey(192)) << bits;
                EXPECT_EQ(s.at(x, y), grey(255)) << bits;
            }
        }
    // One dark pixel: Stamp keeps the colour itself.
    Owned one(make(1, 1, 24, [](int, int) { return grey(100); }));
    Owned stamp(runFilter(kStamp, one, 16384, 0, 0, 0, kColourRef));
    EXPECT_EQ(View(stamp).at(0, 0), kPaint);
}

TEST(Painterly, FormsAgreeAndRendersRepeatExactly) {
    const std::pair<int, int> sizes[] = {{13, 11}, {1, 5}, {5, 1}, {2, 2}, {2, 5}};
    for (unsigned effect : {kDarkStrokes, kFresco, kStamp})
        for (const auto& size : sizes) {
            const FormResults r =
                renderForms(effect, size.first, size.second, opaquePattern, 10000, 0, kColourRef);
            EXPECT_TRUE(r.repeatable) << effect;
            EXPECT_EQ(r.bgr[0], r.bgr[1]) << effect << " " << size.first << "x" << size.second;
            EXPECT_EQ(r.bgr[1], r.bgr[2]) << effect << " " << size.first << "x" << size.second;
            EXPECT_TRUE(
                renderForms(effect, size.first, size.second, pattern, 10000, 0, kColourRef).repeatable)
                << effect;
        }
}

namespace {

// Fresco and Stamp written out pixel by pixel: the neighbourhood list in row
// order from the bottom, the pairwise exchanges, the pick, then the effect's
// value and the alpha mix over the source pixel.
Bgra plainPainterly(unsigned effect, const View& src, int x, int y, std::uint32_t progress,
                    std::uint32_t colourRef) {
    struct Entry {
        Bgra c;
        int key;
    };
    std::vector<Entry> list;
    for (int yy = y - 1; yy <= y + 1; ++yy)
        for (int xx = x - 1; xx <= x + 1; ++xx)
            if (xx >= 0 && yy >= 0 && xx < src.width() && yy < src.height()) {
                const Bgra c = src.at(xx, yy);
                list.push_back(Entry{c, px::luminance(c.b, c.g, c.r)});
            }
    for (std::size_t i = 1; i < list.size(); ++i)
        for (std::size_t j = 0; j < i; ++j)
            if (list[j].key > list[i].key) std::swap(list[j], list[i]);
    std::size_t pick = (list.size() + 1) / 2;
    if (pick >= list.size()) pick = list.size() - 1;
    const Entry& e = list[pick];
    const Bgra s = src.at(x, y);
    Bgra v;
    if (effect == kFresco) {
        auto fade = [&](int q, int c) {
            return std::uint8_t((std::uint32_t(q & 192) * progress + std::uint32_t(c) * (16384 - progress)) >> 14);
        };
        v = rgb(fade(e.c.b, s.b), fade(e.c.g, s.g), fade(e.c.r, s.r));
    } else {
        const Bgra paint = rgb(int(colourRef >> 16) & 255, int(colourRef >> 8) & 255, int(colourRef) & 255);
        v = e.key & 128 ? rgb(255 - paint.b, 255 - paint.g, 255 - paint.r) : paint;
    }
    return alphaMixed(s, v);
}

}  // namespace

TEST(Painterly, EveryPixelFollowsThePlainProcedure) {
    // Tie-heavy pictures (one, two or four luminance values, three colours
    // each) and a varied one; 32-bit forms carry varied alpha.
    std::vector<std::vector<Bgra>> pools;
    for (unsigned keys : {1u, 2u, 4u}) pools.push_back(tiedColours(keys, 3));
    pools.emplace_back();  // the varied pattern
    const std::pair<int, int> sizes[] = {{1, 1}, {2, 1}, {1, 2}, {2, 2}, {3, 3}, {1, 7},
                                         {7, 1}, {4, 5}, {37, 23}, {300, 4}};
    const std::uint32_t progresses[] = {0, 1000, 9999, 16384};
    for (unsigned effect : {kFresco, kStamp})
        for (std::size_t poolIndex = 0; poolIndex < pools.size(); ++poolIndex) {
            const std::vector<Bgra>& pool = pools[poolIndex];
            auto colour = [&](int x, int y) {
                Bgra c = pattern(x % 16, y % 15);
                if (!pool.empty()) {
                    const std::uint32_t h = std::uint32_t(x * 7919 + y * 104729) * 2654435761u;
                    c = pool[(h >> 16) % pool.size()];
                }
                c.a = std::uint8_t(x * 29 + y * 53);
                return c;
            };
            for (const auto& size : sizes)
                for (int bits : kAllBits) {
                    Owned src(makeColours(size.first, size.second, bits, colour));
                    ASSERT_NE(src.h, nullptr);
                    View in(src);
                    for (std::uint32_t progress : progresses) {
                        if (effect == kStamp && progress != 16384 && progress != 1000) continue;
                        for (std::uint32_t paint : {0u, kColourRef}) {
                            Owned out(runFilter(effect, src, progress, 0, 0, 0, paint));
                            ASSERT_NE(out.h, nullptr);
                            View v(out);
                            for (int y = 0; y < size.second; ++y)
                                for (int x = 0; x < size.first; ++x)
                                    ASSERT_EQ(v.at(x, y), plainPainterly(effect, in, x, y, progress, paint))
                                        << effect << " pool " << poolIndex << " " << size.first << "x"
                                        << size.second << " " << bits << " bits, progress " << progress
                                        << " at " << x << "," << y;
                        }
                    }
                }
        }
}
