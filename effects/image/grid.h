// The grid shared by the mark and bubble effects: spacing from the "Number"
// slider, random displacement from "Randomness", and where a displaced cell lands.
#pragma once

#include <cstdint>

#include "platform/random.h"

namespace grid {

// 2 for Number 255, 9 for 128, 17 for 0 (sliders 0..255).
constexpr int kMaxSpacing = 17;
inline int spacing(std::uint16_t number) { return (255 - int(number)) / 16 + 2; }

// Largest displacement in pixels, 0..15.
inline std::uint16_t jitter(std::uint16_t randomness) { return static_cast<std::uint16_t>(randomness >> 4); }

// The pixels a patch of patchWidth x patchHeight covers once displaced: columns
// x0 .. x0 + cols - 1 of rows y0 .. y0 + rows - 1. Empty when cols or rows is 0 or less.
struct Area {
    int x0, y0;
    int cols, rows;
    bool empty() const { return cols <= 0 || rows <= 0; }
};

// Draws the displacement (x first, then y; two draws even when jitter is 0),
// shifts a patch below column or row 0 inward and cuts it at the right and top.
inline Area place(plat::Random& random, int x, int y, int width, int height, int jitter, int patchWidth,
                  int patchHeight) {
    const int span = 2 * jitter + 1;
    const int dx = jitter - random.rand() % span;
    const int dy = jitter - random.rand() % span;
    Area a;
    a.x0 = x + dx < 0 ? 0 : x + dx;
    a.y0 = y + dy < 0 ? 0 : y + dy;
    const int x1 = a.x0 + patchWidth - 1 < width - 1 ? a.x0 + patchWidth - 1 : width - 1;
    const int y1 = a.y0 + patchHeight - 1 < height - 1 ? a.y0 + patchHeight - 1 : height - 1;
    a.cols = x1 - a.x0 + 1;
    a.rows = y1 - a.y0 + 1;
    return a;
}

}  // namespace grid
