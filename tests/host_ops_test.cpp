// The host operations the Linux front ends provide: the picture mix, and the
// colour operations against their definitions written out pixel by pixel.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/picture_support.h"

using namespace testpic;

namespace {

using ColourOp = HGLOBAL (*)(HGLOBAL);
struct NamedOp {
    const char* name;
    ColourOp op;
};
const NamedOp kOps[] = {{"Smooth", hostops::smooth}, {"Simplify", hostops::simplify}, {"Soften", hostops::soften}};

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

// Every pixel of every operation on pictures of odd sizes and every depth, with
// strong contrast and with gentle variation within Smooth's reach; the input
// stays as it was.
TEST(ColourOps, EveryPixelFollowsThePlainOperation) {
    auto gentle = [](int x, int y) {
        const int i = (x % 16) * 15 + y % 15;
        return Bgra{std::uint8_t(90 + (i * 7) % 53), std::uint8_t(120 + (i * 11) % 37), std::uint8_t(60 + (i * 5) % 71),
                    std::uint8_t(x * 29 + y * 53)};
    };
    for (const NamedOp& op : kOps)
        for (const auto& size : {std::pair<int, int>{1, 1}, {2, 3}, {7, 1}, {1, 7}, {37, 23}, {300, 5}})
            for (int bits : {8, 24, 32})
                for (bool strong : {true, false}) {
                    Owned src(make(size.first, size.second, bits, strong ? pattern : gentle,
                                   bits == 8 ? palette256() : std::vector<Bgra>{}));
                    const View in(src);
                    const auto before = in.bytes();
                    Owned out(op.op(src));
                    ASSERT_NE(out.h, nullptr);
                    EXPECT_EQ(in.bytes(), before);
                    const View v(out);
                    EXPECT_EQ(v.header().biBitCount, bits == 32 ? 32 : 24);
                    for (int y = 0; y < size.second; ++y)
                        for (int x = 0; x < size.first; ++x)
                            ASSERT_EQ(v.at(x, y), plainColourOp(op.name, in, x, y))
                                << op.name << " " << size.first << "x" << size.second << " " << bits << " bits at " << x
                                << "," << y;
                }
}

TEST(ColourOps, RefusedPicturesAndMemoryFailures) {
    Owned bad(make(4, 4, 24, pattern));
    static_cast<BITMAPINFOHEADER*>(plat::globalLock(bad))->biBitCount = 16;
    plat::globalUnlock(bad);
    Owned good(make(33, 21, 32, pattern));
    for (const NamedOp& op : kOps) {
        EXPECT_EQ(op.op(bad), nullptr) << op.name;
        EXPECT_EQ(op.op(nullptr), nullptr) << op.name;
        for (long n : {1, 2}) {   // working memory, then the result
            const long live = plat::liveBlocks();
            plat::failAllocationAfter(n);
            HGLOBAL out = op.op(good);
            plat::failAllocationAfter(0);
            EXPECT_EQ(out, nullptr) << op.name << " failure " << n;
            EXPECT_EQ(plat::liveBlocks(), live);
        }
    }
}

// out = (first * (16384 - w) + second * w) >> 14 per byte, in the second's format.
TEST(PictureMix, WeightsFormatsAndPadding) {
    const auto table = palette256();
    Owned first(make(3, 2, 8, [](int x, int y) { return Bgra{std::uint8_t(x + 3 * y), 0, 0, 0}; }, table));
    Owned second(make(3, 2, 24, pattern));
    View s(second);
    for (std::uint32_t w : {0u, 1u, 8192u, 16383u, 16384u}) {
        Owned mixed(hostops::mix(first, second, w));
        ASSERT_NE(mixed.h, nullptr);
        View m(mixed);
        EXPECT_EQ(m.header().biBitCount, 24);
        for (int y = 0; y < 2; ++y) {
            for (int x = 0; x < 3; ++x) {
                const Bgra f = table[std::size_t(x + 3 * y)], sp = s.at(x, y), o = m.at(x, y);
                EXPECT_EQ(o.b, (f.b * (16384 - w) + sp.b * w) >> 14);
                EXPECT_EQ(o.r, (f.r * (16384 - w) + sp.r * w) >> 14);
            }
            EXPECT_EQ(m.row(y)[9], 0);   // padding
        }
    }
    // 32-bit pictures mix all four bytes; mismatched sizes or depths are refused.
    Owned a32(make(2, 2, 32, [](int, int) { return Bgra{0, 100, 200, 0}; }));
    Owned b32(make(2, 2, 32, [](int, int) { return Bgra{255, 0, 100, 255}; }));
    Owned m32(hostops::mix(a32, b32, 4096));
    EXPECT_EQ(View(m32).at(1, 1), (Bgra{63, 75, 175, 63}));
    Owned small(make(2, 1, 24, pattern));
    EXPECT_EQ(hostops::mix(small, second, 100), nullptr);
    Owned b24(make(2, 2, 24, pattern));
    EXPECT_EQ(hostops::mix(a32, b24, 100), nullptr);
}
