// The picture mix the Linux front ends provide. (The colour operations are
// checked against their plain forms by the conformance check.)
#include <gtest/gtest.h>

#include "tests/picture_support.h"

using namespace testpic;

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
