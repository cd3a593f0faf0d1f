// Row loops shared by the point effects, written for the auto-vectoriser.
#include "effects/rows/row_pixels.h"

namespace rowpx {

namespace {

// Pixels per run whose alphas are looked at together: a run that is all 255
// keeps its values, one that is all 0 takes the source, others mix pixel by pixel.
constexpr std::size_t kRun = 16;

}  // namespace

FLAIRIZE_CLONES
void mixRowInPlace(const std::uint8_t* __restrict s, std::uint8_t* __restrict out, unsigned count) {
    std::size_t i = 0;
    for (; i + kRun <= count; i += kRun) {
        const std::uint8_t* sr = s + 4 * i;
        std::uint8_t* o = out + 4 * i;
        unsigned all = 255, any = 0;
        for (std::size_t k = 0; k < kRun; ++k) all &= sr[4 * k + 3], any |= sr[4 * k + 3];
        if (all == 255) {   // the values themselves, with the source's alpha 255
            for (std::size_t k = 0; k < kRun; ++k) o[4 * k + 3] = 255;
        } else if (any == 0) {
            std::memcpy(o, sr, 4 * kRun);
        } else {
            for (std::size_t k = 0; k < kRun; ++k)
                storePixel(o + 4 * k, mixPixel(loadPixel(sr + 4 * k), loadPixel(o + 4 * k)));
        }
    }
    for (; i < count; ++i) storePixel(out + 4 * i, mixPixel(loadPixel(s + 4 * i), loadPixel(out + 4 * i)));
}

FLAIRIZE_CLONES
void mixRowWithColour(const std::uint8_t* __restrict s, std::uint32_t v, std::uint8_t* __restrict out, unsigned count) {
    std::size_t i = 0;
    for (; i + kRun <= count; i += kRun) {
        const std::uint8_t* sr = s + 4 * i;
        std::uint8_t* o = out + 4 * i;
        unsigned all = 255, any = 0;
        for (std::size_t k = 0; k < kRun; ++k) all &= sr[4 * k + 3], any |= sr[4 * k + 3];
        if (all == 255) {
            for (std::size_t k = 0; k < kRun; ++k) storePixel(o + 4 * k, v | 0xFF000000u);
        } else if (any == 0) {
            std::memcpy(o, sr, 4 * kRun);
        } else {
            for (std::size_t k = 0; k < kRun; ++k) storePixel(o + 4 * k, mixPixel(loadPixel(sr + 4 * k), v));
        }
    }
    for (; i < count; ++i) storePixel(out + 4 * i, mixPixel(loadPixel(s + 4 * i), v));
}

FLAIRIZE_CLONES
void mixRowByValueAlpha(const std::uint8_t* __restrict s, std::uint8_t* __restrict out, unsigned count) {
    std::size_t i = 0;
    for (; i + kRun <= count; i += kRun) {
        const std::uint8_t* sr = s + 4 * i;
        std::uint8_t* o = out + 4 * i;
        unsigned all = 255, any = 0;
        for (std::size_t k = 0; k < kRun; ++k) all &= o[4 * k + 3], any |= o[4 * k + 3];
        if (all == 255) continue;   // the values themselves, alpha and all
        if (any == 0) {             // the source's colours under alpha 0
            for (std::size_t k = 0; k < kRun; ++k) o[4 * k] = sr[4 * k], o[4 * k + 1] = sr[4 * k + 1], o[4 * k + 2] = sr[4 * k + 2];
            continue;
        }
        for (std::size_t k = 0; k < kRun; ++k) {
            const std::uint32_t v = loadPixel(o + 4 * k);
            storePixel(o + 4 * k, mixPixel((loadPixel(sr + 4 * k) & 0x00FFFFFFu) | (v & 0xFF000000u), v));
        }
    }
    for (; i < count; ++i) {
        const std::uint32_t v = loadPixel(out + 4 * i);
        storePixel(out + 4 * i, mixPixel((loadPixel(s + 4 * i) & 0x00FFFFFFu) | (v & 0xFF000000u), v));
    }
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
