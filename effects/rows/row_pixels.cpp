// Row loops shared by the point effects, written for the auto-vectoriser.
#include "effects/rows/row_pixels.h"

namespace rowpx {

namespace {

// Pixels per run whose alphas are looked at together: a run that is all 255
// keeps its values, one that is all 0 takes the source, others mix pixel by pixel.
constexpr std::size_t kMixRun = 16;

#if defined(__GNUC__)
// Eight pixels as words in vector lanes (two or four registers where the
// target has narrower ones).
typedef std::uint32_t Words8 __attribute__((vector_size(32)));
typedef std::uint32_t Words4 __attribute__((vector_size(16)));

// The AND and the OR of the alphas of the run of pixels at p.
inline void runAlphas(const std::uint8_t* p, std::uint32_t& all, std::uint32_t& any) {
    Words8 a = {}, b = {};
    std::memcpy(&a, p, 32);
    std::memcpy(&b, p + 32, 32);
    const Words8 and8 = a & b, or8 = a | b;
    Words4 andLo, andHi, orLo, orHi;
    std::memcpy(&andLo, &and8, 16), std::memcpy(&andHi, reinterpret_cast<const char*>(&and8) + 16, 16);
    std::memcpy(&orLo, &or8, 16), std::memcpy(&orHi, reinterpret_cast<const char*>(&or8) + 16, 16);
    const Words4 and4 = andLo & andHi, or4 = orLo | orHi;
    all = (and4[0] & and4[1] & and4[2] & and4[3]) >> 24;
    any = (or4[0] | or4[1] | or4[2] | or4[3]) >> 24;
}

// Alpha 255 into every pixel of the run at p.
inline void setAlphas(std::uint8_t* p) {
    for (unsigned h = 0; h < 2; ++h) {
        Words8 w = {};
        std::memcpy(&w, p + 32 * h, 32);
        w |= 0xFF000000u;
        std::memcpy(p + 32 * h, &w, 32);
    }
}
#else
inline void runAlphas(const std::uint8_t* p, std::uint32_t& all, std::uint32_t& any) {
    std::uint32_t a = 0xFFFFFFFFu, o = 0;
    for (std::size_t k = 0; k < kMixRun; ++k) a &= loadPixel(p + 4 * k), o |= loadPixel(p + 4 * k);
    all = a >> 24, any = o >> 24;
}
inline void setAlphas(std::uint8_t* p) {
    for (std::size_t k = 0; k < kMixRun; ++k) storePixel(p + 4 * k, loadPixel(p + 4 * k) | 0xFF000000u);
}
#endif
static_assert(kMixRun == 16, "a run is two groups of eight pixels");

}  // namespace

FLAIRIZE_CLONES
void mixRowInPlace(const std::uint8_t* __restrict s, std::uint8_t* __restrict out, unsigned count) {
    std::size_t i = 0;
    for (; i + kMixRun <= count; i += kMixRun) {
        const std::uint8_t* sr = s + 4 * i;
        std::uint8_t* o = out + 4 * i;
        std::uint32_t all, any;
        runAlphas(sr, all, any);
        if (all == 255) {   // the values themselves, with the source's alpha 255
            setAlphas(o);
        } else if (any == 0) {
            std::memcpy(o, sr, 4 * kMixRun);
        } else {
            for (std::size_t k = 0; k < kMixRun; ++k)
                storePixel(o + 4 * k, mixPixel(loadPixel(sr + 4 * k), loadPixel(o + 4 * k)));
        }
    }
    for (; i < count; ++i) storePixel(out + 4 * i, mixPixel(loadPixel(s + 4 * i), loadPixel(out + 4 * i)));
}

FLAIRIZE_CLONES
void mixRowWithColour(const std::uint8_t* __restrict s, std::uint32_t v, std::uint8_t* __restrict out, unsigned count) {
    std::size_t i = 0;
    for (; i + kMixRun <= count; i += kMixRun) {
        const std::uint8_t* sr = s + 4 * i;
        std::uint8_t* o = out + 4 * i;
        std::uint32_t all, any;
        runAlphas(sr, all, any);
        if (all == 255) {
            for (std::size_t k = 0; k < kMixRun; ++k) storePixel(o + 4 * k, v | 0xFF000000u);
        } else if (any == 0) {
            std::memcpy(o, sr, 4 * kMixRun);
        } else {
            for (std::size_t k = 0; k < kMixRun; ++k) storePixel(o + 4 * k, mixPixel(loadPixel(sr + 4 * k), v));
        }
    }
    for (; i < count; ++i) storePixel(out + 4 * i, mixPixel(loadPixel(s + 4 * i), v));
}

FLAIRIZE_CLONES
void mixRowByValueAlpha(const std::uint8_t* __restrict s, std::uint8_t* __restrict out, unsigned count) {
    std::size_t i = 0;
    for (; i + kMixRun <= count; i += kMixRun) {
        const std::uint8_t* sr = s + 4 * i;
        std::uint8_t* o = out + 4 * i;
        std::uint32_t all, any;
        runAlphas(o, all, any);
        if (all == 255) continue;   // the values themselves, alpha and all
        if (any == 0) {             // the source's colours under alpha 0
            for (std::size_t k = 0; k < kMixRun; ++k) o[4 * k] = sr[4 * k], o[4 * k + 1] = sr[4 * k + 1], o[4 * k + 2] = sr[4 * k + 2];
            continue;
        }
        for (std::size_t k = 0; k < kMixRun; ++k) {
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
