#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "effects/image/bubbles.h"
#include "platform/random.h"
#include "standalone/host_context.h"
#include "tests/picture_support.h"

using namespace testpic;

namespace {

constexpr unsigned kBubbles = 36;

// The lens of a 20 x 20 bubble: for output pixel (i, j), the offset of its
// source pixel (column - i, row - j); "." for none. Row j = 0 (the lowest) first.
const char* const kLensOffsets[20] = {
    ". . . . . . . . . . . . . . . . . . . .",
    ". . . . . . . 0,1 0,1 0,1 0,1 0,1 0,1 0,1 . . . . . .",
    ". . . . . 0,1 0,1 0,1 0,2 0,2 0,2 0,2 0,2 0,1 0,1 0,1 . . . .",
    ". . . . 1,1 1,1 1,1 0,1 0,2 0,2 0,2 0,2 0,2 0,1 -1,1 -1,1 -1,1 . . .",
    ". . . 1,1 1,1 1,1 1,1 0,1 0,1 0,1 0,1 0,1 0,1 0,1 -1,1 -1,1 -1,1 -1,1 . .",
    ". . 1,0 1,1 1,1 1,1 1,1 0,1 0,1 0,1 0,1 0,1 0,1 0,1 -1,1 -1,1 -1,1 -1,1 -1,0 .",
    ". . 1,0 1,1 1,1 1,1 1,1 1,1 0,1 0,1 0,1 0,1 0,1 -1,1 -1,1 -1,1 -1,1 -1,1 -1,0 .",
    ". 1,0 1,0 1,0 1,0 1,0 1,1 1,1 0,1 0,1 0,1 0,1 0,1 -1,1 -1,1 -1,0 -1,0 -1,0 -1,0 -1,0",
    ". 1,0 2,0 2,0 1,0 1,0 1,0 1,0 . . . . . -1,0 -1,0 -1,0 -1,0 -2,0 -2,0 -1,0",
    ". 1,0 2,0 2,0 1,0 1,0 1,0 1,0 . . . . . -1,0 -1,0 -1,0 -1,0 -2,0 -2,0 -1,0",
    ". 1,0 2,0 2,0 1,0 1,0 1,0 1,0 . . . . . -1,0 -1,0 -1,0 -1,0 -2,0 -2,0 -1,0",
    ". 1,0 2,0 2,0 1,0 1,0 1,0 1,0 . . . . . -1,0 -1,0 -1,0 -1,0 -2,0 -2,0 -1,0",
    ". 1,0 2,0 2,0 1,0 1,0 1,0 1,0 . . . . . -1,0 -1,0 -1,0 -1,0 -2,0 -2,0 -1,0",
    ". 1,0 1,0 1,0 1,0 1,0 1,-1 1,-1 0,-1 0,-1 0,-1 0,-1 0,-1 -1,-1 -1,-1 -1,0 -1,0 -1,0 -1,0 -1,0",
    ". . 1,0 1,-1 1,-1 1,-1 1,-1 1,-1 0,-1 0,-1 0,-1 0,-1 0,-1 -1,-1 -1,-1 -1,-1 -1,-1 -1,-1 -1,0 .",
    ". . 1,0 1,-1 1,-1 1,-1 1,-1 0,-1 0,-1 0,-1 0,-1 0,-1 0,-1 0,-1 -1,-1 -1,-1 -1,-1 -1,-1 -1,0 .",
    ". . . 1,-1 1,-1 1,-1 1,-1 0,-1 0,-1 0,-1 0,-1 0,-1 0,-1 0,-1 -1,-1 -1,-1 -1,-1 -1,-1 . .",
    ". . . . 1,-1 1,-1 1,-1 0,-1 0,-2 0,-2 0,-2 0,-2 0,-2 0,-1 -1,-1 -1,-1 -1,-1 . . .",
    ". . . . . 0,-1 0,-1 0,-1 0,-2 0,-2 0,-2 0,-2 0,-2 0,-1 0,-1 0,-1 . . . .",
    ". . . . . . . 0,-1 0,-1 0,-1 0,-1 0,-1 0,-1 0,-1 . . . . . .",
};

// A source of every depth with no two pixels alike in the area used.
HGLOBAL source(int w, int h, int bits) {
    return make(w, h, bits, [bits](int x, int y) {
        if (bits == 8) return Bgra{std::uint8_t(x + y * 13), 0, 0, 0};
        return Bgra{std::uint8_t(x * 11), std::uint8_t(y * 11), std::uint8_t(x * y), std::uint8_t(x * 7 + y * 3)};
    }, palette256());
}

}  // namespace

