// Tone effects: Solarize, Posterize and the hidden Lens Flare; also EmptyRow.
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
template <bool Alpha>
void solarizeRow(const std::uint8_t* s, std::uint8_t* out, unsigned width, unsigned threshold) {
    constexpr unsigned step = Alpha ? 4 : 3;
    for (unsigned x = 0; x < width; ++x, s += step, out += step) {
        const unsigned mask = luminanceAt(s) >= threshold ? 255u : 0u;   // invert, or keep
        put<Alpha>(out, s, Alpha ? s[3] : 0u, s[0] ^ mask, s[1] ^ mask, s[2] ^ mask);
    }
}
}  // namespace

FLR_ROW(SolarizeLine2) {
    (void)carry;
    if (frame.hasAlpha)
        solarizeRow<true>(frame.rows[y], out, frame.width, solarizeThreshold(frame.progress));
    else
        solarizeRow<false>(frame.rows[y], out, frame.width, solarizeThreshold(frame.progress));
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

FLR_ROW(PosterizeLine2) {
    (void)carry;
    const std::uint8_t* level = frame.table;
    const bool alpha = frame.hasAlpha;
    const unsigned step = alpha ? 4 : 3;
    const std::uint8_t* s = frame.rows[y];
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
