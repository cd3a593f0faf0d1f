// Block effects: Mosaic, Sampler and Crosshair. Each lays a grid or a fixed
// figure over the picture, anchored at its bottom-left corner or its centre.
#include <cstdint>
#include <cstring>

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

// ---- 24- and 32-bit rows, written in runs

// Pixel v (3 bytes) repeated: 8 pixels as three 8-byte words, stored whole.
struct Run8 {
    std::uint64_t w[3];
    explicit Run8(const std::uint8_t* v) {
        auto words = [](unsigned b0, unsigned b1, unsigned b2) {   // b0 b1 b2 b0 b1 b2 b0 b1
            return (std::uint64_t(b0) | std::uint64_t(b1) << 8 | std::uint64_t(b2) << 16) * 0x0001000001000001ull;
        };
        w[0] = words(v[0], v[1], v[2]);
        w[1] = words(v[2], v[0], v[1]);
        w[2] = words(v[1], v[2], v[0]);
    }
    void store(std::uint8_t* o) const {   // word by word, straight from registers
        std::memcpy(o, &w[0], 8);
        std::memcpy(o + 8, &w[1], 8);
        std::memcpy(o + 16, &w[2], 8);
    }
};

// `count` copies of the 3-byte pixel v from o on. `spare` says the byte after
// them may be written too (a later write covers it).
inline void repeatPixel3(std::uint8_t* o, const std::uint8_t* v, unsigned count, bool spare) {
    if (count >= 8) {   // whole groups of 8, the last one ending on the run's end
        const Run8 run(v);
        for (unsigned j = 0; j + 8 <= count; j += 8) run.store(o + 3 * j);
        if (count & 7) run.store(o + 3 * (count - 8));
    } else if (spare) {
        const std::uint32_t word = std::uint32_t(v[0]) | std::uint32_t(v[1]) << 8 | std::uint32_t(v[2]) << 16;
        for (unsigned j = 0; j < count; ++j) std::memcpy(o + 3 * j, &word, 4);
    } else {
        for (unsigned j = 0; j < count; ++j) std::memcpy(o + 3 * j, v, 3);
    }
}

inline std::uint32_t colourWord(const EffectColour& c) {
    return std::uint32_t(c.bgr[0]) | std::uint32_t(c.bgr[1]) << 8 | std::uint32_t(c.bgr[2]) << 16;
}

void mosaicRow2(const Frame& frame, unsigned y, std::uint8_t* out) {
    const unsigned size = (frame.progress >> 10) + 1u, width = frame.width;
    const std::uint8_t* blockRow = frame.rows[y - y % size];
    const std::uint8_t* own = frame.rows[y];
    if (!frame.hasAlpha) {
        if (size == 1) {
            std::memcpy(out, own, 3 * std::size_t(width));
            return;
        }
        for (unsigned bx = 0; bx < width; bx += size) {
            const unsigned count = width - bx < size ? width - bx : size;
            repeatPixel3(out + 3 * bx, blockRow + 3 * bx, count, bx + count < width);
        }
        return;
    }
    for (unsigned bx = 0; bx < width; bx += size) {
        const unsigned count = width - bx < size ? width - bx : size;
        mixRowWithColour(own + 4 * bx, loadPixel(blockRow + 4 * bx), out + 4 * bx, count);
    }
}

// Rows whose cells repeat with a period of `period` pixels: a byte keeps the
// source where keep has 255 and takes colour (0 where keep is 255) elsewhere.
FLAIRIZE_CLONES
void selectBytes(const std::uint8_t* __restrict s, std::uint8_t* __restrict out, std::size_t count,
                 const std::uint8_t* __restrict keep, const std::uint8_t* __restrict colour, std::size_t period) {
    for (std::size_t start = 0; start < count; start += period) {
        const std::size_t n = count - start < period ? count - start : period;
        for (std::size_t i = 0; i < n; ++i)
            out[start + i] = static_cast<std::uint8_t>((s[start + i] & keep[i]) | colour[i]);
    }
}
// The same for 4-byte pixels, the colour mixed by alpha where it is shown.
FLAIRIZE_CLONES
void selectMixRow(const std::uint8_t* __restrict s, std::uint8_t* __restrict out, std::size_t count,
                  const std::uint32_t* __restrict keep, std::uint32_t colour, std::size_t period) {
    for (std::size_t start = 0; start < count; start += period) {
        const std::size_t n = count - start < period ? count - start : period;
        for (std::size_t i = 0; i < n; ++i) {
            const std::uint32_t p = loadPixel(s + 4 * (start + i));
            storePixel(out + 4 * (start + i), (p & keep[i]) | (mixPixel(p, colour) & ~keep[i]));
        }
    }
}

