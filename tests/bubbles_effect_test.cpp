#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "effects/image/bubbles.h"
#include "platform/random.h"
#include "standalone/host_context.h"
#include "tests/picture_support.h"

using namespace testpic;

namespace {

constexpr unsigned kBubbles = 36;
constexpr std::uint16_t kSpacing17 = 0;   // Number 0

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

struct Offset {
    int dx = 0, dy = 0;
};

// kLensOffsets as [j][i].
std::vector<std::vector<Offset>> lensTable() {
    std::vector<std::vector<Offset>> table;
    for (const char* row : kLensOffsets) {
        std::istringstream cells(row);
        std::vector<Offset> line;
        std::string cell;
        while (cells >> cell) {
            Offset o;
            if (cell != ".") {
                const std::size_t comma = cell.find(',');
                o.dx = std::stoi(cell.substr(0, comma));
                o.dy = std::stoi(cell.substr(comma + 1));
            }
            line.push_back(o);
        }
        table.push_back(line);
    }
    return table;
}

// The expected picture: the background of the source's depth, then bubbles
// copied through the lens in painting order, reads past the right or top edge
// taken from the last column or row.
class Expected {
public:
    Expected(const View& src, int bits) : src_(src), w_(src.width()), h_(src.height()), bits_(bits) {
        for (int y = 0; y < h_; ++y)
            for (int x = 0; x < w_; ++x) px_.push_back(bits == 24 ? Bgra{0, 0, 0, 255} : src.at(x, y));
    }
    void bubble(int x0, int y0) {
        static const auto lens = lensTable();
        for (int j = 0; j < 20 && y0 + j < h_; ++j)
            for (int i = 0; i < 20 && x0 + i < w_; ++i) {
                const Offset o = lens[std::size_t(j)][std::size_t(i)];
                at(x0 + i, y0 + j) = src_.at(std::min(x0 + i + o.dx, w_ - 1), std::min(y0 + j + o.dy, h_ - 1));
            }
    }
    Bgra& at(int x, int y) { return px_[std::size_t(y * w_ + x)]; }
    // The first pixel where `out` differs, or "" when none does.
    std::string difference(const View& out) {
        if (out.header().biBitCount != (bits_ == 32 ? 32 : 24)) return "wrong depth";
        for (int y = 0; y < h_; ++y)
            for (int x = 0; x < w_; ++x)
                if (!(out.at(x, y) == at(x, y))) return "pixel (" + std::to_string(x) + ", " + std::to_string(y) + ")";
        return "";
    }

private:
    const View& src_;
    int w_, h_, bits_;
    std::vector<Bgra> px_;
};

// A source of every depth with no two pixels alike in the area used.
HGLOBAL source(int w, int h, int bits) {
    if (bits == 8) {
        std::vector<Bgra> table(256);
        for (int i = 0; i < 256; ++i) table[std::size_t(i)] = Bgra{std::uint8_t(i), std::uint8_t(i * 3), std::uint8_t(255 - i), 0};
        return make(w, h, 8, [](int x, int y) { return Bgra{std::uint8_t(x + y * 13), 0, 0, 0}; }, table);
    }
    return make(w, h, bits, [](int x, int y) {
        return Bgra{std::uint8_t(x * 11), std::uint8_t(y * 11), std::uint8_t(x * y), std::uint8_t(x * 7 + y * 3)};
    });
}

}  // namespace

TEST(BubblesEffect, MapMatchesTheLensTableEntryForEntry) {
    const auto lens = lensTable();
    ASSERT_EQ(lens.size(), 20u);
    const long live = plat::liveBlocks();
    BubbleMapEntry* map = MakeBubbleMap(20, 20);
    ASSERT_NE(map, nullptr);
    for (int j = 0; j < 20; ++j) {
        ASSERT_EQ(lens[std::size_t(j)].size(), 20u) << "row " << j;
        for (int i = 0; i < 20; ++i) {
            const Offset o = lens[std::size_t(j)][std::size_t(i)];
            const BubbleMapEntry e = map[j * 20 + i];
            EXPECT_EQ(e.x - i, o.dx) << "column offset of (" << i << ", " << j << ")";
            EXPECT_EQ(e.y - j, o.dy) << "row offset of (" << i << ", " << j << ")";
        }
    }
    plat::localFree(map);
    EXPECT_EQ(plat::liveBlocks(), live);

    plat::failAllocationAfter(1);
    EXPECT_EQ(MakeBubbleMap(20, 20), nullptr);
    plat::failAllocationAfter(0);
}

