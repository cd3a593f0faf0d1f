#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "engine/filters.h"
#include "hostapi/host_ops.h"
#include "tests/colour_pictures.h"

using namespace testpic;

namespace {

constexpr unsigned kWaterColor = 3, kGlass = 26, kColorPencil = 35;
constexpr std::uint16_t kFrazzle = 23, kCharcoal = 31;

using ColourOp = HGLOBAL(FLR_STDCALL*)(HGLOBAL, std::uint32_t, std::uint32_t);
struct NamedOp {
    const char* name;
    ColourOp op;
};
const NamedOp kOps[] = {{"Smooth", HueKit_Smooth}, {"Simplify", HueKit_Simplify}, {"Soften", HueKit_Soften}};

// op(picture), the input freed.
HGLOBAL applyAndFree(ColourOp op, HGLOBAL picture) {
    HGLOBAL next = picture ? op(picture, 0, 0) : nullptr;
    plat::globalFree(picture);
    return next;
}

}  // namespace

// Each operation: a new picture of the same size, 24-bit for 8- and 24-bit
// input, 32-bit with every alpha kept for 32-bit input; palette input gives the
// result of its colours; the input is untouched and a second call repeats the
// first exactly.
TEST(ColourOps, FormatsAlphaPaletteAndUntouchedInput) {
    for (const NamedOp& op : kOps)
        for (auto size : {std::pair<int, int>{1, 1}, {1, 7}, {7, 1}, {2, 3}, {13, 9}}) {
            const int w = size.first, h = size.second;
            SCOPED_TRACE(std::string(op.name) + " " + std::to_string(w) + "x" + std::to_string(h));
            Owned indexed(testpic::indexed(w, h, [](int x, int y) { return x * 40 + y * 9; }));
            Owned expanded(trueColour(indexed));
            const View colours(expanded);
            Owned withAlpha(make(w, h, 32, [&](int x, int y) {
                Bgra p = colours.at(x, y);
                p.a = std::uint8_t(x * 50 + y * 3);
                return p;
            }));
            for (HGLOBAL src : {indexed.h, expanded.h, withAlpha.h}) {
                const View in(src);
                const auto before = in.bytes();
                Owned out(op.op(src, 0, 0)), again(op.op(src, 0, 0));
                ASSERT_NE(out.h, nullptr);
                const View v(out);
                EXPECT_EQ(in.bytes(), before);
                EXPECT_EQ(View(again).bytes(), v.bytes());
                const unsigned bits = in.header().biBitCount == 32 ? 32 : 24;
                EXPECT_EQ(std::make_tuple(v.width(), v.height(), unsigned(v.header().biBitCount), v.header().biClrUsed,
                                          v.header().biSizeImage),
                          std::make_tuple(w, h, bits, 0u, dib::paddedStride(unsigned(w), bits) * unsigned(h)));
            }
            Owned a(op.op(indexed, 0, 0)), b(op.op(expanded, 0, 0)), c(op.op(withAlpha, 0, 0));
            EXPECT_EQ(View(a).bytes(), View(b).bytes()) << "palette";
            const View vb(b), va(withAlpha);   // colour as from 24 bits, alpha as in the input
            EXPECT_EQ(firstDifference(View(c), [&](int x, int y) { return Bgra{vb.at(x, y).b, vb.at(x, y).g,
                                                                                vb.at(x, y).r, va.at(x, y).a}; }),
                      "");
        }
}

// Soften is the 5 x 5 binomial blur (1 4 6 4 1 each way, rounded once) with
// the edge pixels repeated, on every channel.
TEST(ColourOps, SoftenIsTheBinomialBlurWithRepeatedEdges) {
    const int k[5] = {1, 4, 6, 4, 1}, w = 9, h = 7;
    Owned src(make(w, h, 24, pattern));
    Owned out(HueKit_Soften(src, 0, 0));
    const View in(src);
    auto clampTo = [](int v, int n) { return v < 0 ? 0 : (v >= n ? n - 1 : v); };
    EXPECT_EQ(firstDifference(View(out), [&](int x, int y) {
                  int sum[3] = {0, 0, 0};
                  for (int j = 0; j < 5; ++j)
                      for (int i = 0; i < 5; ++i) {
                          const Bgra s = in.at(clampTo(x + i - 2, w), clampTo(y + j - 2, h));
                          sum[0] += k[i] * k[j] * s.b, sum[1] += k[i] * k[j] * s.g, sum[2] += k[i] * k[j] * s.r;
                      }
                  return Bgra{std::uint8_t((sum[0] + 128) >> 8), std::uint8_t((sum[1] + 128) >> 8),
                              std::uint8_t((sum[2] + 128) >> 8), 255};
              }),
              "");
}

