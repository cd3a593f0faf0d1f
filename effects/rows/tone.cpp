// Tone effects: Solarize, Posterize and the hidden Lens Flare; also EmptyRow.
#include <cstring>

#include "effects/effects.h"
#include "effects/rows/row_pixels.h"
#include "engine/pixel.h"

FLR_ROW(EmptyRow) { (void)frame, (void)carry, (void)y, (void)out; }

namespace {

using namespace rowpx;

inline unsigned solarizeThreshold(std::uint32_t progress) { return 255u - ((progress * 255u) >> 14); }

}  // namespace

// Posterize levels, once per render: each channel becomes one of N + 1 values, k * 255 / N.
bool PosterizeInit(Frame& frame, Carry&) {
    const unsigned n = (frame.p1 >> 4) + 1;
    for (unsigned ch = 0; ch < 256; ++ch) frame.table[ch] = static_cast<std::uint8_t>(((ch * n) / 255) * 255 / n);
    return true;
}

FLR_ROW(SolarizeLine1) {
    (void)carry;
    const unsigned t = solarizeThreshold(frame.progress);
    const std::uint8_t* s = frame.rows[y];
    for (unsigned x = 0; x < frame.width; ++x, out += 3) {
        const std::uint8_t* c = frame.colourTable + 4u * s[x];
        const bool invert = luminanceAt(c) >= t;
        out[0] = invert ? 255 - c[0] : c[0];
        out[1] = invert ? 255 - c[1] : c[1];
        out[2] = invert ? 255 - c[2] : c[2];
    }
}

namespace {

// Rows where the threshold leaves no choice: every pixel inverted.
FLAIRIZE_CLONES
void invertBytes(const std::uint8_t* __restrict s, std::uint8_t* __restrict out, unsigned count) {
    for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<std::uint8_t>(255 - s[i]);
}
// The integer luminance of one pixel from its channel values, in shifts only.
inline unsigned luminanceOf(unsigned b, unsigned g, unsigned r) {
    return (b >> 3) - (b >> 6) + (g >> 1) + (g >> 4) + (g >> 5) + (r >> 2) + (r >> 4) - (r >> 6) + (r >> 7);
}

FLAIRIZE_CLONES
void solarizeRow3(const std::uint8_t* __restrict s, std::uint8_t* __restrict out, unsigned width,
                  unsigned threshold) {
    for (std::size_t x = 0; x < width; ++x) {
        const unsigned b = s[3 * x], g = s[3 * x + 1], r = s[3 * x + 2];
        const unsigned mask = luminanceOf(b, g, r) >= threshold ? 255u : 0u;   // invert, or keep
        out[3 * x] = static_cast<std::uint8_t>(b ^ mask);
        out[3 * x + 1] = static_cast<std::uint8_t>(g ^ mask);
        out[3 * x + 2] = static_cast<std::uint8_t>(r ^ mask);
    }
}

FLAIRIZE_CLONES
void solarizeRow4(const std::uint8_t* __restrict s, std::uint8_t* __restrict out, unsigned width,
                  unsigned threshold) {
    for (std::size_t x = 0; x < width; ++x) {
        const std::uint32_t p = loadPixel(s + 4 * x);
        const unsigned l = luminanceOf(p & 255, (p >> 8) & 255, (p >> 16) & 255);
        storePixel(out + 4 * x, l >= threshold ? p ^ 0x00FFFFFFu : p);
    }
}

}  // namespace

// Luminance is at most 253: a threshold above it keeps every pixel (a pixel
// mixed with itself is itself), a threshold of 0 inverts every one.
FLR_ROW(SolarizeLine2) {
    (void)carry;
    const unsigned t = solarizeThreshold(frame.progress);
    const std::uint8_t* s = frame.rows[y];
    const unsigned width = frame.width;
    if (t > 253)
        std::memcpy(out, s, std::size_t(width) * (frame.hasAlpha ? 4 : 3));
    else if (t == 0)
        invertBytes(s, out, (frame.hasAlpha ? 4 : 3) * width);   // alpha bytes too: the mix puts them back
    else if (frame.hasAlpha)
        solarizeRow4(s, out, width, t);
    else
        solarizeRow3(s, out, width, t);
    if (frame.hasAlpha && t <= 253) mixRowInPlace(s, out, width);
}

FLR_ROW(PosterizeLine1) {
    (void)carry;
    const std::uint8_t* level = frame.table;
    const std::uint8_t* s = frame.rows[y];
    for (unsigned x = 0; x < frame.width; ++x, out += 3) {
        const std::uint8_t* c = frame.colourTable + 4u * s[x];
        out[0] = level[c[0]];
        out[1] = level[c[1]];
        out[2] = level[c[2]];
    }
}

namespace {

FLAIRIZE_CLONES
void topOnlyBytes(const std::uint8_t* __restrict s, std::uint8_t* __restrict out, unsigned count) {
    for (std::size_t i = 0; i < count; ++i) out[i] = s[i] == 255 ? 255 : 0;
}
FLAIRIZE_CLONES
void posterizeBytes(const std::uint8_t* __restrict s, std::uint8_t* __restrict out, unsigned count,
                    PosterLevels level) {
    for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<std::uint8_t>(level(s[i]));
}
}  // namespace

FLR_ROW(PosterizeLine2) {
    (void)carry;
    const unsigned n = (frame.p1 >> 4) + 1;
    const std::uint8_t* s = frame.rows[y];
    // The levels of every byte, alpha bytes too, which the alpha mix then puts back.
    const unsigned bytes = (frame.hasAlpha ? 4 : 3) * unsigned(frame.width);
    if (n == 1 || n <= PosterLevels::kMaxLevels) {
        if (n == 1)   // one level: only 255 stays, everything else is 0
            topOnlyBytes(s, out, bytes);
        else
            posterizeBytes(s, out, bytes, PosterLevels(n));
        if (frame.hasAlpha) mixRowInPlace(s, out, frame.width);
        return;
    }
    const std::uint8_t* level = frame.table;   // P1 above 255: the table the init function built
    const bool alpha = frame.hasAlpha;
    const unsigned step = alpha ? 4 : 3;
    for (unsigned x = 0; x < frame.width; ++x, s += step, out += step)
        putPixel(out, s, level[s[0]], level[s[1]], level[s[2]], alpha);
}

// Lens Flare has no palette form: its rows stay as allocated.
FLR_ROW(LensFlareLine1) { (void)frame, (void)carry, (void)y, (void)out; }

namespace {
// Zoom about the centre by 1 - progress / 100, clamped to the picture.
inline int lensSource(int d, int half, std::uint32_t progress, int size) {
    int v = half + d - (d * static_cast<int>(progress)) / 100;
    return v < 0 ? 0 : (v >= size ? size - 1 : v);
}
}  // namespace

// Steps whole pixels: 3 bytes, or 4 with the sampled pixel's alpha for 32-bit sources.
FLR_ROW(LensFlareLine2) {
    (void)carry;
    const int width = frame.width, height = frame.height, hx = width >> 1, hy = height >> 1;
    const std::uint8_t* s = frame.rows[lensSource(int(y) - hy, hy, frame.progress, height)];
    const unsigned step = frame.hasAlpha ? 4 : 3;
    for (int x = 0; x < width; ++x, out += step) {
        const std::uint8_t* p = s + step * unsigned(lensSource(x - hx, hx, frame.progress, width));
        for (unsigned k = 0; k < step; ++k) out[k] = p[k];
    }
}
