#include <gtest/gtest.h>

#include "effects/rows/row_pixels.h"
#include "engine/pixel.h"

// The split luminance terms add up to the shifted-terms formula for every colour.
TEST(RowPixels, LuminanceTermsMatchTheFormulaForEveryColour) {
    std::uint8_t p[3];
    for (int b = 0; b < 256; ++b)
        for (int g = 0; g < 256; ++g)
            for (int r = 0; r < 256; ++r) {
                p[0] = std::uint8_t(b), p[1] = std::uint8_t(g), p[2] = std::uint8_t(r);
                if (rowpx::luminanceAt(p) != unsigned(px::luminance(b, g, r)))
                    FAIL() << b << "," << g << "," << r;
            }
}

// The multiply-shift mean equals the truncating division for every count and
// every sum it can meet.
TEST(RowPixels, ChannelMeanMatchesDivisionOverItsWholeRange) {
    for (unsigned count = 1; count <= rowpx::ChannelMean::kMaxCount; ++count) {
        const rowpx::ChannelMean mean(count);
        for (unsigned sum = 0; sum <= 255 * count; ++sum)
            if (mean(sum) != sum / count) FAIL() << sum << " / " << count;
    }
}
