// Edge effects: Find Edges, Contours and Charcoal. Each carries one value per
// pixel from a row to the next: rows run in order keep them in two line buffers
// that live for one render, the row parity deciding which buffer a row writes
// and which it reads; Contours and Charcoal also work on parts of a row, for the
// row driver's tiles, with the values of the row below handed in.
#include <cstring>
#include <type_traits>

#include "effects/effects.h"
#include "effects/rows/row_pixels.h"
#include "engine/pixel.h"
#include "platform/global_memory.h"

bool EdgeBuffersInit(Frame& frame, Carry& carry) {
    const std::size_t size = 2u * std::size_t(frame.width) + 2u;
    HGLOBAL first = plat::globalAlloc(size);
    if (!first) return false;
    HGLOBAL second = plat::globalAlloc(size);
    if (!second) {
        plat::globalFree(first);
        return false;
    }
    carry.lineBlock[0] = first;
    carry.lineBlock[1] = second;
    for (int i = 0; i < 2; ++i) {
        carry.line[i] = static_cast<std::uint8_t*>(plat::globalLock(carry.lineBlock[i]));
        // Bytes 0..width read as "no row yet": 255; the rest stay 0.
        std::memset(carry.line[i], 255, std::size_t(frame.width) + 1u);
    }
    return true;
}

void EdgeBuffersDone(Carry& carry) {
    plat::globalUnlock(carry.lineBlock[1]);
    plat::globalUnlock(carry.lineBlock[0]);
    plat::globalFree(carry.lineBlock[1]);
    plat::globalFree(carry.lineBlock[0]);
    for (int i = 0; i < 2; ++i) {
        carry.lineBlock[i] = nullptr;
        carry.line[i] = nullptr;
    }
}