void samplerRow2(const Frame& frame, unsigned y, std::uint8_t* out) {
    const unsigned width = frame.width;
    const EffectColour colour(frame.colour);
    const std::uint8_t* own = frame.rows[y];
    const unsigned n = (unsigned(frame.p1) >> 4) + 1u;
    const unsigned ym = y % n;
    if (ym == 0) {   // the cells' bottom rows: all colour
        if (frame.hasAlpha)
            mixRowWithColour(own, colourWord(colour), out, width);
        else
            fillPixels3(out, colour.bgr, width);
        return;
    }
    const bool ringRow = ym == 1 || ym == n - 1;
    constexpr unsigned kMinPeriod = 64;
    const unsigned period = n * ((kMinPeriod + n - 1) / n);   // whole cells, at most 64 + 15 pixels
    std::uint32_t keep[kMinPeriod + 16];
    for (unsigned x = 0; x < period; ++x) {
        const unsigned xm = x % n;
        keep[x] = xm != 0 && (ringRow || xm == 1 || xm == n - 1) ? 0xFFFFFFFFu : 0u;
    }
    if (frame.hasAlpha) {
        selectMixRow(own, out, width, keep, colourWord(colour), period);
        return;
    }
    std::uint8_t keepBytes[3 * (kMinPeriod + 16)], colourBytes[3 * (kMinPeriod + 16)];
    for (unsigned x = 0; x < period; ++x)
        for (unsigned k = 0; k < 3; ++k) {
            keepBytes[3 * x + k] = static_cast<std::uint8_t>(keep[x]);
            colourBytes[3 * x + k] = static_cast<std::uint8_t>(colour.bgr[k] & ~keep[x]);
        }
    selectBytes(own, out, 3 * std::size_t(width), keepBytes, colourBytes, 3 * std::size_t(period));
}

// The largest d with d * d <= v, for v >= 0.
std::int64_t floorSqrt(std::int64_t v) {
    std::int64_t lo = 0, hi = 3037000500;   // hi * hi exceeds every v that reaches here
    while (hi - lo > 1) {
        const std::int64_t mid = (lo + hi) / 2;
        (mid * mid <= v ? lo : hi) = mid;
    }
    return lo;
}

void crosshairRow2(const Frame& frame, unsigned y, std::uint8_t* out) {
    const unsigned width = frame.width, height = frame.height;
    const EffectColour colour(frame.colour);
    const std::uint8_t* own = frame.rows[y];
    const unsigned bytes = frame.hasAlpha ? 4 : 3;
    auto paint = [&](std::int64_t begin, std::int64_t end, bool show) {   // pixels begin .. end - 1
        begin = begin < 0 ? 0 : begin;
        end = end > std::int64_t(width) ? std::int64_t(width) : end;
        if (begin >= end) return;
        const std::size_t at = std::size_t(begin) * bytes;
        const auto count = static_cast<unsigned>(end - begin);
        if (show)
            std::memcpy(out + at, own + at, std::size_t(count) * bytes);
        else if (frame.hasAlpha)
            mixRowWithColour(own + at, colourWord(colour), out + at, count);
        else
            fillPixels3(out + at, colour.bgr, count);
    };
    const std::int64_t r = (width < height ? width : height) >> 1;
    const std::int64_t r2 = std::int64_t(frame.p1) * r * r / 255;   // 64 bits: exact for every size
    const std::int64_t dy = std::int64_t(y) - (height >> 1);
    const std::int64_t room = (dy >= 2 || dy <= -2) ? r2 - dy * dy : -1;
    const std::int64_t d = room >= 4 ? floorSqrt(room) : 0;   // the source shows for 2 <= |dx| <= d
    const std::int64_t cx = width >> 1;
    if (d < 2) {
        paint(0, width, false);
        return;
    }
    paint(0, cx - d, false);
    paint(cx - d, cx - 1, true);
    paint(cx - 1, cx + 2, false);
    paint(cx + 2, cx + d + 1, true);
    paint(cx + d + 1, width, false);
}

}  // namespace

FLR_ROW(MosaicLine1) {
    (void)carry;
    mosaicRow<false>(y, frame.progress, frame.width, frame.rows, out, PaletteSource{frame.colourTable}, 3);
}
FLR_ROW(MosaicLine2) {
    (void)carry;
    mosaicRow2(frame, y, out);
}

FLR_ROW(SamplerLine1) {
    (void)carry;
    samplerRow<false>(frame, y, out, PaletteSource{frame.colourTable}, 3);
}
FLR_ROW(SamplerLine2) {
    (void)carry;
    samplerRow2(frame, y, out);
}

FLR_ROW(CrosshairLine1) {
    (void)carry;
    crosshairRow<false>(frame, y, out, PaletteSource{frame.colourTable}, 3);
}
FLR_ROW(CrosshairLine2) {
    (void)carry;
    crosshairRow2(frame, y, out);
}
