#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>
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

// op(picture), the input left to the caller.
HGLOBAL apply(ColourOp op, HGLOBAL picture) { return picture ? op(picture, 0, 0) : nullptr; }
// op(picture), the input freed.
HGLOBAL applyAndFree(ColourOp op, HGLOBAL picture) {
    HGLOBAL next = apply(op, picture);
    plat::globalFree(picture);
    return next;
}

HGLOBAL grey(int w, int h, int bits, std::uint8_t v) {
    return make(w, h, bits, [=](int, int) { return Bgra{v, v, v, 255}; });
}

HGLOBAL badPicture() {
    HGLOBAL h = make(4, 4, 24, pattern);
    auto* hdr = static_cast<BITMAPINFOHEADER*>(plat::globalLock(h));
    hdr->biBitCount = 16;
    plat::globalUnlock(h);
    return h;
}

const std::uint8_t kLevels[8] = {0, 36, 73, 109, 146, 182, 219, 255};

}  // namespace

// Each operation: a new picture of the same size, 24-bit for 8- and 24-bit
// input, 32-bit with every alpha kept for 32-bit input; palette input gives the
// result of its colours; the input is untouched and a second call repeats the
// first exactly.
TEST(ColourOps, FormatsAlphaPaletteAndUntouchedInput) {
    const auto table = palette256();
    for (const NamedOp& op : kOps) {
        for (auto size : {std::pair<int, int>{1, 1}, {1, 7}, {7, 1}, {2, 3}, {13, 9}}) {
            const int w = size.first, h = size.second;
            Owned indexed(make(w, h, 8, [](int x, int y) { return Bgra{std::uint8_t(x * 40 + y * 9), 0, 0, 0}; }, table));
            Owned expanded(make(w, h, 24, [&](int x, int y) { return table[std::uint8_t(x * 40 + y * 9)]; }));
            Owned withAlpha(make(w, h, 32, [&](int x, int y) {
                Bgra p = table[std::uint8_t(x * 40 + y * 9)];
                p.a = std::uint8_t(x * 50 + y * 3);
                return p;
            }));
            for (HGLOBAL src : {indexed.h, expanded.h, withAlpha.h}) {
                View in(src);
                const auto before = in.bytes();
                Owned out(apply(op.op, src));
                Owned again(apply(op.op, src));
                ASSERT_NE(out.h, nullptr) << op.name;
                View v(out);
                EXPECT_EQ(in.bytes(), before) << op.name;
                EXPECT_EQ(View(again).bytes(), v.bytes()) << op.name;
                EXPECT_EQ(v.width(), w);
                EXPECT_EQ(v.height(), h);
                EXPECT_EQ(v.header().biBitCount, in.header().biBitCount == 32 ? 32 : 24);
                EXPECT_EQ(v.header().biClrUsed, 0u);
                EXPECT_EQ(v.header().biSizeImage, dib::paddedStride(unsigned(w), v.header().biBitCount) * unsigned(h));
            }
            Owned a(apply(op.op, indexed)), b(apply(op.op, expanded)), c(apply(op.op, withAlpha));
            EXPECT_EQ(View(a).bytes(), View(b).bytes()) << op.name << " palette";
            View vb(b), vc(c), va(withAlpha);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) {   // colour as from 24 bits, alpha as in the input
                    Bgra want = vb.at(x, y);
                    want.a = va.at(x, y).a;
                    ASSERT_EQ(vc.at(x, y), want) << op.name << " at " << x << "," << y;
                }
        }
    }
}

// Soften is the 5 x 5 binomial blur (1 4 6 4 1 each way, rounded) with the
// edges repeated: a single white pixel spreads into the kernel itself.
TEST(ColourOps, SoftenSpreadsAPixelIntoTheBinomialKernel) {
    const int k[5] = {1, 4, 6, 4, 1};
    Owned dot(make(9, 9, 24, [](int x, int y) { return x == 4 && y == 4 ? Bgra{255, 255, 255, 0} : Bgra{0, 0, 0, 0}; }));
    Owned out(HueKit_Soften(dot, 0, 0));
    View v(out);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 9; ++x) {
            const int dx = x - 4 + 2, dy = y - 4 + 2;
            const int weight = dx >= 0 && dx < 5 && dy >= 0 && dy < 5 ? k[dx] * k[dy] : 0;
            ASSERT_EQ(v.at(x, y).g, (255 * weight + 128) >> 8) << x << "," << y;
        }
    // A white left column: the repeated edge counts three times at column 0.
    Owned edge(make(6, 4, 24, [](int x, int) { return x == 0 ? Bgra{255, 255, 255, 0} : Bgra{0, 0, 0, 0}; }));
    Owned soft(HueKit_Soften(edge, 0, 0));
    View s(soft);
    for (int y = 0; y < 4; ++y) {
        EXPECT_EQ(s.at(0, y).r, (11 * 16 * 255 + 128) >> 8);
        EXPECT_EQ(s.at(1, y).r, (5 * 16 * 255 + 128) >> 8);
        EXPECT_EQ(s.at(2, y).r, (1 * 16 * 255 + 128) >> 8);
        EXPECT_EQ(s.at(3, y).r, 0);
    }
}

