// Displacement effects: Shake, Frazzle, Reflection and Kaleidoscope. Each output
// pixel comes from source pixels found at other places of the picture.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "effects/effects.h"
#include "effects/rows/row_pixels.h"
#include "effects/rows/vector_loops.h"
#include "effects/rows/walk.h"
#include "engine/pixel.h"
#include "engine/vector_clones.h"
#include "platform/global_memory.h"

namespace {

using namespace rowpx;


// ---- Shake ----------------------------------------------------------------

// One step of the smear walk: the walker's x offset from its start and the
// (clamped) source row it stands on after the step.
struct WalkStep {
    int dx;
    const std::uint8_t* row;
};

// Light smears keep the pixel's own colour s, dark ones show.
template <bool Alpha>
inline void putShake(std::uint8_t* out, const std::uint8_t* s, unsigned ab, unsigned ag, unsigned ar) {
    const unsigned l = luminanceAt(ab, ag, ar), d = 255u - l;
    put<Alpha>(out, s, Alpha ? s[3] : 255u, (s[0] * l + ab * d) / 255u, (s[1] * l + ag * d) / 255u,
               (s[2] * l + ar * d) / 255u);
}

// The luminance of `count` smeared colours of 3 or 4 bytes.
FLR_VECTOR_LOOP void smearLuminance(const std::uint8_t* smear, unsigned count, std::uint8_t* keys) {
    luminanceRun<3>(smear, count, keys);
}
FLR_VECTOR_LOOP void smearLuminance4(const std::uint8_t* smear, unsigned count, std::uint8_t* keys) {
    luminanceRun<4>(smear, count, keys);
}

// out[i] = (own[i] l[i] + smear[i] (255 - l[i])) / 255 for i < count.
FLR_VECTOR_LOOP void keepLight(const std::uint8_t* __restrict own, const std::uint8_t* __restrict smear,
                               const std::uint8_t* __restrict l, unsigned count, std::uint8_t* __restrict out) {
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned light = l[i];
        out[i] = static_cast<std::uint8_t>((own[i] * light + smear[i] * (255u - light)) / 255u);
    }
}

// Pixels lo .. hi - 1 of a 24- or 32-bit row whose walks never leave the
// picture sideways (the steps' rows are clamped already), in blocks: every
// byte of a block folds in the byte at the same place of each step's
// (shifted) row, a plain loop the compiler vectorises; an alpha byte is
// folded along and not used.
template <bool Alpha>
void shakeBlocks(const std::uint8_t* own, const WalkStep* steps, unsigned n, unsigned lo, unsigned hi,
                 std::uint8_t* out) {
    constexpr unsigned kStep = Alpha ? 4 : 3, kBlock = 256;
    std::uint8_t acc[kBlock * kStep];  // each fold stays within 0 .. 255
    for (unsigned x0 = lo; x0 < hi; x0 += kBlock) {
        const unsigned count = hi - x0 < kBlock ? hi - x0 : kBlock, bytes = count * kStep;
        const std::uint8_t* start = own + kStep * x0;
        for (unsigned i = 0; i < bytes; ++i) acc[i] = start[i];
        auto sampleRow = [&](unsigned k) { return steps[k].row + kStep * unsigned(int(x0) + steps[k].dx); };
        unsigned k = 0;
        for (; k + 1 < n; k += 2) {  // two steps per pass over the block
            const std::uint8_t *first = sampleRow(k), *second = sampleRow(k + 1);
            for (unsigned i = 0; i < bytes; ++i) {
                const unsigned once = (first[i] + 7u * acc[i]) >> 3;
                acc[i] = static_cast<std::uint8_t>((second[i] + 7u * once) >> 3);
            }
        }
        if (k < n) {
            const std::uint8_t* sample = sampleRow(k);
            for (unsigned i = 0; i < bytes; ++i) acc[i] = static_cast<std::uint8_t>((sample[i] + 7u * acc[i]) >> 3);
        }
        // The blend over the block's bytes, each with its pixel's luminance; 4-byte
        // pixels blend their alpha bytes too, which the alpha mix then replaces.
        std::uint8_t* o = out + kStep * x0;
        std::uint8_t keys[kBlock], light[kStep * kBlock];
        if constexpr (Alpha) {
            smearLuminance4(acc, count, keys);
            for (unsigned i = 0; i < count; ++i)
                light[4 * i] = light[4 * i + 1] = light[4 * i + 2] = light[4 * i + 3] = keys[i];
        } else {
            smearLuminance(acc, count, keys);
            for (unsigned i = 0; i < count; ++i) light[3 * i] = light[3 * i + 1] = light[3 * i + 2] = keys[i];
        }
        keepLight(start, acc, light, bytes, o);
        if constexpr (Alpha) mixRowInPlace(start, o, count);
    }
}

