// Block effects: Mosaic, Sampler and Crosshair. Each lays a grid or a fixed
// figure over the picture, anchored at its bottom-left corner or its centre.
#include <cstdint>

#include "effects/effects.h"
#include "effects/rows/row_pixels.h"
#include "engine/pixel.h"

namespace {

using namespace rowpx;

// Own source pixel s shown as it is (a pixel mixed with itself stays unchanged).
template <bool Alpha>
inline void keep(std::uint8_t* o, const std::uint8_t* s) {
    o[0] = s[0];
    o[1] = s[1];
    o[2] = s[2];
    if constexpr (Alpha) o[3] = s[3];
}

// The effect colour as the blue, green, red bytes of a pixel.
struct EffectColour {
    std::uint8_t bgr[3];
    explicit EffectColour(std::uint32_t colourRef)
        : bgr{px::colourBlue(colourRef), px::colourGreen(colourRef), px::colourRed(colourRef)} {}
};

// Mosaic: blocks of (progress >> 10) + 1 pixels from the bottom-left corner,
// each in the colour of its bottom-left pixel.
template <bool Alpha, class Source>
void mosaicRow(unsigned y, std::uint32_t progress, unsigned width, const std::uint8_t* const* rows,
               std::uint8_t* out, Source src, unsigned outStep) {
    const unsigned size = (progress >> 10) + 1u;
    const std::uint8_t* blockRow = rows[y - y % size];
    const std::uint8_t* own = rows[y];
    for (unsigned bx = 0; bx < width; bx += size) {
        const std::uint8_t* v = src(blockRow, bx);
        const unsigned end = width - bx < size ? width : bx + size;
        for (unsigned x = bx; x < end; ++x, out += outStep) put<Alpha>(out, src(own, x), v);
    }
}

// Sampler: N x N cells from the bottom-left corner; a one-pixel ring at
// positions 1 and N - 1 of each cell shows the source, the rest is the colour.
template <bool Alpha, class Source>
void samplerRow(const Frame& frame, unsigned y, std::uint8_t* out, Source src, unsigned outStep) {
    const unsigned width = frame.width;
    const std::uint8_t* const* rows = frame.rows;
    const EffectColour colour(frame.colour);
    const unsigned n = (unsigned(frame.p1) >> 4) + 1u;
    const unsigned ym = y % n;
    const bool ringRow = ym == 1 || ym == n - 1;
    const std::uint8_t* own = rows[y];
    unsigned xm = 0;
    for (unsigned x = 0; x < width; ++x, out += outStep) {
        const std::uint8_t* s = src(own, x);
        if (ym != 0 && xm != 0 && (ringRow || xm == 1 || xm == n - 1))
            keep<Alpha>(out, s);
        else
            put<Alpha>(out, s, colour.bgr);
        if (++xm == n) xm = 0;
    }
}

// Crosshair: a disc of squared radius P1 x r x r / 255 about the centre shows
// the source, except for the cross three pixels wide through the centre.
template <bool Alpha, class Source>
void crosshairRow(const Frame& frame, unsigned y, std::uint8_t* out, Source src, unsigned outStep) {
    const unsigned width = frame.width, height = frame.height;
    const std::uint8_t* const* rows = frame.rows;
    const EffectColour colour(frame.colour);
    const std::int64_t r = (width < height ? width : height) >> 1;
    const std::int64_t r2 = std::int64_t(frame.p1) * r * r / 255;   // 64 bits: exact for every size
    const std::int64_t dy = std::int64_t(y) - (height >> 1);
    // Squared distance left for dx on this row; negative closes the whole row.
    const std::int64_t room = (dy >= 2 || dy <= -2) ? r2 - dy * dy : -1;
    const std::int64_t cx = width >> 1;
    const std::uint8_t* own = rows[y];
    for (unsigned x = 0; x < width; ++x, out += outStep) {
        const std::uint8_t* s = src(own, x);
        const std::int64_t dx = std::int64_t(x) - cx;
        if ((dx >= 2 || dx <= -2) && dx * dx <= room)
            keep<Alpha>(out, s);
        else
            put<Alpha>(out, s, colour.bgr);
    }
}

}  // namespace

FLR_ROW(MosaicLine1) {
    (void)carry;
    mosaicRow<false>(y, frame.progress, frame.width, frame.rows, out, PaletteSource{frame.colourTable}, 3);
}
FLR_ROW(MosaicLine2) {
    (void)carry;
    if (frame.hasAlpha)
        mosaicRow<true>(y, frame.progress, frame.width, frame.rows, out, DirectSource{4}, 4);
    else
        mosaicRow<false>(y, frame.progress, frame.width, frame.rows, out, DirectSource{3}, 3);
}

FLR_ROW(SamplerLine1) {
    (void)carry;
    samplerRow<false>(frame, y, out, PaletteSource{frame.colourTable}, 3);
}
FLR_ROW(SamplerLine2) {
    (void)carry;
    if (frame.hasAlpha)
        samplerRow<true>(frame, y, out, DirectSource{4}, 4);
    else
        samplerRow<false>(frame, y, out, DirectSource{3}, 3);
}

FLR_ROW(CrosshairLine1) {
    (void)carry;
    crosshairRow<false>(frame, y, out, PaletteSource{frame.colourTable}, 3);
}
FLR_ROW(CrosshairLine2) {
    (void)carry;
    if (frame.hasAlpha)
        crosshairRow<true>(frame, y, out, DirectSource{4}, 4);
    else
        crosshairRow<false>(frame, y, out, DirectSource{3}, 3);
}
