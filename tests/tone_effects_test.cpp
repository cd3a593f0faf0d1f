#include <gtest/gtest.h>

#include "engine/pixel.h"
#include "tests/picture_support.h"

using namespace testpic;

namespace {
constexpr unsigned kSolarize = 11, kPosterize = 32, kLensFlare = 8;
}

TEST(ToneEffects, SolarizeThresholdFollowsProgress) {
    // white L=253, black L=0, and pixels of luminance 128 and 127.
    const Bgra white{255, 255, 255, 255}, black{0, 0, 0, 255};
    Owned src(make(4, 1, 24, [&](int x, int) {
        switch (x) {
        case 0: return white;
        case 1: return black;
        case 2: return Bgra{0, 0, 255, 255};   // L(0,0,255) = 76
        default: return Bgra{128, 128, 128, 255};
        }
    }));
    struct Case { std::uint32_t progress; bool whiteInverted, blackInverted, redInverted; };
    const Case cases[] = {{0, false, false, false},   {128, false, false, false}, {129, true, false, false},
                          {16384, true, true, true},  {16383, true, false, true}};
    for (const Case& c : cases) {
        Owned out(runFilter(kSolarize, src, c.progress));
        ASSERT_NE(out.h, nullptr);
        View v(out);
        EXPECT_EQ(v.at(0, 0).b, c.whiteInverted ? 0 : 255) << c.progress;
        EXPECT_EQ(v.at(1, 0).b, c.blackInverted ? 255 : 0) << c.progress;
        EXPECT_EQ(v.at(2, 0).r, c.redInverted ? 0 : 255) << c.progress;
    }
}

TEST(ToneEffects, SolarizeAtHalfProgressSplitsAt128) {
    // Find colours whose luminance is exactly 127 and 128 (no grey has 127).
    Bgra c127{}, c128{};
    bool found127 = false, found128 = false;
    for (int g = 0; g < 256; ++g)
        for (int r = 0; r < 256; ++r) {
            const int l = px::luminance(0, g, r);
            if (l == 127 && !found127) c127 = Bgra{0, std::uint8_t(g), std::uint8_t(r), 255}, found127 = true;
            if (l == 128 && !found128) c128 = Bgra{0, std::uint8_t(g), std::uint8_t(r), 255}, found128 = true;
        }
    ASSERT_TRUE(found127 && found128);
    Owned src(make(2, 1, 24, [&](int x, int) { return x ? c128 : c127; }));
    Owned out(runFilter(kSolarize, src, 8192));
    View v(out);
    EXPECT_EQ(v.at(0, 0), c127);
    EXPECT_EQ(v.at(1, 0), (Bgra{255, std::uint8_t(255 - c128.g), std::uint8_t(255 - c128.r), 255}));
}

TEST(ToneEffects, PosterizeLevels) {
    Owned src(make(256, 1, 24, [](int x, int) {
        const auto v = std::uint8_t(x);
        return Bgra{v, std::uint8_t(255 - x), v, 255};
    }));
    struct Case { std::uint16_t p1; unsigned levels; };
    for (const Case c : {Case{0, 1}, Case{15, 1}, Case{128, 9}, Case{255, 16}}) {
        Owned out(runFilter(kPosterize, src, 16384, c.p1));
        View v(out);
        for (int ch = 0; ch < 256; ++ch) {
            const unsigned want = (unsigned(ch) * c.levels / 255) * 255 / c.levels;
            ASSERT_EQ(v.at(ch, 0).b, want) << "p1 " << c.p1 << " channel " << ch;
        }
    }
    // The default nine levels, as a user sees them.
    Owned out(runFilter(kPosterize, src, 16384, 128));
    View v(out);
    EXPECT_EQ(v.at(254, 0).b, 226);
    EXPECT_EQ(v.at(255, 0).b, 255);
    EXPECT_EQ(v.at(85, 0).b, 85);
    EXPECT_EQ(v.at(84, 0).b, 56);
}

TEST(ToneEffects, AlphaMixOn32BitPictures) {
    // alpha 0 keeps the source, 255 gives the effect value, 100 mixes with truncation.
    const std::uint8_t alphas[] = {0, 255, 100};
    Owned src(make(3, 2, 32, [&](int x, int) { return Bgra{200, 10, 60, alphas[x]}; }));
    Owned sol(runFilter(kSolarize, src, 16384));
    Owned post(runFilter(kPosterize, src, 16384, 0));
    View s(sol), p(post);
    EXPECT_EQ(s.header().biBitCount, 32);
    EXPECT_EQ(s.at(0, 1), (Bgra{200, 10, 60, 0}));
    EXPECT_EQ(s.at(1, 1), (Bgra{55, 245, 195, 255}));
    EXPECT_EQ(s.at(2, 1), (Bgra{std::uint8_t((200 * 155 + 55 * 100) / 255), std::uint8_t((10 * 155 + 245 * 100) / 255),
                                std::uint8_t((60 * 155 + 195 * 100) / 255), 100}));
    EXPECT_EQ(p.at(0, 0), (Bgra{200, 10, 60, 0}));
    EXPECT_EQ(p.at(1, 0), (Bgra{0, 0, 0, 255}));
    EXPECT_EQ(p.at(2, 0), (Bgra{std::uint8_t(200 * 155 / 255), std::uint8_t(10 * 155 / 255), std::uint8_t(60 * 155 / 255), 100}));
}

TEST(ToneEffects, PaletteSourcesReadThroughTheTable) {
    const auto table = palette256();
    Owned src(make(5, 3, 8, [](int x, int y) { return Bgra{std::uint8_t(x * 50 + y), 0, 0, 0}; }, table));
    Owned out(runFilter(kSolarize, src, 16384));
    View v(out);
    EXPECT_EQ(v.header().biBitCount, 24);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x) {
            const Bgra& e = table[std::size_t(x * 50 + y)];
            EXPECT_EQ(v.at(x, y), (Bgra{std::uint8_t(255 - e.b), std::uint8_t(255 - e.g), std::uint8_t(255 - e.r), 255}));
        }
}

TEST(ToneEffects, LensFlareZoomsAboutTheCentre) {
    Owned src24(make(9, 7, 24, pattern));
    Owned src32(make(9, 7, 32, pattern));
    for (HGLOBAL src : {src24.h, src32.h}) {
        View in(src);
        Owned copy(runFilter(kLensFlare, src, 0));
        Owned centre(runFilter(kLensFlare, src, 100));
        Owned mirror(runFilter(kLensFlare, src, 200));
        View c(copy), m(centre), r(mirror);
        for (int y = 0; y < 7; ++y)
            for (int x = 0; x < 9; ++x) {
                EXPECT_EQ(c.at(x, y), in.at(x, y));
                EXPECT_EQ(m.at(x, y), in.at(4, 3));
                EXPECT_EQ(r.at(x, y), in.at(8 - x, 6 - y));   // mirrored through (4, 3)
            }
    }
    // The palette form writes nothing: rows stay zero.
    Owned src8(make(3, 2, 8, [](int, int) { return Bgra{1, 0, 0, 0}; }, palette256()));
    Owned out(runFilter(kLensFlare, src8, 16384));
    View v(out);
    EXPECT_EQ(v.at(2, 1), (Bgra{0, 0, 0, 255}));
}