template <bool Alpha, class Source>
void shakeRow(const Frame& frame, unsigned y, std::uint8_t* out, Source src, unsigned outStep) {
    const unsigned width = frame.width, height = frame.height;
    const std::uint8_t* const* rows = frame.rows;
    const unsigned n = ((unsigned(frame.p2) >> 3) * frame.progress) >> 14;   // the blur walk with Motion Blur's vector
    WalkPattern walk;
    layOut(motionDirection(frame.p1), int(n), Growth::None, walk);
    const int lastRow = int(height) - 1, lastColumn = int(width) - 1, ox = walk.endDx;
    WalkStep steps[kMaxSteps];
    for (unsigned k = 0; k < n; ++k) steps[k] = WalkStep{walk.dx[k], rows[clampTo(int(y) + walk.dy[k], lastRow)]};

    const std::uint8_t* own = rows[y];
    auto walkPixel = [&](unsigned x) {
        const std::uint8_t* s = src(own, x);
        unsigned ab = s[0], ag = s[1], ar = s[2];
        for (unsigned k = 0; k < n; ++k) {
            const std::uint8_t* p = src(steps[k].row, unsigned(clampTo(int(x) + steps[k].dx, lastColumn)));
            ab = (p[0] + 7u * ab) / 8u;
            ag = (p[1] + 7u * ag) / 8u;
            ar = (p[2] + 7u * ar) / 8u;
        }
        putShake<Alpha>(out + outStep * x, s, ab, ag, ar);
    };
    // The walk's x offset runs from 0 to ox, so pixels lo .. hi - 1 never reach
    // a side; a direct source takes them in blocks.
    unsigned lo = 0, hi = 0;
    if constexpr (std::is_same_v<Source, DirectSource>) {
        const int reachLeft = ox < 0 ? -ox : 0, reachRight = ox > 0 ? ox : 0;
        if (int(width) > reachLeft + reachRight) {
            lo = unsigned(reachLeft);
            hi = width - unsigned(reachRight);
        }
    }
    for (unsigned x = 0; x < lo; ++x) walkPixel(x);
    if (hi > lo) shakeBlocks<Alpha>(own, steps, n, lo, hi, out);
    for (unsigned x = hi > lo ? hi : 0; x < width; ++x) walkPixel(x);
}

// ---- Frazzle ----------------------------------------------------------------

// Helper loops stay out of line: inlined into one body they grew too large for
// the 32-bit build.
#if defined(__GNUC__)
#define FLR_NOINLINE __attribute__((noinline))
#define FLR_RESTRICT __restrict__
#define FLR_PREFETCH(p) __builtin_prefetch(p)
#else
#define FLR_NOINLINE
#define FLR_RESTRICT
#define FLR_PREFETCH(p) ((void)(p))
#endif

// r mod d for r in 0 .. 32767 and d in 1 .. 65535, as a multiply and shift:
// with 2^b >= d, shift = 15 + b and m = ceil(2^shift / d) <= 2^16, r x m stays
// below 2^31 and its error r x (m d - 2^shift) < 2^15 x d <= 2^shift is too
// small to change the quotient.
struct SmallModulo {
    std::uint32_t d, m, shift;
    explicit SmallModulo(unsigned divisor) : d(divisor) {
        unsigned b = 0;
        while ((1u << b) < divisor) ++b;
        shift = 15 + b;
        m = std::uint32_t(((std::uint64_t(1) << shift) + divisor - 1) / divisor);
    }
    std::uint32_t operator()(std::uint32_t r) const { return r - ((r * m) >> shift) * d; }
};

