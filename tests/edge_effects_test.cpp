#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <utility>

#include "effects/rows/row_effects.h"
#include "engine/pixel.h"
#include "resources/string_ids.h"
#include "tests/colour_pictures.h"

using namespace testpic;

namespace {

constexpr unsigned kFindEdges = 6, kContours = 13, kCharcoal = 31;
constexpr std::uint32_t kColourRef = 0x00336699;  // red 0x99, green 0x66, blue 0x33
const Bgra kPaint{0x33, 0x66, 0x99, 255};
const Bgra kWhite{255, 255, 255, 255};
constexpr int kAllBits[] = {8, 24, 32};

// Source row pointers of a picture, as the row driver hands them to row functions.
struct SourceRows {
    explicit SourceRows(HGLOBAL h) : src(h) {
        for (std::uint32_t y = 0; y < src.layout().height; ++y) rows.push_back(src.row(y));
    }
    dib::Source src;
    std::vector<const std::uint8_t*> rows;
};

std::vector<std::uint8_t> bufferBytes(int which, std::size_t count) {
    const std::uint8_t* b = renderState().edgeBuffer[which];
    return std::vector<std::uint8_t>(b, b + count);
}

}  // namespace

TEST(EdgeEffects, BuffersStartAt255AndAlternateByRowParity) {
    // Column 2 is darker than its surroundings: an edge, a contour and a charcoal stroke.
    Owned pic(make(5, 4, 24, [](int x, int) { return grey(x == 2 ? 100 : 200); }));
    SourceRows s(pic);
    const long blocksBefore = plat::liveBlocks();
    std::vector<std::uint8_t> out(5 * 3);
    const std::vector<std::uint8_t> fresh = {255, 255, 255, 255, 255, 255, 0, 0, 0, 0, 0, 0};

    ASSERT_EQ(EdgeBuffersInit(5, 4, 3), 1);
    EXPECT_EQ(plat::liveBlocks(), blocksBefore + 2);
    EXPECT_EQ(plat::globalSize(renderState().edgeHandle[0]), 12u);
    EXPECT_EQ(bufferBytes(0, 12), fresh);
    EXPECT_EQ(bufferBytes(1, 12), fresh);

    // Find Edges: even rows write buffer 0, odd rows buffer 1 (the edge flags).
    FindEdgesLine2(0, 16384, 5, 4, s.rows.data(), out.data(), 0);
    EXPECT_EQ(bufferBytes(0, 6), (std::vector<std::uint8_t>{0, 0, 1, 0, 0, 255}));
    EXPECT_EQ(bufferBytes(1, 12), fresh);
    FindEdgesLine2(1, 16384, 5, 4, s.rows.data(), out.data(), 0);
    EXPECT_EQ(bufferBytes(1, 6), (std::vector<std::uint8_t>{0, 0, 1, 0, 0, 255}));
    EdgeBuffersDone();
    EXPECT_EQ(renderState().edgeHandle[0], nullptr);
    EXPECT_EQ(renderState().edgeBuffer[1], nullptr);
    EXPECT_EQ(plat::liveBlocks(), blocksBefore);

    // Contours: even rows read buffer 0 and write buffer 1 (the luminance values).
    ASSERT_EQ(EdgeBuffersInit(5, 4, 3), 1);
    ContoursLine2(0, 16384, 5, 4, s.rows.data(), out.data(), 0);
    EXPECT_EQ(bufferBytes(0, 12), fresh);
    EXPECT_EQ(bufferBytes(1, 6), (std::vector<std::uint8_t>{200, 200, 100, 200, 200, 255}));
    EdgeBuffersDone();

    // Charcoal: row 1 writes buffer 1 at x = 1 .. width - 2 only; its ends stay 255.
    ASSERT_EQ(EdgeBuffersInit(5, 4, 3), 1);
    CharcoalLine2(0, 16384, 5, 4, s.rows.data(), out.data(), 0);
    EXPECT_EQ(bufferBytes(0, 12), fresh);
    EXPECT_EQ(bufferBytes(1, 12), fresh);
    CharcoalLine2(1, 16384, 5, 4, s.rows.data(), out.data(), 0);
    EXPECT_EQ(bufferBytes(0, 12), fresh);
    EXPECT_EQ(bufferBytes(1, 12),
              (std::vector<std::uint8_t>{255, 254, 191, 254, 255, 255, 0, 0, 0, 0, 0, 0}));
    EdgeBuffersDone();
    EXPECT_EQ(plat::liveBlocks(), blocksBefore);
}

