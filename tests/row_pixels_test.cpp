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

// Posterize's multiply-shift levels equal the two truncating divisions for
// every level count they serve and every channel value.
TEST(RowPixels, PosterLevelsMatchTheDivisions) {
    for (unsigned n = 2; n <= rowpx::PosterLevels::kMaxLevels; ++n) {
        const rowpx::PosterLevels level(n);
        for (unsigned ch = 0; ch < 256; ++ch)
            if (level(std::uint16_t(ch)) != (ch * n) / 255 * 255 / n) FAIL() << "N " << n << ", channel " << ch;
    }
}

// The word-wide alpha mix equals the per-channel rule for every source value,
// effect value and alpha, in every byte position, and keeps the source alpha.
TEST(RowPixels, MixPixelMatchesTheAlphaMixEverywhere) {
    for (unsigned a = 0; a < 256; ++a)
        for (unsigned s = 0; s < 256; ++s)
            for (unsigned v = 0; v < 256; ++v) {
                const std::uint32_t sp = a << 24 | s << 16 | (255 - s) << 8 | s;
                const std::uint32_t vp = (255 - a) << 24 | v << 16 | (v ^ 0x5A) << 8 | v;   // value alpha is ignored
                const std::uint32_t m = rowpx::mixPixel(sp, vp);
                const std::uint32_t want = a << 24 | std::uint32_t(px::alphaMix(s, v, a)) << 16 |
                                           std::uint32_t(px::alphaMix(255 - s, v ^ 0x5A, a)) << 8 |
                                           px::alphaMix(s, v, a);
                if (m != want) FAIL() << "s " << s << ", v " << v << ", a " << a;
            }
}