// Smooth keeps a flat picture and the pixels beside a strong edge, and pulls
// fine detail toward its mean.
TEST(ColourOps, SmoothFlattensDetailAndKeepsStrongEdges) {
    Owned flat(make(11, 7, 24, [](int, int) { return grey(77); }));
    Owned step(make(20, 8, 24, [](int x, int) { return grey(x < 10 ? 20 : 220); }));
    Owned noise(make(16, 16, 24, [](int x, int y) { return grey((x + y) % 2 ? 108 : 92); }));
    Owned flatOut(HueKit_Smooth(flat, 0, 0)), stepOut(HueKit_Smooth(step, 0, 0)), noiseOut(HueKit_Smooth(noise, 0, 0));
    EXPECT_EQ(View(flatOut).bytes(), View(flat).bytes());
    const View sv(stepOut), nv(noiseOut);
    for (int y = 0; y < 8; ++y)   // the columns either side of the edge, and the picture's ends
        for (int x : {0, 9, 10, 19}) EXPECT_EQ(sv.at(x, y).b, x < 10 ? 20 : 220) << x << "," << y;
    for (int y = 2; y < 14; ++y)
        for (int x = 2; x < 14; ++x) EXPECT_LE(std::abs(int(nv.at(x, y).g) - 100), 2) << x << "," << y;
}

// Simplify rounds every channel to the nearest of eight levels; a second pass changes nothing.
TEST(ColourOps, SimplifyRoundsToEightLevels) {
    const std::uint8_t levels[8] = {0, 36, 73, 109, 146, 182, 219, 255};
    Owned ramp(make(256, 1, 24, [](int x, int) {
        return Bgra{std::uint8_t(x), std::uint8_t(255 - x), std::uint8_t(x / 2), 0};
    }));
    Owned once(HueKit_Simplify(ramp, 0, 0));
    Owned twice(HueKit_Simplify(once, 0, 0));
    const View v(once);
    EXPECT_EQ(View(twice).bytes(), v.bytes());
    for (int x = 0; x < 256; ++x) {
        int nearest = 0;   // the level k * 255 / 7 nearest to x, ties upward
        for (int k = 1; k < 8; ++k)
            if (std::abs(x * 7 - k * 255) <= std::abs(x * 7 - nearest * 255)) nearest = k;
        ASSERT_EQ(std::make_tuple(v.at(x, 0).b, v.at(255 - x, 0).g, v.at(x, 0).r),
                  std::make_tuple(levels[nearest], levels[nearest], v.at(x / 2, 0).b)) << x;
    }
}

TEST(ColourOps, RefusedPicturesAndMemoryFailures) {
    Owned bad(withHeader(make(4, 4, 24, pattern), [](BITMAPINFOHEADER& h) { h.biBitCount = 16; }));
    Owned good(make(33, 21, 32, pattern));
    for (const NamedOp& op : kOps) {
        EXPECT_EQ(op.op(bad, 0, 0), nullptr) << op.name;
        EXPECT_EQ(op.op(nullptr, 0, 0), nullptr) << op.name;
        for (long n : {1, 2})   // working memory, then the result
            EXPECT_TRUE(failsCleanly(n, [&] { return op.op(good, 0, 0); })) << op.name << " failure " << n;
    }
}

// WaterColor is Smooth, Simplify, Smooth, Simplify; Glass softens Frazzle run
// at progress 1146; Color Pencil mixes the source half and half with Charcoal
// at full strength. The render's progress does not matter, the source stays as
// it was and only the result is left alive.
TEST(CompositeEffects, ChainTheirOperations) {
    struct Chain {
        unsigned effect;
        std::function<HGLOBAL(HGLOBAL)> want;
    };
    const Chain chains[] = {
        {kWaterColor, [](HGLOBAL s) { return applyAndFree(HueKit_Simplify, applyAndFree(HueKit_Smooth,
                                          applyAndFree(HueKit_Simplify, HueKit_Smooth(s, 0, 0)))); }},
        {kGlass, [](HGLOBAL s) { return applyAndFree(HueKit_Soften, FLR_LineFilter(kFrazzle, s, 1146, 0, 0, 0)); }},
        {kColorPencil, [](HGLOBAL s) {
             Owned charcoal(FLR_LineFilter(kCharcoal, s, 16384, 0, 0, 0));
             return BaseKit_MixPictures(s, charcoal, 8192);
         }},
    };
    for (const Chain& c : chains)
        for (int bits : {8, 24, 32}) {
            Owned src(make(61, 17, bits, pattern, palette256()));   // wide enough for Frazzle at 1146 to move pixels
            const auto before = View(src).bytes();
            const long live = plat::liveBlocks();
            Owned out(runFilter(c.effect, src, 5000));
            ASSERT_NE(out.h, nullptr);
            EXPECT_EQ(plat::liveBlocks(), live + 1);
            EXPECT_EQ(View(src).bytes(), before);
            Owned want(c.want(src));
            EXPECT_EQ(View(out).bytes(), View(want).bytes()) << "effect " << c.effect << " bits " << bits;
        }
}