TEST(EdgeEffects, AllocationFailureEndsTheRenderWithOneMessage) {
    Owned src(make(7, 5, 24, pattern));
    // 1, 2: the line buffers; 3: the output picture; 4: the row-pointer table.
    for (unsigned effect : {kFindEdges, kContours, kCharcoal})
        for (long failing : {1L, 2L, 3L, 4L}) {
            const long blocksBefore = plat::liveBlocks();
            MessageCapture capture;
            plat::failAllocationAfter(failing);
            HGLOBAL out = runFilter(effect, src, 16384, 0, 0, 0, kColourRef);
            plat::failAllocationAfter(0);
            EXPECT_EQ(out, nullptr) << effect << " " << failing;
            plat::globalFree(out);
            EXPECT_EQ(plat::liveBlocks(), blocksBefore) << effect << " " << failing;
            ASSERT_EQ(capture.messages.size(), 1u) << effect << " " << failing;
            EXPECT_EQ(capture.messages[0], plat::loadString(ids::kNoMemory));
            EXPECT_EQ(renderState().edgeHandle[0], nullptr);
            EXPECT_EQ(renderState().edgeHandle[1], nullptr);
        }
    // The next render starts afresh.
    Owned ok(runFilter(kFindEdges, src, 16384, 0, 0, 0, kColourRef));
    EXPECT_NE(ok.h, nullptr);
}

TEST(FindEdges, DarkPixelKeepsItselfAndItsRightAndUpperNeighbours) {
    auto colour = [](int x, int y) {
        return x == 3 && y == 2 ? Bgra{90, 100, 110, 255} : Bgra{200, 190, 180, 255};
    };
    const std::set<std::pair<int, int>> kept = {{3, 2}, {4, 2}, {3, 3}, {4, 3}};
    for (int bits : kAllBits) {
        Owned src(makeColours(7, 6, bits, colour));
        Owned out(runFilter(kFindEdges, src, 16384, 0, 0, 0, kColourRef));
        View v(out);
        for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 7; ++x) {
                const bool keep = y == 0 || kept.count({x, y});
                ASSERT_EQ(v.at(x, y), keep ? colour(x, y) : kPaint) << bits << " bits at " << x << "," << y;
            }
    }
}

TEST(FindEdges, EdgeThresholdPerChannel) {
    // A 3 x 3 picture whose centre is darker than its eight neighbours by `step`
    // in one channel; the block mean then exceeds the centre by (8 step / 9).
    struct Case {
        int channel;
        int step;
        bool edge;
    };
    const Case cases[] = {{2, 6, false}, {2, 7, true},   // red: mean + 5, + 6
                          {1, 4, false}, {1, 5, true},   // green: + 3, + 4
                          {0, 7, false}, {0, 8, true}};  // blue: + 6, + 7
    for (const Case& c : cases) {
        auto colour = [&](int x, int y) {
            Bgra p = grey(100);
            if (x != 1 || y != 1) {
                std::uint8_t& ch = c.channel == 0 ? p.b : c.channel == 1 ? p.g : p.r;
                ch = std::uint8_t(100 + c.step);
            }
            return p;
        };
        Owned src(make(3, 3, 24, colour));
        Owned out(runFilter(kFindEdges, src, 16384, 0, 0, 0, kColourRef));
        View v(out);
        EXPECT_EQ(v.at(1, 1), c.edge ? grey(100) : kPaint) << c.channel << " " << c.step;
        // The pixel to the right keeps its colour exactly when the centre is an edge.
        EXPECT_EQ(v.at(2, 1), c.edge ? colour(2, 1) : kPaint) << c.channel << " " << c.step;
    }
}

TEST(FindEdges, AlphaMixAppliesToPaintedPixels) {
    auto colour = [](int x, int y) { return grey(150, (x * 80 + y * 30) % 256); };
    Owned src(make(4, 3, 32, colour));
    Owned out(runFilter(kFindEdges, src, 16384, 0, 0, 0, kColourRef));
    View v(out);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(v.at(x, y), y == 0 ? colour(x, y) : alphaMixed(colour(x, y), kPaint)) << x << "," << y;
}

TEST(Contours, BandChangesKeepTheSourceFromTheThirdOrFourthRow) {
    // Black columns 0-2, white columns 3-5 (L = 0 and 253). Smoothed values
    // S = (left + L + below) / 3 from row 2 on:
    //   row 2: 0 0 0 168 224 243 -> bands change at x = 3, 4
    //   row 3: 0 0 0 140 205 233 -> at x = 3, 4, 5
    //   row 4: 0 0 0 131 196 227 -> at x = 3, 4, 5
    auto colour = [](int x, int) { return x < 3 ? grey(0) : grey(255); };
    const std::set<std::pair<int, int>> contour = {{3, 2}, {4, 2}, {3, 3}, {4, 3},
                                                   {5, 3}, {3, 4}, {4, 4}, {5, 4}};
    for (int bits : kAllBits) {
        const int firstKept = bits == 8 ? 2 : 3;
        Owned src(makeColours(6, 5, bits, colour));
        Owned out(runFilter(kContours, src, 16384, 0, 0, 0, kColourRef));
        View v(out);
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 6; ++x) {
                const bool keep = y >= firstKept && contour.count({x, y});
                ASSERT_EQ(v.at(x, y), keep ? colour(x, y) : kPaint) << bits << " bits at " << x << "," << y;
            }
    }
}

