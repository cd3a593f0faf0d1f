#include <gtest/gtest.h>

#include <vector>

#include "standalone/host_context.h"
#include "tests/picture_support.h"

using namespace testpic;

namespace {

constexpr unsigned kTiles = 12, kBricks = 15, kBumps = 16, kSteelPlate = 24, kWeave = 25;

// Offsets [row][column]; row 0 lies on the lowest picture row.
const std::vector<std::vector<int>> kTilesTexture = {
    {0, -255, -255, -255, -255, -255, -255, -255}, {-255, 92, 92, 92, 92, 92, 92, 0},
    {-255, 92, 32, 0, 0, 0, 0, -92},               {-255, 92, 32, 0, 0, 0, -32, -92},
    {-255, 92, 32, 0, 0, 0, -32, -92},             {-255, 92, 32, 0, 0, 0, -32, -92},
    {-255, 92, 0, -32, -32, -32, -32, -92},        {-255, 0, -92, -92, -92, -92, -92, -92}};
const std::vector<std::vector<int>> kBricksTexture = {
    {-255, -255, -255, -255, -255, -255, -255, -255}, {-255, 0, 0, 0, 0, 0, 0, 0},
    {-255, 0, 0, 0, 0, 0, 0, 0},                      {-255, 0, 0, 0, 0, 0, 0, 0},
    {-255, -255, -255, -255, -255, -255, -255, -255}, {0, 0, 0, 0, -255, 0, 0, 0},
    {0, 0, 0, 0, -255, 0, 0, 0},                      {0, 0, 0, 0, -255, 0, 0, 0}};
const std::vector<std::vector<int>> kBumpsTexture = {
    {0, 0, 64, 64, 64, 32, 0, 0},          {0, 64, 64, 32, 16, 8, 0, 0},
    {64, 64, 16, 8, 8, 0, -8, -32},        {64, 32, 8, 0, 0, -8, -16, -64},
    {64, 16, 8, 0, 0, -8, -32, -64},       {32, 8, 0, -8, -8, -16, -64, -64},
    {0, 0, -8, -16, -32, -64, -64, 0},     {0, 0, -32, -64, -64, -64, 0, 0}};
const std::vector<std::vector<int>> kSteelPlateTexture = {
    {10, -10, -32, -64, -32, -10}, {-10, 10, 5, -32, 5, 10}, {-32, 5, 10, 5, 10, 5},
    {-64, -32, 5, 10, 5, -32},     {-32, 5, 10, 5, 10, 5},   {-10, 10, 5, -32, 5, 10}};
const std::vector<std::vector<int>> kWeaveTexture = {
    {32, 0, -255, -255, -255, 0},  {0, -255, 0, -255, 0, 32},  {-255, 0, 32, 0, -255, 0},
    {-255, -255, 0, 32, 0, -255},  {-255, 0, -255, 0, 32, 0},  {0, 32, 0, -255, 0, -255}};

struct EffectTexture {
    unsigned effect;
    const std::vector<std::vector<int>>* texture;
};
const EffectTexture kEffects[] = {{kTiles, &kTilesTexture},
                                  {kBricks, &kBricksTexture},
                                  {kBumps, &kBumpsTexture},
                                  {kSteelPlate, &kSteelPlateTexture},
                                  {kWeave, &kWeaveTexture}};

int clamp(int v) { return v < 0 ? 0 : (v > 255 ? 255 : v); }

int offsetAt(const EffectTexture& e, int x, int y) {
    const auto& t = *e.texture;
    return t[std::size_t(y) % t.size()][std::size_t(x) % t.size()];
}

}  // namespace

