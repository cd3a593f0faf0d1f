#include <gtest/gtest.h>

#include <functional>
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
const EffectTexture kEffects[] = {{kTiles, &kTilesTexture}, {kBricks, &kBricksTexture}, {kBumps, &kBumpsTexture},
                                  {kSteelPlate, &kSteelPlateTexture}, {kWeave, &kWeaveTexture}};

int clamp(int v) { return v < 0 ? 0 : (v > 255 ? 255 : v); }

}  // namespace

// Every channel moves by the texture entry at (x mod n, y mod n), counted from
// the lowest row, and is clamped; 32-bit pictures mix that with the source by
// alpha and keep alpha. The 19 x 13 pictures are neither a multiple of 8 nor of
// 6 and wider than tall, so a table stored upside down, transposed or tiled from
// another corner shows; mid grey and white show every offset directly. Pictures
// smaller than the texture use its first entries.
TEST(TextureEffects, OffsetsTiledFromTheBottomLeftClampedAndMixedByAlpha) {
    struct Source { int w, h; std::function<Bgra(int, int)> pixel; };
    const Source sources[] = {{1, 1, pattern}, {3, 1, pattern}, {1, 5, pattern}, {19, 13, pattern},
                              {19, 13, [](int x, int y) { return Bgra{128, 128, 128, std::uint8_t(x * y * 7)}; }},
                              {19, 13, [](int, int) { return Bgra{255, 255, 255, 255}; }}};
    for (int bits : {24, 32})
        for (const Source& c : sources) {
            Owned src(make(c.w, c.h, bits, c.pixel));
            const View in(src);
            for (const EffectTexture& e : kEffects) {
                Owned out(runFilter(e.effect, src, 0));
                ASSERT_NE(out.h, nullptr);
                const View v(out);
                EXPECT_EQ(v.header().biBitCount, bits);
                const auto& t = *e.texture;
                EXPECT_EQ(firstDifference(v, [&](int x, int y) {
                              const Bgra s = in.at(x, y);
                              const int offset = t[std::size_t(y) % t.size()][std::size_t(x) % t.size()];
                              const int a = bits == 32 ? s.a : 255;
                              auto mix = [&](int ch) {
                                  return std::uint8_t((ch * (255 - a) + clamp(ch + offset) * a) / 255);
                              };
                              return Bgra{mix(s.b), mix(s.g), mix(s.r), std::uint8_t(a)};
                          }),
                          "")
                    << "effect " << e.effect << " bits " << bits << " size " << c.w << "x" << c.h;
            }
        }
}

TEST(TextureEffects, PaletteSourceGivesTheResultOfItsColours) {
    Owned indexed(testpic::indexed(27, 14, [](int x, int y) { return x * 9 + y * 17; }));
    Owned expanded(trueColour(indexed));
    for (const EffectTexture& e : kEffects) {
        Owned a(runFilter(e.effect, indexed, 0)), b(runFilter(e.effect, expanded, 0));
        ASSERT_NE(a.h, nullptr);
        EXPECT_EQ(View(a).bytes(), View(b).bytes()) << e.effect;
    }
}

TEST(TextureEffects, OneTickPerRowRefusalsAndMemoryFailure) {
    MessageCapture messages;
    Owned src(make(5, 23, 24, pattern));
    const long ticks = standalone::operationCounts().rowTicks;
    Owned out(runFilter(kWeave, src, 0));
    EXPECT_EQ(standalone::operationCounts().rowTicks - ticks, 23);
    Owned topDown(withHeader(make(5, 3, 24, pattern), [](BITMAPINFOHEADER& h) { h.biHeight = -3; }));
    EXPECT_EQ(runFilter(kBricks, topDown, 0), nullptr);
    EXPECT_TRUE(messages.messages.empty());
    EXPECT_TRUE(failsCleanly(1, [&] { return runFilter(kBricks, src, 0); }));
    EXPECT_EQ(messages.messages, std::vector<std::string>{"Not enough memory to complete operation"});
}