TEST(Charcoal, UniformPictureGivesWhiteBordersAndSettlingGrey) {
    // Row 1 reads the 255 fill: (3 * 255 + 253) >> 2 = 254. Later rows read
    // 254s, except near the right border where the never-written ends add 255s.
    for (int bits : kAllBits) {
        Owned src(makeColours(7, 6, bits, [](int, int) { return grey(90); }));
        Owned out(runFilter(kCharcoal, src, 16384));
        View v(out);
        for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 7; ++x) {
                int want = 253;
                if (y == 0 || y == 5 || x == 0 || x == 6) {
                    want = 255;
                } else if (y == 1 || x >= 4) {
                    want = 254;
                }
                ASSERT_EQ(v.at(x, y), grey(want)) << bits << " bits at " << x << "," << y;
            }
    }
}

TEST(Charcoal, StrokesSlantOneColumnLeftPerRow) {
    // White with one black pixel at (5, 1): its block gives L' = 0, so row 1 has
    // (3 * 255 + 0) >> 2 = 191 there; each later row averages the three values
    // at x .. x + 2 of the row below with its own 253.
    auto colour = [](int x, int y) { return x == 5 && y == 1 ? grey(0) : grey(255); };
    const int want[3][9] = {{255, 254, 254, 254, 254, 191, 254, 254, 255},
                            {255, 253, 253, 238, 238, 238, 254, 254, 255},
                            {255, 249, 245, 241, 245, 249, 254, 254, 255}};
    for (int bits : kAllBits) {
        Owned src(makeColours(9, 5, bits, colour));
        Owned out(runFilter(kCharcoal, src, 16384));
        View v(out);
        for (int x = 0; x < 9; ++x) {
            EXPECT_EQ(v.at(x, 0), kWhite);
            EXPECT_EQ(v.at(x, 4), kWhite);
            for (int y = 1; y <= 3; ++y)
                ASSERT_EQ(v.at(x, y), grey(want[y - 1][x])) << bits << " bits at " << x << "," << y;
        }
    }
}

TEST(Charcoal, AlphaMixWithTheSourcePixel) {
    auto colour = [](int x, int y) { return Bgra{40, 90, 160, std::uint8_t((x * 70 + y * 50) % 256)}; };
    Owned src(make(4, 4, 32, colour));
    Owned out(runFilter(kCharcoal, src, 16384));
    View v(out);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) {
            const bool border = x == 0 || y == 0 || x == 3 || y == 3;
            EXPECT_EQ(v.at(x, y), alphaMixed(colour(x, y), border ? kWhite : grey(254))) << x << "," << y;
        }
}

TEST(EdgeEffects, NarrowAndShortPictures) {
    const std::pair<int, int> sizes[] = {{1, 1}, {2, 1}, {1, 2}, {2, 2}, {1, 5}, {5, 1}, {2, 5}, {5, 2}};
    const auto colour = opaquePattern;
    for (const auto& size : sizes)
        for (int bits : kAllBits) {
            const int w = size.first, h = size.second;
            Owned src(makeColours(w, h, bits, colour));
            Owned edges(runFilter(kFindEdges, src, 16384, 0, 0, 0, kColourRef));
            Owned contours(runFilter(kContours, src, 16384, 0, 0, 0, kColourRef));
            Owned charcoal(runFilter(kCharcoal, src, 16384));
            ASSERT_TRUE(edges.h && contours.h && charcoal.h);
            View e(edges), c(contours), k(charcoal);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) {
                    // Every pixel of a picture 1 or 2 wide or high is a border pixel.
                    ASSERT_EQ(k.at(x, y), kWhite) << w << "x" << h << " " << bits;
                    if (y == 0) {
                        ASSERT_EQ(e.at(x, y), colour(x, 0)) << w << "x" << h << " " << bits;
                    }
                    // Contours keeps nothing below row 2.
                    if (y < 2) {
                        ASSERT_EQ(c.at(x, y), kPaint) << w << "x" << h << " " << bits;
                    }
                }
        }
    // A uniform column: row 0 kept, above it the colour.
    Owned column(make(1, 4, 24, [](int, int) { return grey(77); }));
    Owned out(runFilter(kFindEdges, column, 16384, 0, 0, 0, kColourRef));
    View v(out);
    for (int y = 0; y < 4; ++y) EXPECT_EQ(v.at(0, y), y == 0 ? grey(77) : kPaint);
}