TEST(BubblesEffect, MapMatchesTheLensTableEntryForEntry) {
    const long live = plat::liveBlocks();
    BubbleMapEntry* map = MakeBubbleMap(20, 20);
    ASSERT_NE(map, nullptr);
    for (int j = 0; j < 20; ++j) {
        std::string row;
        for (int i = 0; i < 20; ++i) {
            const int dx = map[j * 20 + i].x - i, dy = map[j * 20 + i].y - j;
            row += (i ? " " : "") + (dx || dy ? std::to_string(dx) + "," + std::to_string(dy) : ".");
        }
        EXPECT_EQ(row, kLensOffsets[j]) << "row " << j;
    }
    plat::localFree(map);
    EXPECT_EQ(plat::liveBlocks(), live);
    plat::failAllocationAfter(1);
    EXPECT_EQ(MakeBubbleMap(20, 20), nullptr);
    plat::failAllocationAfter(0);
}

// Every pixel against a picture built through the lens map (checked above):
// the background of the source's depth (its colours for 8 bits, black for 24,
// the source itself, alpha included, for 32), then bubbles displaced by two
// draws each from the sequence seeded with 0 (x, then y, also when nothing
// moves), shifted inward at the left and bottom, cut at the right and top with
// reads past the edge taken from the last column or row, painted band by band
// and left to right, later ones replacing earlier ones; one row tick per band.
TEST(BubblesEffect, BubblesCopyThroughTheLensInOrder) {
    BubbleMapEntry* lens = MakeBubbleMap(20, 20);
    struct Case { int w, h; std::uint16_t number, randomness; };
    const Case cases[] = {{61, 47, 0, 255}, {30, 33, 128, 100}, {5, 44, 255, 255}, {37, 29, 255, 0},
                          {40, 31, 128, 0}, {19, 19, 0, 15},    {1, 30, 0, 0},     {30, 1, 255, 0}};
    int gaps = 0;
    for (int bits : {8, 24, 32}) {
        for (const Case& c : cases) {
            Owned src(source(c.w, c.h, bits));
            const View in(src);
            std::vector<Bgra> want;
            for (int y = 0; y < c.h; ++y)
                for (int x = 0; x < c.w; ++x) want.push_back(bits == 24 ? Bgra{0, 0, 0, 255} : in.at(x, y));
            const int spacing = (255 - c.number) / 16 + 2, jitter = c.randomness >> 4, span = 2 * jitter + 1;
            plat::srand(0);
            long bands = 0;
            for (int y = 0; y < c.h; y += spacing, ++bands)
                for (int x = 0; x < c.w; x += spacing) {
                    const int x0 = std::max(x + jitter - plat::rand() % span, 0);
                    const int y0 = std::max(y + jitter - plat::rand() % span, 0);
                    for (int j = 0; j < 20 && y0 + j < c.h; ++j)
                        for (int i = 0; i < 20 && x0 + i < c.w; ++i) {
                            const BubbleMapEntry e = lens[j * 20 + i];   // reads past the edge take the last
                            want[std::size_t((y0 + j) * c.w + x0 + i)] =
                                in.at(std::min(x0 + e.x, c.w - 1), std::min(y0 + e.y, c.h - 1));
                        }
                }
            const int nextDraw = plat::rand();
            const long ticks = standalone::operationCounts().rowTicks;
            Owned out(runFilter(kBubbles, src, 0, c.number, c.randomness));
            ASSERT_NE(out.h, nullptr);
            const View v(out);
            SCOPED_TRACE("size " + std::to_string(c.w) + "x" + std::to_string(c.h) + " bits " + std::to_string(bits));
            EXPECT_EQ(v.header().biBitCount, bits == 32 ? 32 : 24);
            EXPECT_EQ(firstDifference(v, [&](int x, int y) { return want[std::size_t(y * c.w + x)]; }), "");
            EXPECT_EQ(standalone::operationCounts().rowTicks - ticks, bands);
            EXPECT_EQ(plat::rand(), nextDraw) << "two draws per bubble";
            if (bits == 24) gaps += int(std::count(want.begin(), want.end(), Bgra{0, 0, 0, 255}));
        }
    }
    EXPECT_GT(gaps, 0) << "the cases leave gaps";
    plat::localFree(lens);
}

// The output (first allocation) and the map (second) may each fail: the
// message is shown, nothing stays allocated. Refused pictures give 0 quietly.
TEST(BubblesEffect, MemoryFailuresAndRefusals) {
    MessageCapture messages;
    Owned src(source(30, 30, 24));
    for (long n : {1, 2}) EXPECT_TRUE(failsCleanly(n, [&] { return runFilter(kBubbles, src, 0, 128, 0); })) << n;
    EXPECT_EQ(messages.messages, std::vector<std::string>(2, "Not enough memory to complete operation"));
    Owned compressed(withHeader(source(4, 4, 32), [](BITMAPINFOHEADER& h) { h.biCompression = 3; }));
    EXPECT_EQ(runFilter(kBubbles, compressed, 0, 128, 0), nullptr);
    EXPECT_EQ(messages.messages.size(), 2u);
}