constexpr unsigned kFrazzleChunk = 256;   // pixels whose draws and sources are worked out together
constexpr unsigned kLanes = 16;           // draws in flight, each lane 16 draws ahead of the last

// The generator's state after each of the next 2 x kFrazzleChunk draws, in
// order; lane l holds the state of draw l of the chunk and moves on by kLanes
// draws a step, so the multiplies are independent.
FLR_NOINLINE FLAIRIZE_CLONES void frazzleDraws(std::uint32_t* FLR_RESTRICT lanes, std::uint32_t a, std::uint32_t c,
                                           std::uint32_t* FLR_RESTRICT states) {
    for (unsigned k = 0; k < 2 * kFrazzleChunk; k += kLanes)
        for (unsigned l = 0; l < kLanes; ++l) {
            states[k + l] = lanes[l];
            lanes[l] = lanes[l] * a + c;
        }
}

// Source column and row of pixels x0 .. x0 + count - 1 of row y from their
// draws. Products of the progress (at most 16384) and an offset (below 2^15)
// fit 32 bits; division truncates toward zero.
FLR_NOINLINE FLAIRIZE_CLONES void frazzleSources(const std::uint32_t* FLR_RESTRICT states, unsigned count, int x0,
                                             int y, int progress, SmallModulo modW, SmallModulo modH,
                                             std::int32_t* FLR_RESTRICT xs, std::int32_t* FLR_RESTRICT ys) {
    const std::uint32_t w = modW.d, mw = modW.m, sw = modW.shift, h = modH.d, mh = modH.m, sh = modH.shift;
    const int halfWidth = int(w >> 1), halfHeight = int(h >> 1), lastColumn = int(w) - 1, lastRow = int(h) - 1;
    for (unsigned i = 0; i < count; ++i) {
        const std::uint32_t r1 = (states[2 * i] >> 16) & 0x7FFF, r2 = (states[2 * i + 1] >> 16) & 0x7FFF;
        const int dx = int(r1 - ((r1 * mw) >> sw) * w) - halfWidth, dy = int(r2 - ((r2 * mh) >> sh) * h) - halfHeight;
        const int xs0 = x0 + int(i) + progress * dx / 16384, ys0 = y + progress * dy / 16384;
        xs[i] = xs0 < 0 ? 0 : (xs0 > lastColumn ? lastColumn : xs0);
        ys[i] = ys0 < 0 ? 0 : (ys0 > lastRow ? lastRow : ys0);
    }
}

