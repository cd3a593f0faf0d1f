// Row loops shared by the point effects, written for the auto-vectoriser.
#include "effects/rows/row_pixels.h"

namespace rowpx {

FLAIRIZE_CLONES
void mixRowInPlace(const std::uint8_t* __restrict s, std::uint8_t* __restrict out, unsigned count) {
    for (std::size_t i = 0; i < count; ++i)
        storePixel(out + 4 * i, mixPixel(loadPixel(s + 4 * i), loadPixel(out + 4 * i)));
}

FLAIRIZE_CLONES
void mixRowWithColour(const std::uint8_t* __restrict s, std::uint32_t v, std::uint8_t* __restrict out, unsigned count) {
    for (std::size_t i = 0; i < count; ++i) storePixel(out + 4 * i, mixPixel(loadPixel(s + 4 * i), v));
}

void fillPixels3(std::uint8_t* out, const std::uint8_t bgr[3], unsigned count) {
    constexpr unsigned kRun = 32;   // pixels per copy
    std::uint8_t run[3 * kRun];
    const unsigned first = count < kRun ? count : kRun;
    for (unsigned i = 0; i < first; ++i) run[3 * i] = bgr[0], run[3 * i + 1] = bgr[1], run[3 * i + 2] = bgr[2];
    for (; count >= kRun; count -= kRun, out += 3 * kRun) std::memcpy(out, run, 3 * kRun);
    std::memcpy(out, run, 3 * std::size_t(count));
}

}  // namespace rowpx