// On the grid (Randomness below 16) with spacing 17, a 19 x 19 picture gets
// bubbles at columns and rows 0 and 17; the later ones replace the earlier
// ones. Those at 17 are cut to two columns or rows and read past the edge.
TEST(BubblesEffect, GridBubblesCopyThroughTheLens) {
    for (int bits : {8, 24, 32}) {
        Owned src(source(19, 19, bits));
        View in(src);
        Expected want(in, bits);
        for (int y = 0; y < 19; y += 17)
            for (int x = 0; x < 19; x += 17) want.bubble(x, y);
        Owned out(runFilter(kBubbles, src, 0, kSpacing17, 15));
        ASSERT_NE(out.h, nullptr);
        View v(out);
        EXPECT_EQ(want.difference(v), "") << "bits " << bits;
        // Spelled out: inside the first bubble, (2, 9) shows the source two
        // columns right; (18, 9) would read column 19 and takes column 18.
        EXPECT_EQ(v.at(2, 9), in.at(4, 9));
        EXPECT_EQ(v.at(9, 2), in.at(9, 4));
        EXPECT_EQ(v.at(18, 9), in.at(18, 9));
        EXPECT_EQ(v.at(9, 18), in.at(9, 18));
        EXPECT_EQ(v.at(10, 10), in.at(10, 10));
    }
}

// Bubbles displaced by draws from the sequence seeded with 0 (x, then y),
// painted band by band and left to right, later ones replacing earlier ones;
// gaps show the background of the source's depth: the colours of an 8-bit
// source, black for 24 bits, the source itself (alpha included) for 32 bits.
// Undisplaced bubbles at small spacings overlap many times over.
TEST(BubblesEffect, DisplacedBubblesLeaveTheBackgroundInGaps) {
    struct Case { int w, h; std::uint16_t number, randomness; };
    const Case cases[] = {{61, 47, kSpacing17, 255}, {30, 33, 128, 100}, {5, 44, 255, 255},
                          {37, 29, 255, 0},          {40, 31, 128, 0}};
    for (int bits : {8, 24, 32}) {
        for (const Case& c : cases) {
            Owned src(source(c.w, c.h, bits));
            View in(src);
            Expected want(in, bits);
            const int spacing = (255 - c.number) / 16 + 2, jitter = c.randomness >> 4, span = 2 * jitter + 1;
            plat::srand(0);
            for (int y = 0; y < c.h; y += spacing)
                for (int x = 0; x < c.w; x += spacing) {
                    const int dx = jitter - plat::rand() % span;
                    const int dy = jitter - plat::rand() % span;
                    want.bubble(std::max(x + dx, 0), std::max(y + dy, 0));
                }
            Owned out(runFilter(kBubbles, src, 0, c.number, c.randomness));
            ASSERT_NE(out.h, nullptr);
            EXPECT_EQ(want.difference(View(out)), "") << "bits " << bits << " size " << c.w << "x" << c.h;
            if (c.w == 61 && bits == 24) {
                int black = 0;
                for (int y = 0; y < c.h; ++y)
                    for (int x = 0; x < c.w; ++x) black += View(out).at(x, y) == Bgra{0, 0, 0, 255};
                EXPECT_GT(black, 0) << "the case leaves gaps";
            }
        }
    }
}

TEST(BubblesEffect, OneTickPerBandAndTwoDrawsPerBubble) {
    struct Case { int w, h; std::uint16_t number, randomness; };
    const Case cases[] = {{40, 40, 128, 0}, {40, 40, 128, 255}, {1, 30, 0, 0}, {30, 1, 255, 0}};
    for (const Case& c : cases) {
        Owned src(source(c.w, c.h, 24));
        const int spacing = (255 - c.number) / 16 + 2;
        const long bands = (c.h + spacing - 1) / spacing, cells = bands * ((c.w + spacing - 1) / spacing);
        const long ticks = standalone::operationCounts().rowTicks;
        Owned out(runFilter(kBubbles, src, 0, c.number, c.randomness));
        EXPECT_EQ(standalone::operationCounts().rowTicks - ticks, bands);
        const int next = plat::rand();
        plat::srand(0);
        for (long i = 0; i < 2 * cells; ++i) plat::rand();
        EXPECT_EQ(next, plat::rand()) << c.w << "x" << c.h;
    }
}

// The output (first allocation) and the map (second) may each fail: the
// message is shown, nothing stays allocated. Refused pictures give 0 quietly.
TEST(BubblesEffect, MemoryFailuresAndRefusals) {
    MessageCapture messages;
    Owned src(source(30, 30, 24));
    const long live = plat::liveBlocks();
    for (long n : {1, 2}) {
        plat::failAllocationAfter(n);
        HGLOBAL out = runFilter(kBubbles, src, 0, 128, 0);
        plat::failAllocationAfter(0);
        EXPECT_EQ(out, nullptr) << n;
        EXPECT_EQ(plat::liveBlocks(), live) << n;
    }
    ASSERT_EQ(messages.messages.size(), 2u);
    EXPECT_EQ(messages.messages[1], "Not enough memory to complete operation");

    Owned compressed(source(4, 4, 32));
    auto* h = static_cast<BITMAPINFOHEADER*>(plat::globalLock(compressed));
    h->biCompression = 3;
    plat::globalUnlock(compressed);
    EXPECT_EQ(runFilter(kBubbles, compressed, 0, 128, 0), nullptr);
    EXPECT_EQ(messages.messages.size(), 2u);
}