template <bool Alpha, class Source>
void frazzleRow(const Frame& frame, unsigned y, std::uint8_t* out, Source src, unsigned sourceStep,
                unsigned outStep) {
    const unsigned width = frame.width, height = frame.height;
    const std::uint8_t* const* rows = frame.rows;
    if (width == 0 || height == 0) return;
    // The generator restarts at row 0 and draws twice per pixel, so row y
    // starts where 2 x width x y draws have left it.
    plat::Random random;
    random.srand(0);
    random.skip(2u * std::uint64_t(width) * y);
    const std::uint8_t* own = rows[y];
    if (frame.progress > 16384) {   // beyond the full effect: the products need 64 bits
        const std::int64_t p = frame.progress;
        const int halfWidth = int(width >> 1), halfHeight = int(height >> 1);
        for (unsigned x = 0; x < width; ++x, out += outStep) {
            const int dx = random.rand() % int(width) - halfWidth;
            const int dy = random.rand() % int(height) - halfHeight;
            const int xs = clampTo(int(x) + int(p * dx / 16384), int(width) - 1);
            const int ys = clampTo(int(y) + int(p * dy / 16384), int(height) - 1);
            const std::uint8_t* v = src(rows[ys], unsigned(xs));
            put<Alpha>(out, src(own, x), Alpha ? v[3] : 255u, v[0], v[1], v[2]);
        }
        return;
    }
    plat::Random lane = random, step;
    std::uint32_t lanes[kLanes];
    for (unsigned l = 0; l < kLanes; ++l) {
        lane.rand();
        lanes[l] = lane.state;
    }
    step.srand(0);   // x -> a x + c for kLanes draws at once: its c is the state kLanes draws after 0
    step.skip(kLanes);
    const std::uint32_t c = step.state;
    step.srand(1);
    step.skip(kLanes);
    const std::uint32_t a = step.state - c;
    const SmallModulo modW(width), modH(height);

    // Sources of the next chunk are worked out and fetched ahead while the
    // current chunk is written.
    std::uint32_t states[2 * kFrazzleChunk];
    std::int32_t xs[2][kFrazzleChunk], ys[2][kFrazzleChunk];
    auto prepare = [&](unsigned x0, unsigned slot) {
        const unsigned count = width - x0 < kFrazzleChunk ? width - x0 : kFrazzleChunk;
        frazzleDraws(lanes, a, c, states);
        frazzleSources(states, count, int(x0), int(y), int(frame.progress), modW, modH, xs[slot], ys[slot]);
        return count;
    };
    auto fetch = [&](unsigned slot, unsigned i) { FLR_PREFETCH(rows[ys[slot][i]] + sourceStep * unsigned(xs[slot][i])); };
    for (unsigned i = 0, count = prepare(0, 0); i < count; ++i) fetch(0, i);
    for (unsigned x0 = 0, slot = 0; x0 < width; x0 += kFrazzleChunk, slot ^= 1) {
        const unsigned count = width - x0 < kFrazzleChunk ? width - x0 : kFrazzleChunk;
        const unsigned ahead = x0 + kFrazzleChunk < width ? prepare(x0 + kFrazzleChunk, slot ^ 1) : 0;
        const std::int32_t *cx = xs[slot], *cy = ys[slot];
        std::uint8_t* const chunk = out;
        for (unsigned i = 0; i < count; ++i, out += outStep) {
            if (i < ahead) fetch(slot ^ 1, i);   // the next chunk's source, one chunk ahead
            const std::uint8_t* v = src(rows[cy[i]], unsigned(cx[i]));
            if constexpr (Alpha)
                storePixel(out, loadPixel(v));   // mixed over the chunk below, by its own alpha
            else
                put<false>(out, nullptr, 0, v[0], v[1], v[2]);
        }
        if constexpr (Alpha) mixRowByValueAlpha(own + 4u * x0, chunk, count);
    }
}

// ---- Reflection ---------------------------------------------------------------

// Shift of a row: wave x progress / 16384 truncated toward zero, in 64 bits so
// any wave offset is exact; a shift beyond the row acts like one of the row's
// width, so it is bounded to +-width.
inline int rowShift(std::int64_t wave, std::int64_t progress, int width) {
    const std::int64_t s = wave * progress / 16384;
    return s > width ? width : (s < -width ? -width : int(s));
}

// Pixel x of the output row takes `bytes` bytes from `from`.
template <class Source>
struct RowWriter {
    const std::uint8_t* row;
    std::uint8_t* out;
    Source src;
    unsigned bytes;
    void copy(int x, int from) const {
        const std::uint8_t* s = src(row, unsigned(from));
        std::uint8_t* o = out + unsigned(x) * bytes;
        for (unsigned i = 0; i < bytes; ++i) o[i] = s[i];
    }
    void fill(int begin, int end, int from) const {
        for (int x = begin; x < end; ++x) copy(x, from);
    }
};

// Output bytes o[i] = (o[i] + s[i]) / 2 for i < n.
FLR_NOINLINE void averageInto(std::uint8_t* FLR_RESTRICT o, const std::uint8_t* FLR_RESTRICT s, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) o[i] = static_cast<std::uint8_t>((o[i] + s[i]) >> 1);
}