// On a uniform grey every pixel shows its texture entry directly; the picture is
// wider than tall and neither a multiple of 8 nor of 6, so a table stored
// upside down, transposed or tiled from another corner shows. Black and white
// pictures check the clamping.
TEST(TextureEffects, UniformGreyShowsEveryOffset) {
    for (int grey : {128, 0, 255, 70}) {
        Owned src(make(19, 13, 24, [&](int, int) { return Bgra{std::uint8_t(grey), std::uint8_t(grey), std::uint8_t(grey), 0}; }));
        for (const EffectTexture& e : kEffects) {
            Owned out(runFilter(e.effect, src, 16384));
            ASSERT_NE(out.h, nullptr);
            View v(out);
            for (int y = 0; y < 13; ++y)
                for (int x = 0; x < 19; ++x) {
                    const auto want = std::uint8_t(clamp(grey + offsetAt(e, x, y)));
                    ASSERT_EQ(v.at(x, y), (Bgra{want, want, want, 255}))
                        << "effect " << e.effect << " grey " << grey << " at " << x << "," << y;
                }
        }
    }
    // Spelled out for Tiles: the corner keeps its grey, the rest of the bottom
    // row and left column is grout.
    Owned src(make(9, 9, 24, [](int, int) { return Bgra{128, 128, 128, 0}; }));
    Owned out(runFilter(kTiles, src, 0));
    View v(out);
    EXPECT_EQ(v.at(0, 0).g, 128);
    EXPECT_EQ(v.at(1, 0).g, 0);
    EXPECT_EQ(v.at(0, 1).g, 0);
    EXPECT_EQ(v.at(1, 1).g, 220);
    EXPECT_EQ(v.at(7, 7).g, 36);
    EXPECT_EQ(v.at(8, 8).g, 128);   // the tiling repeats
}

// Every channel moves by the same offset and is clamped; 32-bit pictures mix
// that with the source by alpha and keep alpha. Pictures smaller than the
// texture use its first entries.
TEST(TextureEffects, ChannelsMoveTogetherAndMixByAlpha) {
    for (int bits : {24, 32}) {
        for (auto size : {std::pair<int, int>{1, 1}, {3, 1}, {1, 5}, {17, 11}}) {
            Owned src(make(size.first, size.second, bits, pattern));
            View in(src);
            for (const EffectTexture& e : kEffects) {
                Owned out(runFilter(e.effect, src, 0));
                View v(out);
                ASSERT_EQ(v.header().biBitCount, bits);
                for (int y = 0; y < size.second; ++y)
                    for (int x = 0; x < size.first; ++x) {
                        const Bgra s = in.at(x, y);
                        const int t = offsetAt(e, x, y), a = bits == 32 ? s.a : 255;
                        auto mix = [&](int c) { return std::uint8_t((c * (255 - a) + clamp(c + t) * a) / 255); };
                        ASSERT_EQ(v.at(x, y), (Bgra{mix(s.b), mix(s.g), mix(s.r), std::uint8_t(a)}))
                            << e.effect << " bits " << bits << " at " << x << "," << y;
                    }
            }
        }
    }
}

TEST(TextureEffects, PaletteSourceGivesTheResultOfItsColours) {
    const auto table = palette256();
    Owned indexed(make(27, 14, 8, [](int x, int y) { return Bgra{std::uint8_t(x * 9 + y * 17), 0, 0, 0}; }, table));
    Owned expanded(make(27, 14, 24, [&](int x, int y) { return table[std::uint8_t(x * 9 + y * 17)]; }));
    for (const EffectTexture& e : kEffects) {
        Owned a(runFilter(e.effect, indexed, 0));
        Owned b(runFilter(e.effect, expanded, 0));
        ASSERT_NE(a.h, nullptr);
        EXPECT_EQ(View(a).header().biBitCount, 24);
        EXPECT_EQ(View(a).bytes(), View(b).bytes()) << e.effect;
    }
}

TEST(TextureEffects, OneTickPerRowRefusalsAndMemoryFailure) {
    MessageCapture messages;
    Owned src(make(5, 23, 24, pattern));
    const long ticks = standalone::operationCounts().rowTicks;
    Owned out(runFilter(kWeave, src, 0));
    EXPECT_EQ(standalone::operationCounts().rowTicks - ticks, 23);

    Owned topDown(make(5, 3, 24, pattern));
    auto* h = static_cast<BITMAPINFOHEADER*>(plat::globalLock(topDown));
    h->biHeight = -3;
    plat::globalUnlock(topDown);
    EXPECT_EQ(runFilter(kBricks, topDown, 0), nullptr);
    EXPECT_TRUE(messages.messages.empty());

    const long live = plat::liveBlocks();
    plat::failAllocationAfter(1);
    HGLOBAL failed = runFilter(kBricks, src, 0);
    plat::failAllocationAfter(0);
    EXPECT_EQ(failed, nullptr);
    EXPECT_EQ(plat::liveBlocks(), live);
    ASSERT_EQ(messages.messages.size(), 1u);
    EXPECT_EQ(messages.messages[0], "Not enough memory to complete operation");
}
