// Kaleidoscope's folding on even widths, which the conformance pictures (odd
// widths above two pixels) leave out: each output pixel must be the source
// pixel that the fold and the diagonal reflection name, moved by the progress.
#include <gtest/gtest.h>

#include "tests/picture_support.h"

using namespace testpic;

namespace {

struct Point {
    int x, y;
};

Point foldedSource(int x, int y, int w, int h, int progress) {
    const int yFold = y <= h / 2 ? y : h - 1 - y, xFold = x <= w / 2 ? x : w - 1 - x;
    int xs = xFold, ys = yFold;
    if (xFold > w * yFold / h) {
        xs = (w - 1) * yFold / (h - 1);
        ys = (h - 1) * xFold / (w - 1);
    }
    const int q = 16384 - progress;
    return {xs + (x - xs) * q / 16384, ys + (y - ys) * q / 16384};
}

}  // namespace

TEST(Displacement, KaleidoscopeFoldsEvenAndOddWidths) {
    const unsigned effect = effectNamed("Kaleidoscope");
    const Point sizes[] = {{4, 3}, {10, 6}, {64, 9}, {65, 8}, {130, 40}};
    for (const Point size : sizes)
        for (const int bits : {8, 24})
            for (const int progress : {16384, 9000}) {
                const Owned source(make(size.x, size.y, bits, pattern, palette256()));
                const Owned result(render(effect, source, std::uint32_t(progress)).picture);
                ASSERT_TRUE(result.h);
                const View in(source), out(result);
                int wrong = 0;
                for (int y = 0; y < size.y; ++y)
                    for (int x = 0; x < size.x; ++x) {
                        const Point s = foldedSource(x, y, size.x, size.y, progress);
                        wrong += !(out.at(x, y) == in.at(s.x, s.y));
                    }
                EXPECT_EQ(wrong, 0) << size.x << "x" << size.y << " at " << bits << " bits, progress " << progress;
            }
}