namespace {

using namespace rowpx;

// The source pixel itself; the alpha mix of a value with itself gives it back.
inline void keepPixel(std::uint8_t* o, const std::uint8_t* s, bool alpha) {
    o[0] = s[0];
    o[1] = s[1];
    o[2] = s[2];
    if (alpha) o[3] = s[3];
}

struct ColourSum {
    unsigned b = 0, g = 0, r = 0;
    ColourSum& operator+=(const ColourSum& o) {
        b += o.b, g += o.g, r += o.r;
        return *this;
    }
};

// Sum of column x over rows y0..y1.
template <class Rows>
inline ColourSum columnSum(const Rows& src, unsigned x, unsigned y0, unsigned y1) {
    ColourSum s;
    for (unsigned yy = y0; yy <= y1; ++yy) {
        const std::uint8_t* p = src.at(x, yy);
        s.b += p[0], s.g += p[1], s.r += p[2];
    }
    return s;
}


struct Colour {
    std::uint8_t b, g, r;
};
inline Colour effectColour(std::uint32_t c) {
    return Colour{px::colourBlue(c), px::colourGreen(c), px::colourRed(c)};
}

// Byte masks of eight 3-byte pixels: all ones over pixel k where bit k is set.
struct KeepMasks {
    std::uint8_t m[256][24];
    constexpr KeepMasks() : m{} {
        for (unsigned bits = 0; bits < 256; ++bits)
            for (unsigned j = 0; j < 24; ++j) m[bits][j] = (bits >> (j / 3)) & 1u ? 0xFF : 0;
    }
};
inline constexpr KeepMasks kKeepMasks{};

// Writes `count` pixels: source pixel i where keep[i] (0 or 1) is set, the paint colour
// elsewhere (through the alpha mix for a 32-bit source, where a kept pixel
// mixes with itself and stays as it is).
template <bool Alpha>
void keepOrPaint(const std::uint8_t* s, std::uint8_t* o, const std::uint8_t* keep, unsigned count, Colour paint) {
    if constexpr (Alpha) {
        // The paint colour mixed over every pixel in one word-wise pass, then
        // the kept pixels copied back from the source.
        mixRowWithColour(s, paint.b | unsigned(paint.g) << 8 | unsigned(paint.r) << 16, o, count);
        for (unsigned i = 0; i < count; ++i) {
            const std::uint32_t m = 0u - keep[i];
            storePixel(o + 4 * i, (loadPixel(s + 4 * i) & m) | (loadPixel(o + 4 * i) & ~m));
        }
    } else {
        // Eight pixels at a time: their keep flags pick a 24-byte mask that
        // selects between the source bytes and the paint colour's.
        std::uint8_t paint8[24];
        for (unsigned j = 0; j < 24; j += 3) paint8[j] = paint.b, paint8[j + 1] = paint.g, paint8[j + 2] = paint.r;
        unsigned i = 0;
        for (; i + 8 <= count; i += 8, s += 24, o += 24) {
            unsigned bits = 0;
            for (unsigned k = 0; k < 8; ++k) bits |= unsigned(keep[i + k]) << k;
            const std::uint8_t* m = kKeepMasks.m[bits];
            std::uint8_t source[24], result[24];
            std::memcpy(source, s, 24);
            for (unsigned j = 0; j < 24; ++j)
                result[j] = static_cast<std::uint8_t>((source[j] & m[j]) | (paint8[j] & ~m[j]));
            std::memcpy(o, result, 24);
        }
        for (; i < count; ++i, s += 3, o += 3) {
            const std::uint8_t m = static_cast<std::uint8_t>(0u - keep[i]);
            o[0] = static_cast<std::uint8_t>((s[0] & m) | (paint.b & ~m));
            o[1] = static_cast<std::uint8_t>((s[1] & m) | (paint.g & ~m));
            o[2] = static_cast<std::uint8_t>((s[2] & m) | (paint.r & ~m));
        }
    }
}

// The same for a palette source.
inline void keepOrPaint(const PaletteRows& src, unsigned x0, unsigned y, std::uint8_t* o, const std::uint8_t* keep,
                        unsigned count, Colour paint) {
    for (unsigned i = 0; i < count; ++i, o += 3)
        if (keep[i])
            keepPixel(o, src.at(x0 + i, y), false);
        else
            o[0] = paint.b, o[1] = paint.g, o[2] = paint.r;
}

// A pixel is an edge when the mean of its clipped 3 x 3 block exceeds it by at
// least 6 in red, 4 in green or 7 in blue (32 times the excess reaches 180, 128
// or 205). With n pixels in the block, mean >= c + t is sum >= n (c + t), which
// needs no division.
constexpr unsigned kEdgeBlue = 7, kEdgeGreen = 4, kEdgeRed = 6;

// The edge flag of pixel x of row y, whose block spans rows y0 .. y1.
template <class Rows>
std::uint8_t edgeAt(const Rows& src, unsigned x, unsigned y, unsigned y0, unsigned y1, unsigned width) {
    const unsigned x0 = x > 0 ? x - 1 : x, x1 = x + 1 < width ? x + 1 : x;
    ColourSum sum;
    for (unsigned xx = x0; xx <= x1; ++xx) sum += columnSum(src, xx, y0, y1);
    const unsigned n = (x1 - x0 + 1) * (y1 - y0 + 1);
    const std::uint8_t* c = src.at(x, y);
    return sum.r >= n * (c[2] + kEdgeRed) || sum.g >= n * (c[1] + kEdgeGreen) || sum.b >= n * (c[0] + kEdgeBlue);
}

// Per byte of a block of pixels, the excess that makes an edge; an alpha byte never does.
template <unsigned Step>
struct EdgeThresholds {
    std::uint16_t t[256 * Step];
    constexpr EdgeThresholds() : t{} {
        for (unsigned i = 0; i < 256; ++i) {
            t[Step * i] = kEdgeBlue, t[Step * i + 1] = kEdgeGreen, t[Step * i + 2] = kEdgeRed;
            if (Step == 4) t[Step * i + 3] = 2000;   // n (255 + 2000) stays above any sum of 9 bytes
        }
    }
};
template <unsigned Step>
inline constexpr EdgeThresholds<Step> kEdgeThresholds{};

// Edge flags of pixels 1 .. width - 2 of row y of a 24- or 32-bit picture, in
// blocks: per byte the column sums over rows y0 .. y1, the sum of three
// neighbouring columns and the test against n (centre + threshold) as plain
// loops the compiler vectorises; then per pixel any of its three channels.
template <bool Alpha>
void edgeFlagsInner(const std::uint8_t* const* rows, unsigned y, unsigned y0, unsigned y1, unsigned width,
                    std::uint8_t* flags) {
    constexpr unsigned kStep = Alpha ? 4 : 3, kBlock = 256;
    const std::uint16_t n = static_cast<std::uint16_t>(3 * (y1 - y0 + 1));
    const std::uint16_t* threshold = kEdgeThresholds<kStep>.t;
    std::uint16_t column[(kBlock + 2) * kStep];
    std::uint8_t hit[kBlock * kStep + 2], any[kBlock * kStep];
    for (unsigned x0 = 1; x0 + 1 < width; x0 += kBlock) {
        const unsigned count = width - 1 - x0 < kBlock ? width - 1 - x0 : kBlock, bytes = count * kStep;
        const unsigned first = kStep * (x0 - 1), columnBytes = bytes + 2 * kStep;   // columns x0 - 1 .. x0 + count
        const std::uint8_t* r0 = rows[y0] + first;
        for (unsigned j = 0; j < columnBytes; ++j) column[j] = r0[j];
        for (unsigned yy = y0 + 1; yy <= y1; ++yy) {
            const std::uint8_t* r = rows[yy] + first;
            for (unsigned j = 0; j < columnBytes; ++j) column[j] = static_cast<std::uint16_t>(column[j] + r[j]);
        }
        const std::uint8_t* centre = rows[y] + kStep * x0;
        for (unsigned j = 0; j < bytes; ++j) {
            const std::uint16_t sum = static_cast<std::uint16_t>(column[j] + column[j + kStep] + column[j + 2 * kStep]);
            const std::uint16_t bound = static_cast<std::uint16_t>(n * (centre[j] + threshold[j]));
            hit[j] = sum >= bound;
        }
        // A byte and the next two, which at a pixel's first byte are its three channels.
        hit[bytes] = hit[bytes + 1] = 0;
        for (unsigned j = 0; j < bytes; ++j) any[j] = static_cast<std::uint8_t>(hit[j] | hit[j + 1] | hit[j + 2]);
        for (unsigned i = 0; i < count; ++i) flags[x0 + i] = any[kStep * i];
    }
}

// Edge flags of the whole of row y.
template <class Rows>
void edgeFlags(const Rows& src, unsigned y, unsigned width, unsigned height, bool alpha, std::uint8_t* flags) {
    const unsigned y0 = y > 0 ? y - 1 : y, y1 = y + 1 < height ? y + 1 : y;
    if constexpr (std::is_same_v<Rows, DirectRows>) {
        if (width > 2) {
            flags[0] = edgeAt(src, 0, y, y0, y1, width);
            flags[width - 1] = edgeAt(src, width - 1, y, y0, y1, width);
            if (alpha)
                edgeFlagsInner<true>(src.rows, y, y0, y1, width, flags);
            else
                edgeFlagsInner<false>(src.rows, y, y0, y1, width, flags);
            return;
        }
    }
    (void)alpha;
    for (unsigned x = 0; x < width; ++x) flags[x] = edgeAt(src, x, y, y0, y1, width);
}

// Find Edges: edge pixels keep their colour, and so do their right, upper and
// upper-right neighbours; everything else is painted. Row y's flags go to its
// own buffer; those of row y - 1 are in the other.
template <class Rows>
void findEdgesRow(const Frame& frame, Carry& carry, unsigned y, const Rows& src, std::uint8_t* out, bool alpha) {
    const unsigned width = frame.width;
    if (width == 0) return;
    std::uint8_t* current = carry.line[y & 1u];
    const std::uint8_t* previous = carry.line[(y & 1u) ^ 1u];
    const Colour paint = effectColour(frame.colour);
    const unsigned step = alpha ? 4 : 3;
    edgeFlags(src, y, width, frame.height, alpha, current);

    constexpr unsigned kBlock = 512;
    std::uint8_t keep[kBlock];
    for (unsigned x0 = 0; x0 < width; x0 += kBlock) {
        const unsigned count = width - x0 < kBlock ? width - x0 : kBlock;
        // Pixel 0 has no left neighbour and no upper-right one.
        const unsigned start = x0 == 0 ? 1 : 0;
        if (start) keep[0] = current[0] | (previous[0] != 0);
        const std::uint8_t *c = current + x0 + start, *p = previous + x0 + start;
        const std::uint8_t *cLeft = c - 1, *pLeft = p - 1;
        std::uint8_t* k = keep + start;
        for (unsigned i = 0; i < count - start; ++i) k[i] = (c[i] | cLeft[i] | p[i] | pLeft[i]) != 0;
        std::uint8_t* o = out + step * x0;
        if constexpr (std::is_same_v<Rows, DirectRows>) {
            const std::uint8_t* s = src.at(x0, y);
            if (alpha)
                keepOrPaint<true>(s, o, keep, count, paint);
            else
                keepOrPaint<false>(s, o, keep, count, paint);
        } else {
            keepOrPaint(src, x0, y, o, keep, count, paint);
        }
    }
}

// Per byte of a block of pixels, masks that pick the blue, green or red term
// of the luminance; an alpha byte takes none.
template <unsigned Step>
struct ChannelMasks {
    static constexpr unsigned kBytes = 512 * Step;
    std::uint8_t blue[kBytes], green[kBytes], red[kBytes];
    constexpr ChannelMasks() : blue{}, green{}, red{} {
        for (unsigned j = 0; j < kBytes; ++j) {
            blue[j] = j % Step == 0 ? 0xFF : 0;
            green[j] = j % Step == 1 ? 0xFF : 0;
            red[j] = j % Step == 2 ? 0xFF : 0;
        }
    }
};
template <unsigned Step>
inline constexpr ChannelMasks<Step> kChannelMasks{};

// Luminance of `count` (at most 512) pixels of a 24- or 32-bit row: each byte's
// own term and the sum of a byte with the next two as plain loops, then every
// pixel's first sum.
template <unsigned Step>
void luminanceBlock(const std::uint8_t* s, unsigned count, std::uint8_t* l) {
    constexpr ChannelMasks<Step> const& m = kChannelMasks<Step>;
    std::uint8_t term[ChannelMasks<Step>::kBytes + 2], sum[ChannelMasks<Step>::kBytes];
    const unsigned bytes = count * Step;
    for (unsigned j = 0; j < bytes; ++j) {
        const std::uint8_t v = s[j];
        const std::uint8_t b = static_cast<std::uint8_t>((v >> 3) - (v >> 6));
        const std::uint8_t g = static_cast<std::uint8_t>((v >> 1) + (v >> 4) + (v >> 5));
        const std::uint8_t r = static_cast<std::uint8_t>((v >> 2) + (v >> 4) - (v >> 6) + (v >> 7));
        term[j] = static_cast<std::uint8_t>((b & m.blue[j]) | (g & m.green[j]) | (r & m.red[j]));
    }
    term[bytes] = term[bytes + 1] = 0;
    for (unsigned j = 0; j < bytes; ++j) sum[j] = static_cast<std::uint8_t>(term[j] + term[j + 1] + term[j + 2]);
    for (unsigned i = 0; i < count; ++i) l[i] = sum[Step * i];
}

// Contours: luminance smoothed with the values to the left and below; a pixel
// whose smoothed value changes its band of 32 levels against either keeps its
// colour from row `firstKeptRow` on, everything else is painted. Columns
// x0 .. x1 - 1 of row y: `next` takes the row's smoothed values (those left of
// x0 already written), `previous` holds those of row y - 1. Per block of
// pixels: the luminance, then the smoothing (a chain from left to right), then
// the band test and the output as plain loops.
template <class Rows>
void contoursPart(const Frame& frame, const Rows& src, unsigned y, unsigned x0, unsigned x1,
                  const std::uint8_t* previous, std::uint8_t* next, std::uint8_t* out, bool alpha,
                  unsigned firstKeptRow) {
    if (x0 >= x1) return;
    const Colour paint = effectColour(frame.colour);
    const unsigned step = alpha ? 4 : 3;
    const bool smooth = y >= 2, mayKeep = y >= firstKeptRow;

    constexpr unsigned kBlock = 512;
    std::uint8_t l[kBlock], keep[kBlock];
    const unsigned first = luminanceAt(src.at(0, y));
    unsigned left = x0 == 0 ? first : next[x0 - 1];
    for (unsigned b0 = x0; b0 < x1; b0 += kBlock) {
        const unsigned count = x1 - b0 < kBlock ? x1 - b0 : kBlock;
        if constexpr (std::is_same_v<Rows, DirectRows>) {
            if (alpha)
                luminanceBlock<4>(src.at(b0, y), count, l);
            else
                luminanceBlock<3>(src.at(b0, y), count, l);
        } else {
            for (unsigned i = 0; i < count; ++i) l[i] = static_cast<std::uint8_t>(luminanceAt(src.at(b0 + i, y)));
        }
        std::uint8_t* s = next + b0;
        const std::uint8_t* below = previous + b0;
        if (smooth) {
            // (floor(u / 3) + b) / 3 = (u + 3 b) / 9 in truncating division, so
            // four steps of the chain take one division after the value before
            // them, and the three values between come from it alongside.
            unsigned i = 0;
            for (; i + 4 <= count; i += 4) {
                const unsigned a0 = l[i] + below[i], a1 = l[i + 1] + below[i + 1];
                const unsigned a2 = l[i + 2] + below[i + 2], a3 = l[i + 3] + below[i + 3];
                const unsigned w1 = a0 + 3 * a1, w2 = w1 + 9 * a2, w3 = w2 + 27 * a3;
                s[i] = static_cast<std::uint8_t>((left + a0) / 3);
                s[i + 1] = static_cast<std::uint8_t>((left + w1) / 9);
                s[i + 2] = static_cast<std::uint8_t>((left + w2) / 27);
                left = (left + w3) / 81;
                s[i + 3] = static_cast<std::uint8_t>(left);
            }
            for (; i < count; ++i) {
                left = (left + l[i] + below[i]) / 3;
                s[i] = static_cast<std::uint8_t>(left);
            }
        } else {
            for (unsigned i = 0; i < count; ++i) s[i] = l[i];
        }
        if (!mayKeep) {
            std::memset(keep, 0, count);
        } else {
            unsigned i = 0;
            if (b0 == 0) keep[i++] = (((s[0] ^ first) | (below[0] ^ s[0])) & 0xE0) != 0;
            const std::uint8_t* leftOf = s - 1;   // past column 0, the value left of the block
            for (; i < count; ++i) keep[i] = (((s[i] ^ leftOf[i]) | (below[i] ^ s[i])) & 0xE0) != 0;
        }
        std::uint8_t* o = out + step * b0;
        if constexpr (std::is_same_v<Rows, DirectRows>) {
            const std::uint8_t* p = src.at(b0, y);
            if (alpha)
                keepOrPaint<true>(p, o, keep, count, paint);
            else
                keepOrPaint<false>(p, o, keep, count, paint);
        } else {
            keepOrPaint(src, b0, y, o, keep, count, paint);
        }
    }
}

// Charcoal, pixels x0 .. x1 - 1 (inside 1 .. width - 2) of an inner row of a
// 24- or 32-bit picture, in blocks: per byte the sums of each column's three
// rows, of three neighbouring columns, the mean and the clamped darkness as
// plain loops the compiler vectorises (an alpha byte goes along unused); then
// per pixel the luminance and the average with the three values below, the
// grey written out (for a 32-bit picture as words, then mixed over the source
// in one pass).
template <bool Alpha>
void charcoalBlocks(const std::uint8_t* const* rows, unsigned y, unsigned x0, unsigned x1,
                    const std::uint8_t* previous, std::uint8_t* current, std::uint8_t* out) {
    constexpr unsigned kStep = Alpha ? 4 : 3, kBlock = 256;
    const std::uint8_t *below = rows[y - 1], *own = rows[y], *above = rows[y + 1];
    std::uint16_t column[(kBlock + 2) * kStep];
    std::uint8_t light[kBlock * kStep];
    for (unsigned b0 = x0; b0 < x1; b0 += kBlock) {
        const unsigned count = x1 - b0 < kBlock ? x1 - b0 : kBlock, bytes = count * kStep;
        const unsigned first = kStep * (b0 - 1);  // columns b0 - 1 .. b0 + count
        const std::uint8_t *b = below + first, *m = own + first, *a = above + first;
        for (unsigned j = 0; j < bytes + 2 * kStep; ++j) column[j] = static_cast<std::uint16_t>(b[j] + m[j] + a[j]);
        const std::uint8_t* centre = own + kStep * b0;
        for (unsigned j = 0; j < bytes; ++j) {
            // 255 - clamp(32 (mean - centre)) in byte arithmetic: a mean above
            // the centre by d darkens by 32 d, and by 8 or more to 0.
            const std::uint16_t sum = static_cast<std::uint16_t>(column[j] + column[j + kStep] + column[j + 2 * kStep]);
            const std::uint8_t mean = static_cast<std::uint8_t>(sum / 9u);
            const std::uint8_t d = static_cast<std::uint8_t>(mean > centre[j] ? mean - centre[j] : 0);
            light[j] = static_cast<std::uint8_t>(d >= 8 ? 0 : 255 - 32 * d);
        }
        const std::uint8_t* p = previous + b0;
        std::uint8_t* c = current + b0;
        std::uint8_t* o = out + kStep * b0;
        for (unsigned i = 0; i < count; ++i) {
            const unsigned v = (unsigned(p[i]) + p[i + 1] + p[i + 2] + luminanceAt(light + kStep * i)) >> 2;
            c[i] = static_cast<std::uint8_t>(v);
            if constexpr (Alpha)
                storePixel(o + 4 * i, v * 0x010101u);
            else
                o[3 * i] = o[3 * i + 1] = o[3 * i + 2] = static_cast<std::uint8_t>(v);
        }
        if constexpr (Alpha) mixRowInPlace(centre, o, count);
    }
}

// Charcoal: dark detail of the full 3 x 3 block as grey, averaged with the three
// values of the row below one column further right, which slants the strokes.
// The outer rows and columns are white, and carry 255. Columns x0 .. x1 - 1 of
// row y: `current` takes the row's values, `previous` holds those of row
// y - 1, which the row reads up to two columns past x1 (255 past the last).
template <bool Alpha, class Rows>
void charcoalPart(const Frame& frame, const Rows& src, unsigned y, unsigned x0, unsigned x1,
                  const std::uint8_t* previous, std::uint8_t* current, std::uint8_t* out) {
    const unsigned width = frame.width, height = frame.height;
    const unsigned step = Alpha ? 4 : 3;
    auto white = [&](unsigned from, unsigned to) {
        if (from >= to) return;
        std::memset(current + from, 255, to - from);
        if constexpr (Alpha && std::is_same_v<Rows, DirectRows>) {
            mixRowWithColour(src.at(from, y), 0xFFFFFFu, out + 4 * from, to - from);
        } else {
            for (unsigned x = from; x < to; ++x) {
                const std::uint8_t* s = src.at(x, y);
                put<Alpha>(out + step * x, s, Alpha ? s[3] : 0u, 255, 255, 255);
            }
        }
    };
    if (y == 0 || y + 1 >= height || width < 3) {
        white(x0, x1);
        return;
    }
    const unsigned from = x0 > 1 ? x0 : 1, to = x1 < width - 1 ? x1 : width - 1;
    if (x0 == 0) white(0, 1);
    if (x1 == width) white(width - 1, width);
    if (from >= to) return;
    if constexpr (std::is_same_v<Rows, DirectRows>) {
        charcoalBlocks<Alpha>(src.rows, y, from, to, previous, current, out);
    } else {
        ColourSum left = columnSum(src, from - 1, y - 1, y + 1), middle = columnSum(src, from, y - 1, y + 1);
        for (unsigned x = from; x < to; ++x) {
            const ColourSum right = columnSum(src, x + 1, y - 1, y + 1);
            ColourSum sum = left;
            sum += middle;
            sum += right;
            const std::uint8_t* c = src.at(x, y);
            const int b = 255 - px::clamp255(32 * (int(sum.b / 9) - c[0]));
            const int g = 255 - px::clamp255(32 * (int(sum.g / 9) - c[1]));
            const int r = 255 - px::clamp255(32 * (int(sum.r / 9) - c[2]));
            const unsigned below = unsigned(previous[x]) + previous[x + 1] + previous[x + 2];
            const unsigned v = (below + unsigned(px::luminance(b, g, r))) >> 2;
            current[x] = static_cast<std::uint8_t>(v);
            put<Alpha>(out + step * x, c, Alpha ? c[3] : 0u, v, v, v);
            left = middle;
            middle = right;
        }
    }
}

}  // namespace