// One row from its two shifts: pass 0 shifts the row by s0, the uncovered end
// repeating the end pixel; pass 1 averages it with the row shifted by s1 and
// overwrites the uncovered end (for a positive shift including pixel s1 itself).
template <class Source>
void reflectionRow(const Frame& frame, const std::int32_t* shifts, unsigned y, std::uint8_t* out, Source src,
                   unsigned bytes) {
    const int w = int(frame.width), last = w - 1;
    if (w == 0) return;
    const int s0 = shifts[2 * y], s1 = shifts[2 * y + 1];
    const RowWriter<Source> row{frame.rows[y], out, src, bytes};
    constexpr bool kDirect = std::is_same_v<Source, DirectSource>;
    auto shifted = [&](int begin, int end, int s) {   // output begin .. end - 1 from source x - s
        if constexpr (kDirect)
            std::memcpy(out + std::size_t(begin) * bytes, row.row + std::size_t(begin - s) * bytes,
                        std::size_t(end - begin) * bytes);
        else
            for (int x = begin; x < end; ++x) row.copy(x, x - s);
    };
    auto averaged = [&](int begin, int end, int s) {
        if constexpr (kDirect) {
            averageInto(out + std::size_t(begin) * bytes, row.row + std::size_t(begin - s) * bytes,
                        std::size_t(end - begin) * bytes);
        } else {
            for (int x = begin; x < end; ++x) {
                const std::uint8_t* p = src(row.row, unsigned(x - s));
                std::uint8_t* o = out + unsigned(x) * bytes;
                for (unsigned i = 0; i < bytes; ++i) o[i] = static_cast<std::uint8_t>((o[i] + p[i]) / 2u);
            }
        }
    };
    if (s0 >= 0) {
        row.fill(0, s0 < w ? s0 : w, 0);
        shifted(s0 < w ? s0 : w, w, s0);
    } else {
        shifted(0, w + s0, s0);
        row.fill(w + s0, w, last);
    }
    if (s1 > 0) {
        const int fillEnd = s1 + 1 < w ? s1 + 1 : w;
        row.fill(0, fillEnd, 0);
        averaged(fillEnd, w, s1);
    } else {
        averaged(0, w + s1, s1);   // s1 <= 0, bounded to -width
        row.fill(w + s1, w, last);
    }
}

}  // namespace

// The wave offset starts at 0 with the generator at seed 0 and moves once per
// row by a - (rand() mod (2a + 1)); every row's two shifts are worked out here,
// so the rows themselves depend on nothing but the frame.
bool ReflectionInit(Frame& frame, Carry& carry) {
    const unsigned height = frame.height;
    HGLOBAL block = plat::globalAlloc(2u * sizeof(std::int32_t) * (height ? height : 1u));
    if (!block) return false;
    auto* shifts = static_cast<std::int32_t*>(plat::globalLock(block));
    plat::Random random;
    random.srand(0);
    const int a = frame.p1 >> 4, w = int(frame.width);
    const std::int64_t p = frame.progress;
    std::int32_t wave = 0;
    for (unsigned y = 0; y < height; ++y) {
        const std::int32_t prev = wave;
        const int r = random.rand();   // one draw per row, whatever the amount
        std::int64_t next = std::int64_t(prev) + a - r % (2 * a + 1);
        if (next > INT32_MAX) next = INT32_MAX;   // unreachable within 65535 rows
        if (next < INT32_MIN) next = INT32_MIN;
        wave = static_cast<std::int32_t>(next);
        shifts[2 * y] = rowShift((std::int64_t(prev) + wave) / 2, p, w);
        shifts[2 * y + 1] = rowShift(wave, p, w);
    }
    carry.lookupBlock = block;
    carry.lookup = shifts;
    return true;
}

void LookupDone(Carry& carry) {
    plat::globalUnlock(carry.lookupBlock);
    plat::globalFree(carry.lookupBlock);
    carry.lookupBlock = nullptr;
    carry.lookup = nullptr;
}

