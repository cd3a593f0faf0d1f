#include <gtest/gtest.h>

#include <vector>

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

// The row forms of the mix equal the per-channel rule pixel by pixel: for rows
// whose alphas are all 0, all 255, in between, or runs of each (a run of 255
// broken by one pixel of 254 included), of lengths that end inside a run of
// pixels looked at together and on its edge. Mixing by the source's alpha, with
// one colour, and by each value's own alpha.
TEST(RowPixels, RowMixesMatchTheAlphaMixPixelByPixel) {
    const struct {
        const char* what;
        std::uint8_t (*alpha)(unsigned i);
    } patterns[] = {
        {"all 0", [](unsigned) { return std::uint8_t(0); }},
        {"all 255", [](unsigned) { return std::uint8_t(255); }},
        {"in between", [](unsigned i) { return std::uint8_t(1 + (i * 37) % 254); }},
        {"long runs", [](unsigned i) { return std::uint8_t((i / 16) % 3 == 0 ? 0 : (i / 16) % 3 == 1 ? 255 : i * 11); }},
        {"short runs", [](unsigned i) { return std::uint8_t((i / 5) % 2 ? 255 : 0); }},
        {"255 but one", [](unsigned i) { return std::uint8_t(i == 20 ? 254 : 255); }},
        {"0 but one", [](unsigned i) { return std::uint8_t(i == 33 ? 1 : 0); }},
    };
    for (const auto& p : patterns)
        for (unsigned count : {1u, 15u, 16u, 17u, 31u, 32u, 33u, 50u, 100u}) {
            std::vector<std::uint8_t> s(4 * count), v(4 * count);
            for (unsigned i = 0; i < count; ++i) {
                s[4 * i] = std::uint8_t(i * 7), s[4 * i + 1] = std::uint8_t(255 - i), s[4 * i + 2] = std::uint8_t(i * 29 + 3);
                s[4 * i + 3] = p.alpha(i);
                v[4 * i] = std::uint8_t(i * 13 + 100), v[4 * i + 1] = std::uint8_t(i * 3), v[4 * i + 2] = 255;
                v[4 * i + 3] = p.alpha(count - 1 - i);   // ignored, except where the value's alpha is the mix's
            }
            const std::uint32_t colour = 0x00C86432u;   // blue 0x32, green 0x64, red 0xC8
            std::vector<std::uint8_t> inPlace(v), withColour(4 * count, 0), byValue(v);
            rowpx::mixRowInPlace(s.data(), inPlace.data(), count);
            rowpx::mixRowWithColour(s.data(), colour, withColour.data(), count);
            rowpx::mixRowByValueAlpha(s.data(), byValue.data(), count);
            for (unsigned i = 0; i < count; ++i) {
                const unsigned as = s[4 * i + 3], av = v[4 * i + 3];
                for (unsigned c = 0; c < 3; ++c) {
                    const std::uint8_t sc = s[4 * i + c];
                    ASSERT_EQ(inPlace[4 * i + c], px::alphaMix(sc, v[4 * i + c], as)) << p.what << ", " << count << ", pixel " << i;
                    ASSERT_EQ(withColour[4 * i + c], px::alphaMix(sc, (colour >> (8 * c)) & 255, as)) << p.what << ", " << count << ", pixel " << i;
                    ASSERT_EQ(byValue[4 * i + c], px::alphaMix(sc, v[4 * i + c], av)) << p.what << ", " << count << ", pixel " << i;
                }
                ASSERT_EQ(inPlace[4 * i + 3], as) << p.what;
                ASSERT_EQ(withColour[4 * i + 3], as) << p.what;
                ASSERT_EQ(byValue[4 * i + 3], av) << p.what;
            }
        }
}
