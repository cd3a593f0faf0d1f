// Tone effects: Solarize, Posterize and the hidden Lens Flare; also EmptyRow.
#include "effects/rows/row_effects.h"
#include "effects/rows/row_pixels.h"
#include "engine/pixel.h"
#include "engine/render_state.h"

FLR_ROW1(EmptyRow) {
    (void)y, (void)progress, (void)width, (void)height, (void)rows, (void)out, (void)colourTable;
}
FLR_ROW2(EmptyRow) {
    (void)y, (void)progress, (void)width, (void)height, (void)rows, (void)out, (void)hasAlpha;
}

namespace {

using namespace rowpx;

inline unsigned solarizeThreshold(std::uint32_t progress) { return 255u - ((progress * 255u) >> 14); }

// Posterize levels: each channel becomes one of N + 1 values, k * 255 / N.
struct PosterizeLut {
    std::uint8_t v[256];
    explicit PosterizeLut(unsigned p1) {
        const unsigned n = (p1 >> 4) + 1;
        for (unsigned ch = 0; ch < 256; ++ch) v[ch] = static_cast<std::uint8_t>(((ch * n) / 255) * 255 / n);
    }
};

inline unsigned posterizeParam() {
    const unsigned p1 = renderState().p1;
    return p1 > 255 ? 255 : p1;
}

}  // namespace

FLR_ROW1(SolarizeLine1) {
    (void)height;
    const unsigned t = solarizeThreshold(progress);
    const std::uint8_t* s = rows[y];
    for (unsigned x = 0; x < width; ++x, out += 3) {
        const std::uint8_t* c = colourTable + 4u * s[x];
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

FLR_ROW2(SolarizeLine2) {
    (void)height;
    if (hasAlpha)
        solarizeRow<true>(rows[y], out, width, solarizeThreshold(progress));
    else
        solarizeRow<false>(rows[y], out, width, solarizeThreshold(progress));
}

FLR_ROW1(PosterizeLine1) {
    (void)height, (void)progress;
    const PosterizeLut lut(posterizeParam());
    const std::uint8_t* s = rows[y];
    for (unsigned x = 0; x < width; ++x, out += 3) {
        const std::uint8_t* c = colourTable + 4u * s[x];
        out[0] = lut.v[c[0]];
        out[1] = lut.v[c[1]];
        out[2] = lut.v[c[2]];
    }
}

FLR_ROW2(PosterizeLine2) {
    (void)height, (void)progress;
    const PosterizeLut lut(posterizeParam());
    const bool alpha = hasAlpha != 0;
    const unsigned step = alpha ? 4 : 3;
    const std::uint8_t* s = rows[y];
    for (unsigned x = 0; x < width; ++x, s += step, out += step)
        putPixel(out, s, lut.v[s[0]], lut.v[s[1]], lut.v[s[2]], alpha);
}

// Lens Flare has no palette form: its rows stay as allocated.
FLR_ROW1(LensFlareLine1) {
    (void)y, (void)progress, (void)width, (void)height, (void)rows, (void)out, (void)colourTable;
}

namespace {
// Zoom about the centre by 1 - progress / 100, clamped to the picture.
inline int lensSource(int d, int half, std::uint32_t progress, int size) {
    int v = half + d - (d * static_cast<int>(progress)) / 100;
    return v < 0 ? 0 : (v >= size ? size - 1 : v);
}
}  // namespace

// Steps whole pixels: 3 bytes, or 4 with the sampled pixel's alpha for 32-bit sources.
FLR_ROW2(LensFlareLine2) {
    const int hx = width >> 1, hy = height >> 1;
    const std::uint8_t* s = rows[lensSource(int(y) - hy, hy, progress, height)];
    const unsigned step = hasAlpha ? 4 : 3;
    for (int x = 0; x < width; ++x, out += step) {
        const std::uint8_t* p = s + step * unsigned(lensSource(x - hx, hx, progress, width));
        for (unsigned k = 0; k < step; ++k) out[k] = p[k];
    }
}
