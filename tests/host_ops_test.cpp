// The picture mix the Linux front ends provide: the pairs it refuses. (Its
// results, and the colour operations, are checked by the conformance check.)
#include <gtest/gtest.h>

#include "tests/picture_support.h"

using namespace testpic;

// Pictures of other sizes or of other depths, and an 8-bit second picture, are
// refused as bad pictures rather than read past their rows.
TEST(PictureMix, RefusesPicturesThatDoNotMatch) {
    const auto table = palette256();
    const struct {
        const char* what;
        int firstWidth, firstHeight, firstBits, secondWidth, secondHeight, secondBits;
    } pairs[] = {
        {"narrower first", 2, 2, 24, 3, 2, 24},
        {"shorter first", 3, 1, 24, 3, 2, 24},
        {"32-bit first, 24-bit second", 3, 2, 32, 3, 2, 24},
        {"24-bit first, 32-bit second", 3, 2, 24, 3, 2, 32},
        {"8-bit second", 3, 2, 24, 3, 2, 8},
    };
    for (const auto& p : pairs) {
        Owned first(make(p.firstWidth, p.firstHeight, p.firstBits, pattern, table));
        Owned second(make(p.secondWidth, p.secondHeight, p.secondBits, pattern, table));
        for (std::uint32_t weight : {0u, 8192u, 16384u}) {
            EXPECT_EQ(hostops::mix(first, second, weight), nullptr) << p.what << ", weight " << weight;
            EXPECT_EQ(hostops::lastFailure(), hostops::Failure::BadPicture) << p.what;
        }
    }
    // The same pictures in a matching pair are mixed.
    Owned first(make(3, 2, 8, pattern, table)), second(make(3, 2, 24, pattern));
    Owned mixed(hostops::mix(first, second, 8192));
    EXPECT_NE(mixed.h, nullptr);
    EXPECT_EQ(hostops::lastFailure(), hostops::Failure::None);
}
