// What the plain forms share: a source pixel by its coordinates, whatever the
// source's depth, and an output pixel written as the effects write it.
#pragma once

#include <cstdint>

#include "effects/effects.h"
#include "effects/rows/row_pixels.h"
#include "engine/pixel.h"

namespace plain {

// Blue, green, red (and, for a 32-bit source, alpha) of source pixel (x, y).
inline const std::uint8_t* sourceAt(const Frame& f, int x, int y) {
    const std::uint8_t* row = f.rows[y];
    if (f.colourTable) return f.colourTable + 4u * row[x];
    return row + (f.hasAlpha ? 4u : 3u) * unsigned(x);
}

// Writes the effect's value for pixel (x, y) into output pixel x: through the
// alpha mix over the source pixel when the source has alpha.
inline void writeAt(const Frame& f, std::uint8_t* out, int x, int y, int b, int g, int r) {
    rowpx::putPixel(out + (f.hasAlpha ? 4u : 3u) * unsigned(x), sourceAt(f, x, y), unsigned(b), unsigned(g),
                    unsigned(r), f.hasAlpha);
}

inline int clampTo(int v, int last) { return v < 0 ? 0 : (v > last ? last : v); }

// The integer luminance of a pixel's colour.
inline int luminanceOf(const std::uint8_t* p) { return px::luminance(p[0], p[1], p[2]); }

}  // namespace plain