// Smooth flattens small detail but keeps the pixels beside a strong edge.
TEST(ColourOps, SmoothFlattensDetailAndKeepsStrongEdges) {
    Owned flat(grey(11, 7, 24, 77));
    Owned flatOut(HueKit_Smooth(flat, 0, 0));
    EXPECT_EQ(View(flatOut).bytes(), View(Owned(grey(11, 7, 24, 77))).bytes());

    // A hard edge between 20 and 220: the columns either side of it stay.
    Owned step(make(20, 8, 24, [](int x, int) { return x < 10 ? Bgra{20, 20, 20, 0} : Bgra{220, 220, 220, 0}; }));
    Owned stepOut(HueKit_Smooth(step, 0, 0));
    View sv(stepOut);
    for (int y = 0; y < 8; ++y) {
        EXPECT_EQ(sv.at(9, y).b, 20);
        EXPECT_EQ(sv.at(10, y).b, 220);
        EXPECT_EQ(sv.at(0, y).b, 20);
        EXPECT_EQ(sv.at(19, y).b, 220);
    }

    // A fine checkerboard of 92 and 108 pulls strongly toward its mean.
    Owned noise(make(16, 16, 24, [](int x, int y) {
        const std::uint8_t v = (x + y) % 2 ? 108 : 92;
        return Bgra{v, v, v, 0};
    }));
    Owned noiseOut(HueKit_Smooth(noise, 0, 0));
    View nv(noiseOut);
    for (int y = 2; y < 14; ++y)
        for (int x = 2; x < 14; ++x) EXPECT_LE(std::abs(int(nv.at(x, y).g) - 100), 2) << x << "," << y;
}

// Simplify rounds every channel to the nearest of eight levels; a second pass changes nothing.
TEST(ColourOps, SimplifyRoundsToEightLevels) {
    Owned ramp(make(256, 1, 24, [](int x, int) { return Bgra{std::uint8_t(x), std::uint8_t(255 - x), std::uint8_t(x / 2), 0}; }));
    Owned once(HueKit_Simplify(ramp, 0, 0));
    Owned twice(HueKit_Simplify(once, 0, 0));
    View v(once);
    EXPECT_EQ(View(twice).bytes(), v.bytes());
    for (int x = 0; x < 256; ++x) {
        int nearest = 0;   // the level k * 255 / 7 nearest to x, ties upward
        for (int k = 1; k < 8; ++k)
            if (std::abs(x * 7 - k * 255) <= std::abs(x * 7 - nearest * 255)) nearest = k;
        ASSERT_EQ(v.at(x, 0).b, kLevels[nearest]) << x;
        ASSERT_EQ(v.at(255 - x, 0).g, kLevels[nearest]) << x;
        ASSERT_EQ(v.at(x, 0).r, v.at(x / 2, 0).b) << x;
    }
}

TEST(ColourOps, RefusedPicturesAndMemoryFailures) {
    Owned bad(badPicture());
    Owned good(make(33, 21, 32, pattern));
    for (const NamedOp& op : kOps) {
        EXPECT_EQ(op.op(bad, 0, 0), nullptr) << op.name;
        EXPECT_EQ(op.op(nullptr, 0, 0), nullptr) << op.name;
        const long live = plat::liveBlocks();
        for (long n : {1, 2}) {   // working memory, then the result
            plat::failAllocationAfter(n);
            HGLOBAL out = op.op(good, 0, 0);
            plat::failAllocationAfter(0);
            EXPECT_EQ(out, nullptr) << op.name << " failure " << n;
            EXPECT_EQ(plat::liveBlocks(), live) << op.name << " failure " << n;
        }
    }
}

// WaterColor is Smooth, Simplify, Smooth, Simplify; the source stays as it
// was and only the result is left alive.
TEST(CompositeEffects, WaterColorChainsTheColourOperations) {
    for (int bits : {8, 24, 32}) {
        Owned src(make(23, 17, bits, pattern, palette256()));
        const auto before = View(src).bytes();
        const long live = plat::liveBlocks();
        Owned out(runFilter(kWaterColor, src, 16384));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(plat::liveBlocks(), live + 1);
        EXPECT_EQ(View(src).bytes(), before);
        Owned want(applyAndFree(HueKit_Simplify, applyAndFree(HueKit_Smooth,
                   applyAndFree(HueKit_Simplify, apply(HueKit_Smooth, src)))));
        EXPECT_EQ(View(out).bytes(), View(want).bytes()) << bits;
    }
}