// Whichever allocation fails, the chain stops, frees what it holds and returns
// 0; WaterColor shows no message of its own. Refused pictures give 0.
TEST(CompositeEffects, StopCleanlyAtAFailingStep) {
    Owned bad(withHeader(make(4, 4, 24, pattern), [](BITMAPINFOHEADER& h) { h.biBitCount = 16; }));
    Owned src(make(16, 12, 24, pattern));
    for (unsigned effect : {kWaterColor, kGlass, kColorPencil}) {
        MessageCapture messages;
        EXPECT_EQ(runFilter(effect, bad, 16384), nullptr);
        Owned whole(runFilter(effect, src, 16384));
        ASSERT_NE(whole.h, nullptr);
        const long live = plat::liveBlocks();
        for (long n = 1; n < 30; ++n) {
            plat::failAllocationAfter(n);
            Owned out(runFilter(effect, src, 16384));
            plat::failAllocationAfter(0);
            EXPECT_EQ(plat::liveBlocks(), live + (out.h ? 1 : 0)) << effect << " failure " << n;
            if (out.h) {   // every allocation succeeded
                EXPECT_EQ(View(out).bytes(), View(whole).bytes()) << effect;
                break;
            }
        }
        if (effect == kWaterColor) {
            EXPECT_TRUE(messages.messages.empty());
        }
    }
}

namespace {

// The colour operations written out pixel by pixel from their descriptions:
// 5 x 5 windows with the edge pixels repeated, rounded means, Smooth's share by
// the largest channel difference, Simplify's nearest of eight levels; alpha kept.
Bgra plainColourOp(const std::string& name, const View& src, int x, int y) {
    const Bgra s = src.at(x, y);
    const int own[3] = {s.b, s.g, s.r};
    int value[3];
    if (name == "Simplify") {
        for (int i = 0; i < 3; ++i) value[i] = (((own[i] * 7 + 127) / 255) * 255 + 3) / 7;
    } else {
        const int binomial[5] = {1, 4, 6, 4, 1};
        const bool box = name == "Smooth";
        int sum[3] = {0, 0, 0};
        for (int dy = -2; dy <= 2; ++dy)
            for (int dx = -2; dx <= 2; ++dx) {
                const Bgra c = src.at(std::clamp(x + dx, 0, src.width() - 1), std::clamp(y + dy, 0, src.height() - 1));
                const int weight = box ? 1 : binomial[dx + 2] * binomial[dy + 2];
                sum[0] += weight * c.b, sum[1] += weight * c.g, sum[2] += weight * c.r;
            }
        const int total = box ? 25 : 256;
        int largest = 0;
        for (int i = 0; i < 3; ++i) {
            value[i] = (sum[i] + total / 2) / total;
            largest = std::max(largest, std::abs(value[i] - own[i]));
        }
        if (box) {
            const int share = largest < 48 ? (48 - largest) * 256 / 48 : 0;
            for (int i = 0; i < 3; ++i) value[i] = own[i] + (value[i] - own[i]) * share / 256;
        }
    }
    return Bgra{std::uint8_t(value[0]), std::uint8_t(value[1]), std::uint8_t(value[2]),
                src.header().biBitCount == 32 ? s.a : std::uint8_t(255)};
}

}  // namespace

TEST(ColourOps, EveryPixelFollowsThePlainOperation) {
    const std::pair<int, int> sizes[] = {{1, 1}, {2, 3}, {7, 1}, {1, 7}, {4, 4}, {37, 23}, {300, 5}};
    // Strong contrast, and gentle variation within Smooth's reach of 48.
    auto strong = [](int x, int y) {
        Bgra c = pattern(x % 16, y % 15);
        c.a = std::uint8_t(x * 29 + y * 53);
        return c;
    };
    auto gentle = [](int x, int y) {
        const int i = (x % 16) * 15 + y % 15;
        return Bgra{std::uint8_t(90 + (i * 7) % 53), std::uint8_t(120 + (i * 11) % 37), std::uint8_t(60 + (i * 5) % 71),
                    std::uint8_t(x * 29 + y * 53)};
    };
    for (const NamedOp& op : kOps)
        for (const auto& size : sizes)
            for (int bits : {8, 24, 32})
                for (const auto& colour :
                     {std::function<Bgra(int, int)>(strong), std::function<Bgra(int, int)>(gentle)}) {
                    Owned src(makeColours(size.first, size.second, bits, colour));
                    Owned out(op.op(src, 0, 0));
                    ASSERT_NE(out.h, nullptr);
                    View in(src), v(out);
                    for (int y = 0; y < size.second; ++y)
                        for (int x = 0; x < size.first; ++x)
                            ASSERT_EQ(v.at(x, y), plainColourOp(op.name, in, x, y))
                                << op.name << " " << size.first << "x" << size.second << " " << bits << " bits at "
                                << x << "," << y;
                }
}