void FindEdgesBandStart(const Frame& frame, Carry& carry, std::uint16_t y) {
    // Row y reads the flags row y - 1 wrote; below row 0 the fresh buffers' 255s stand.
    if (y == 0 || frame.width == 0) return;
    std::uint8_t* flags = carry.line[(y - 1u) & 1u];
    if (frame.colourTable)
        edgeFlags(PaletteRows{frame.rows, frame.colourTable}, y - 1u, frame.width, frame.height, false, flags);
    else
        edgeFlags(DirectRows{frame.rows, frame.hasAlpha ? 4u : 3u}, y - 1u, frame.width, frame.height,
                  frame.hasAlpha, flags);
}

FLR_ROW(FindEdgesLine1) { findEdgesRow(frame, carry, y, PaletteRows{frame.rows, frame.colourTable}, out, false); }
FLR_ROW(FindEdgesLine2) {
    findEdgesRow(frame, carry, y, DirectRows{frame.rows, frame.hasAlpha ? 4u : 3u}, out, frame.hasAlpha);
}

// The palette form keeps contours from row 2 on, the direct form from row 3 on.
// Rows run in order: row y reads the values of row y - 1 from one line buffer
// and writes its own into the other.
FLR_ROW(ContoursLine1) {
    contoursPart(frame, PaletteRows{frame.rows, frame.colourTable}, y, 0, frame.width, carry.line[y & 1u],
                 carry.line[(y & 1u) ^ 1u], out, false, 2);
}
FLR_ROW(ContoursLine2) {
    contoursPart(frame, DirectRows{frame.rows, frame.hasAlpha ? 4u : 3u}, y, 0, frame.width, carry.line[y & 1u],
                 carry.line[(y & 1u) ^ 1u], out, frame.hasAlpha, 3);
}
void ContoursPart(const Frame& frame, std::uint16_t y, unsigned x0, unsigned x1, const std::uint8_t* below,
                  std::uint8_t* own, std::uint8_t* out) {
    if (frame.colourTable)
        contoursPart(frame, PaletteRows{frame.rows, frame.colourTable}, y, x0, x1, below, own, out, false, 2);
    else
        contoursPart(frame, DirectRows{frame.rows, frame.hasAlpha ? 4u : 3u}, y, x0, x1, below, own, out,
                     frame.hasAlpha, 3);
}

FLR_ROW(CharcoalLine1) {
    charcoalPart<false>(frame, PaletteRows{frame.rows, frame.colourTable}, y, 0, frame.width,
                        carry.line[(y & 1u) ^ 1u], carry.line[y & 1u], out);
}
FLR_ROW(CharcoalLine2) { CharcoalPart(frame, y, 0, frame.width, carry.line[(y & 1u) ^ 1u], carry.line[y & 1u], out); }
void CharcoalPart(const Frame& frame, std::uint16_t y, unsigned x0, unsigned x1, const std::uint8_t* below,
                  std::uint8_t* own, std::uint8_t* out) {
    if (frame.colourTable)
        charcoalPart<false>(frame, PaletteRows{frame.rows, frame.colourTable}, y, x0, x1, below, own, out);
    else if (frame.hasAlpha)
        charcoalPart<true>(frame, DirectRows{frame.rows, 4}, y, x0, x1, below, own, out);
    else
        charcoalPart<false>(frame, DirectRows{frame.rows, 3}, y, x0, x1, below, own, out);
}