// Each of the eight allocations of the chain may fail: the chain stops, frees
// what it holds and returns 0, without a message of its own.
TEST(CompositeEffects, WaterColorStopsCleanlyAtAFailingStep) {
    MessageCapture messages;
    Owned src(make(19, 11, 24, pattern));
    const long live = plat::liveBlocks();
    for (long n = 1; n <= 8; ++n) {
        plat::failAllocationAfter(n);
        HGLOBAL out = runFilter(kWaterColor, src, 16384);
        plat::failAllocationAfter(0);
        EXPECT_EQ(out, nullptr) << "failure " << n;
        plat::globalFree(out);
        EXPECT_EQ(plat::liveBlocks(), live) << "failure " << n;
    }
    plat::failAllocationAfter(9);
    Owned out(runFilter(kWaterColor, src, 16384));
    plat::failAllocationAfter(0);
    EXPECT_NE(out.h, nullptr) << "the chain makes eight allocations";
    EXPECT_TRUE(messages.messages.empty());
}

// Glass softens Frazzle run at progress 1146, whatever the render's progress.
TEST(CompositeEffects, GlassSoftensFrazzle) {
    for (int bits : {8, 24, 32}) {
        Owned src(make(21, 15, bits, pattern, palette256()));
        Owned frazzled(FLR_LineFilter(kFrazzle, src, 1146, 0, 0, 0));
        if (!frazzled.h) GTEST_SKIP() << "Frazzle's row functions are not part of this build yet";
        const auto before = View(src).bytes();
        const long live = plat::liveBlocks();
        Owned out(runFilter(kGlass, src, 5000));
        EXPECT_EQ(plat::liveBlocks(), live + 1);
        EXPECT_EQ(View(src).bytes(), before);
        Owned want(HueKit_Soften(frazzled, 0, 0));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(View(out).bytes(), View(want).bytes()) << bits;
    }
}

// Color Pencil is the half-way mix of the source and Charcoal at full strength.
TEST(CompositeEffects, ColorPencilMixesHalfCharcoal) {
    for (int bits : {8, 24, 32}) {
        Owned src(make(21, 15, bits, pattern, palette256()));
        Owned charcoal(FLR_LineFilter(kCharcoal, src, 16384, 0, 0, 0));
        if (!charcoal.h) GTEST_SKIP() << "Charcoal's row functions are not part of this build yet";
        const auto before = View(src).bytes();
        const long live = plat::liveBlocks();
        Owned out(runFilter(kColorPencil, src, 100));
        EXPECT_EQ(plat::liveBlocks(), live + 1);
        EXPECT_EQ(View(src).bytes(), before);
        Owned want(BaseKit_MixPictures(src, charcoal, 8192));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(View(out).bytes(), View(want).bytes()) << bits;
    }
}

// Whichever allocation fails, Glass and Color Pencil return 0 and leave
// nothing behind; refused pictures give 0.
TEST(CompositeEffects, GlassAndColorPencilStopCleanlyAtAFailingStep) {
    MessageCapture messages;
    Owned bad(badPicture());
    Owned src(make(16, 12, 24, pattern));
    for (unsigned effect : {kGlass, kColorPencil}) {
        EXPECT_EQ(runFilter(effect, bad, 16384), nullptr);
        const long live = plat::liveBlocks();
        for (long n = 1; n <= 12; ++n) {
            plat::failAllocationAfter(n);
            HGLOBAL out = runFilter(effect, src, 16384);
            plat::failAllocationAfter(0);
            if (out) {   // every allocation succeeded: only the result is alive
                EXPECT_EQ(plat::liveBlocks(), live + 1) << effect;
                plat::globalFree(out);
                break;
            }
            EXPECT_EQ(plat::liveBlocks(), live) << effect << " failure " << n;
        }
        EXPECT_EQ(plat::liveBlocks(), live);
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
                    Owned out(apply(op.op, src));
                    ASSERT_NE(out.h, nullptr);
                    View in(src), v(out);
                    for (int y = 0; y < size.second; ++y)
                        for (int x = 0; x < size.first; ++x)
                            ASSERT_EQ(v.at(x, y), plainColourOp(op.name, in, x, y))
                                << op.name << " " << size.first << "x" << size.second << " " << bits << " bits at "
                                << x << "," << y;
                }
}