namespace {

// ---- Kaleidoscope -------------------------------------------------------------

// Pixels begin .. width - 1 of a 3-byte output row take the pixels of columns
// width - 1 - begin down to 0 (the row's left part mirrored). Five pixels at a
// time are read as 16 bytes and reversed by a fixed byte order, which the
// compiler turns into one shuffle.
FLR_NOINLINE FLAIRIZE_CLONES void mirrorPixels(std::uint8_t* row, unsigned begin, unsigned width) {
    constexpr unsigned kBlock = 5;
    static constexpr std::uint8_t kOrder[16] = {12, 13, 14, 9, 10, 11, 6, 7, 8, 3, 4, 5, 0, 1, 2, 15};
    std::uint8_t* FLR_RESTRICT o = row + 3u * begin;
    const std::uint8_t* FLR_RESTRICT s = row + 3u * (width - begin);   // just past the first pixel read
    unsigned x = begin;
    // Each block reads one byte past its five pixels (still inside the row,
    // as the left part ends before the right one) and writes one past them,
    // which the next block or the scalar tail overwrites.
    for (; x + kBlock + 1 <= width; x += kBlock, o += 3 * kBlock) {
        s -= 3 * kBlock;
        std::uint8_t in[16], reversed[16];
        std::memcpy(in, s, 16);
        for (unsigned i = 0; i < 16; ++i) reversed[i] = in[kOrder[i]];
        std::memcpy(o, reversed, 16);
    }
    for (; x < width; ++x, o += 3) {
        s -= 3;
        o[0] = s[0], o[1] = s[1], o[2] = s[2];
    }
}

// Pixels begin .. width - 1 of a row of 4-byte pixels mirror the first ones:
// pixel x is pixel width - 1 - x.
FLR_NOINLINE FLAIRIZE_CLONES void mirrorWords(std::uint8_t* row, unsigned begin, unsigned width) {
    std::uint8_t* FLR_RESTRICT o = row;
    const std::uint8_t* FLR_RESTRICT s = row;   // the pixels read lie before those written
    for (unsigned x = begin; x < width; ++x) storePixel(o + 4u * x, loadPixel(s + 4u * (width - 1 - x)));
}

template <bool Alpha, class Source>
void kaleidoscopeRow(const Frame& frame, const std::int32_t* diagonalRows, unsigned y, std::uint8_t* out,
                     Source src, unsigned outStep) {
    const unsigned width = frame.width, height = frame.height;
    const std::uint8_t* const* rows = frame.rows;
    if (width == 0 || height == 0) return;
    const int q = 16384 - int(frame.progress);
    const unsigned yFold = y <= (height >> 1) ? y : height - 1 - y;
    const unsigned k = unsigned(std::uint64_t(width) * yFold / height);
    const unsigned halfWidth = width >> 1;
    // Column of every pixel reflected across the diagonal in this row. A picture
    // one pixel high has no diagonal to scale by: it takes column 0.
    const unsigned xDiagonal = height > 1 ? unsigned(std::uint64_t(width - 1) * yFold / (height - 1)) : 0;
    const std::uint8_t* own = rows[y];
    if (!Alpha && q == 0) {
        // The full effect depends on the folded column only: columns 0 .. k
        // are row yFold itself, the rest of the left half the diagonal column,
        // and the right half mirrors the left (x and width - 1 - x fold alike).
        const unsigned leftEnd = halfWidth + 1 < width ? halfWidth + 1 : width;
        const unsigned sameEnd = k + 1 < leftEnd ? k + 1 : leftEnd;
        const std::uint8_t* folded = rows[yFold];
        auto copy = [&](unsigned x, const std::uint8_t* v) {
            std::uint8_t* o = out + 3u * x;
            o[0] = v[0], o[1] = v[1], o[2] = v[2];
        };
        if constexpr (std::is_same_v<Source, DirectSource>)
            std::memcpy(out, folded, 3u * sameEnd);
        else
            for (unsigned x = 0; x < sameEnd; ++x) copy(x, src(folded, x));
        unsigned x = sameEnd;
        if constexpr (std::is_same_v<Source, DirectSource>) {
            // Four bytes a pixel where the fourth is read inside the source row
            // and lands on the next pixel, which is written after it.
            const std::size_t column = 3u * std::size_t(xDiagonal);
            if (xDiagonal + 1 < width)
                for (; x + 1 < leftEnd; ++x) std::memcpy(out + 3u * x, rows[diagonalRows[x]] + column, 4);
        }
        for (; x < leftEnd; ++x) copy(x, src(rows[diagonalRows[x]], xDiagonal));
        mirrorPixels(out, leftEnd, width);
        return;
    }
    if constexpr (Alpha) {
        if (q == 0) {   // the same fold in whole 4-byte pixels, then the alpha mix over the row
            const unsigned leftEnd = halfWidth + 1 < width ? halfWidth + 1 : width;
            const unsigned sameEnd = k + 1 < leftEnd ? k + 1 : leftEnd;
            std::memcpy(out, rows[yFold], 4u * sameEnd);
            for (unsigned x = sameEnd; x < leftEnd; ++x)
                storePixel(out + 4u * x, loadPixel(rows[diagonalRows[x]] + 4u * xDiagonal));
            mirrorWords(out, leftEnd, width);
            mixRowInPlace(own, out, width);
            return;
        }
    }
    std::uint8_t* const rowStart = out;
    for (unsigned x = 0; x < width; ++x, out += outStep) {
        const unsigned xFold = x <= halfWidth ? x : width - 1 - x;
        unsigned xs = xFold, ys = yFold;
        if (xFold > k) {   // xFold >= 1 here, so width >= 2
            xs = xDiagonal;
            ys = unsigned(diagonalRows[xFold]);
        }
        // Moves from (x, y) toward (xs, ys) with the progress, truncating toward zero.
        const int xf = int(xs) + (int(x) - int(xs)) * q / 16384;
        const int yf = int(ys) + (int(y) - int(ys)) * q / 16384;
        const std::uint8_t* v = src(rows[yf], unsigned(xf));
        if constexpr (Alpha)
            storePixel(out, loadPixel(v));   // mixed over the row below
        else
            put<false>(out, nullptr, 0, v[0], v[1], v[2]);
    }
    if constexpr (Alpha) mixRowInPlace(own, rowStart, width);
}

}  // namespace