TEST(EdgeEffects, FormsAgreeAndRendersRepeatExactly) {
    // The palette form reads the same colours through its table; with opaque
    // alpha the 32-bit form equals the 24-bit one. Only Contours' row 2 differs.
    for (unsigned effect : {kFindEdges, kContours, kCharcoal}) {
        FormResults r = renderForms(effect, 13, 11, opaquePattern, 16384, 0, kColourRef);
        EXPECT_TRUE(r.repeatable) << effect;
        EXPECT_EQ(r.bgr[1], r.bgr[2]) << effect;
        if (effect == kContours)
            for (std::vector<std::uint8_t>* form : {&r.bgr[0], &r.bgr[1]})
                form->erase(form->begin() + 2 * 13 * 3, form->begin() + 3 * 13 * 3);
        EXPECT_EQ(r.bgr[0], r.bgr[1]) << effect;
    }
    // Odd sizes with real alpha repeat too.
    for (unsigned effect : {kFindEdges, kContours, kCharcoal})
        EXPECT_TRUE(renderForms(effect, 7, 9, pattern, 16384, 0, kColourRef).repeatable) << effect;
}

namespace {

// Charcoal over a whole picture written out plainly: two value lines of
// width + 1 entries starting at 255, row y writing line y mod 2 and reading the
// other; the full 3 x 3 means, the clamped darkness, the luminance, the average
// with the three values below starting at x, then the alpha mix.
std::vector<Bgra> plainCharcoal(const View& src) {
    const int w = src.width(), h = src.height();
    std::vector<int> line[2] = {std::vector<int>(std::size_t(w) + 1, 255), std::vector<int>(std::size_t(w) + 1, 255)};
    std::vector<Bgra> out(std::size_t(w) * std::size_t(h));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const Bgra s = src.at(x, y);
            int v = 255;
            if (y > 0 && y < h - 1 && x > 0 && x < w - 1) {
                int sum[3] = {0, 0, 0};
                for (int yy = y - 1; yy <= y + 1; ++yy)
                    for (int xx = x - 1; xx <= x + 1; ++xx) {
                        const Bgra c = src.at(xx, yy);
                        sum[0] += c.b, sum[1] += c.g, sum[2] += c.r;
                    }
                const int own[3] = {s.b, s.g, s.r};
                int light[3];
                for (int i = 0; i < 3; ++i) light[i] = 255 - std::min(255, std::max(0, 32 * (sum[i] / 9 - own[i])));
                const std::vector<int>& below = line[(y + 1) % 2];
                v = (below[std::size_t(x)] + below[std::size_t(x) + 1] + below[std::size_t(x) + 2] +
                     px::luminance(light[0], light[1], light[2])) >> 2;
                line[y % 2][std::size_t(x)] = v;
            }
            out[std::size_t(y) * std::size_t(w) + std::size_t(x)] = alphaMixed(s, grey(v));
        }
    return out;
}

}  // namespace

TEST(Charcoal, EveryPixelFollowsThePlainProcedure) {
    const std::pair<int, int> sizes[] = {{1, 1}, {2, 3}, {3, 3}, {3, 2}, {1, 7}, {7, 1}, {4, 5}, {37, 23}, {300, 6}};
    // Strong local contrast, and gentle variation where the block means exceed
    // their centres by every small amount (each step of 1 darkens by 32, 8 or
    // more to black); varied alpha at 32 bits, at most 240 colours for palettes.
    auto strong = [](int x, int y) {
        Bgra c = pattern(x % 16, y % 15);
        c.a = std::uint8_t(x * 29 + y * 53);
        return c;
    };
    auto gentle = [](int x, int y) {
        const int i = (x % 16) * 15 + y % 15;
        return Bgra{std::uint8_t(90 + (i * 7) % 23), std::uint8_t(120 + (i * 11) % 19), std::uint8_t(60 + (i * 5) % 29),
                    std::uint8_t(x * 29 + y * 53)};
    };
    for (const auto& size : sizes)
        for (int bits : kAllBits)
            for (const auto& colour :
                 {std::function<Bgra(int, int)>(strong), std::function<Bgra(int, int)>(gentle)}) {
                Owned src(makeColours(size.first, size.second, bits, colour));
                Owned out(runFilter(kCharcoal, src, 16384));
                ASSERT_NE(out.h, nullptr);
                View in(src), v(out);
                const std::vector<Bgra> want = plainCharcoal(in);
                for (int y = 0; y < size.second; ++y)
                    for (int x = 0; x < size.first; ++x)
                        ASSERT_EQ(v.at(x, y), want[std::size_t(y * size.first + x)])
                            << size.first << "x" << size.second << " " << bits << " bits at " << x << "," << y;
            }
}