// Row of every folded column reflected across the diagonal: (height - 1) x
// column / (width - 1), the same in every output row.
bool KaleidoscopeInit(Frame& frame, Carry& carry) {
    const unsigned width = frame.width, height = frame.height, columns = (width >> 1) + 1;
    HGLOBAL block = plat::globalAlloc(sizeof(std::int32_t) * columns);
    if (!block) return false;
    auto* diagonalRows = static_cast<std::int32_t*>(plat::globalLock(block));
    for (unsigned x = 0; x < columns; ++x)
        diagonalRows[x] = width > 1 && height > 0 ? std::int32_t(std::uint64_t(height - 1) * x / (width - 1)) : 0;
    carry.lookupBlock = block;
    carry.lookup = diagonalRows;
    return true;
}

FLR_ROW(ShakeLine1) {
    (void)carry;
    shakeRow<false>(frame, y, out, PaletteSource{frame.colourTable}, 3);
}
FLR_ROW(ShakeLine2) {
    (void)carry;
    if (frame.hasAlpha)
        shakeRow<true>(frame, y, out, DirectSource{4}, 4);
    else
        shakeRow<false>(frame, y, out, DirectSource{3}, 3);
}

FLR_ROW(FrazzleLine1) {
    (void)carry;
    frazzleRow<false>(frame, y, out, PaletteSource{frame.colourTable}, 1, 3);
}
FLR_ROW(FrazzleLine2) {
    (void)carry;
    if (frame.hasAlpha)
        frazzleRow<true>(frame, y, out, DirectSource{4}, 4, 4);
    else
        frazzleRow<false>(frame, y, out, DirectSource{3}, 3, 3);
}

// Line2 moves whole pixels, alpha included.
FLR_ROW(ReflectionLine1) { reflectionRow(frame, carry.lookup, y, out, PaletteSource{frame.colourTable}, 3); }
FLR_ROW(ReflectionLine2) {
    const unsigned bytes = frame.hasAlpha ? 4 : 3;
    reflectionRow(frame, carry.lookup, y, out, DirectSource{bytes}, bytes);
}

FLR_ROW(KaleidoscopeLine1) {
    kaleidoscopeRow<false>(frame, carry.lookup, y, out, PaletteSource{frame.colourTable}, 3);
}
FLR_ROW(KaleidoscopeLine2) {
    if (frame.hasAlpha)
        kaleidoscopeRow<true>(frame, carry.lookup, y, out, DirectSource{4}, 4);
    else
        kaleidoscopeRow<false>(frame, carry.lookup, y, out, DirectSource{3}, 3);
}
