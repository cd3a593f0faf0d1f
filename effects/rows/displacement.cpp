// Displacement effects: Shake, Frazzle, Reflection and Kaleidoscope. Each output
// pixel comes from source pixels found at other places of the picture.
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "effects/effects.h"
#include "effects/rows/row_pixels.h"
#include "effects/rows/vector_loops.h"
#include "effects/rows/walk.h"
#include "engine/pixel.h"

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

// The luminance of `count` smeared 24-bit colours.
FLR_VECTOR_LOOP void smearLuminance(const std::uint8_t* smear, unsigned count, std::uint8_t* keys) {
    luminanceRun<3>(smear, count, keys);
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
        std::uint8_t* o = out + kStep * x0;
        if constexpr (!Alpha) {   // the blend over the block's bytes, each with its pixel's luminance
            std::uint8_t keys[kBlock], light[3 * kBlock];
            smearLuminance(acc, count, keys);
            for (unsigned i = 0; i < count; ++i) light[3 * i] = light[3 * i + 1] = light[3 * i + 2] = keys[i];
            keepLight(start, acc, light, bytes, o);
            continue;
        }
        for (unsigned i = 0; i < count; ++i, o += kStep) {
            const std::uint8_t* a = acc + kStep * i;
            putShake<Alpha>(o, start + kStep * i, a[0], a[1], a[2]);
        }
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

template <bool Alpha, class Source>
void frazzleRow(const Frame& frame, Carry& carry, unsigned y, std::uint8_t* out, Source src, unsigned outStep) {
    const unsigned width = frame.width, height = frame.height;
    const std::uint8_t* const* rows = frame.rows;
    (void)carry;
    if (width == 0 || height == 0) return;
    const std::int64_t p = frame.progress;
    const int halfWidth = int(width >> 1), halfHeight = int(height >> 1);
    const int lastColumn = int(width) - 1, lastRow = int(height) - 1;
    // The generator restarts at row 0 and draws twice per pixel, so row y
    // starts where 2 x width x y draws have left it.
    plat::Random random;
    random.srand(0);
    random.skip(2u * std::uint64_t(width) * y);
    const std::uint8_t* own = rows[y];
    for (unsigned x = 0; x < width; ++x, out += outStep) {
        const int r1 = random.rand();
        const int r2 = random.rand();
        const int dx = r1 % int(width) - halfWidth;
        const int dy = r2 % int(height) - halfHeight;
        const int xs = clampTo(int(x) + int(p * dx / 16384), lastColumn);
        const int ys = clampTo(int(y) + int(p * dy / 16384), lastRow);
        const std::uint8_t* v = src(rows[ys], unsigned(xs));
        put<Alpha>(out, src(own, x), Alpha ? v[3] : 255u, v[0], v[1], v[2]);
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

template <class Source>
void reflectionRow(const Frame& frame, Carry& carry, unsigned y, std::uint8_t* out, Source src, unsigned bytes) {
    const unsigned width = frame.width;
    std::int32_t& wave = carry.waveOffset;
    if (y == 0) {
        wave = 0;
        carry.random.srand(0);
    }
    const std::int32_t prev = wave;
    const int a = frame.p1 >> 4;
    const int r = carry.random.rand();   // one draw per row, whatever the amount
    std::int64_t next = std::int64_t(prev) + a - r % (2 * a + 1);
    if (next > INT32_MAX) next = INT32_MAX;   // unreachable within 65535 rows
    if (next < INT32_MIN) next = INT32_MIN;
    wave = static_cast<std::int32_t>(next);
    if (width == 0) return;

    const std::int64_t p = frame.progress;
    const int w = int(width), last = w - 1;
    const std::uint8_t* row = frame.rows[y];
    auto copy = [&](int x, int from) {
        const std::uint8_t* s = src(row, unsigned(from));
        std::uint8_t* o = out + unsigned(x) * bytes;
        for (unsigned i = 0; i < bytes; ++i) o[i] = s[i];
    };
    auto average = [&](int x, int from) {
        const std::uint8_t* s = src(row, unsigned(from));
        std::uint8_t* o = out + unsigned(x) * bytes;
        for (unsigned i = 0; i < bytes; ++i) o[i] = static_cast<std::uint8_t>((o[i] + s[i]) / 2u);
    };

    // Pass 0: the row shifted by the mean of the previous and the new offset,
    // the uncovered end repeating the end pixel.
    const int s0 = rowShift((std::int64_t(prev) + wave) / 2, p, w);
    for (int x = 0; x < w; ++x) copy(x, clampTo(x - s0, last));

    // Pass 1: averaged with the row shifted by the new offset; the uncovered end
    // (for a positive shift including pixel s itself) is overwritten.
    const int s1 = rowShift(wave, p, w);
    if (s1 > 0) {
        const int fillEnd = s1 + 1 < w ? s1 + 1 : w;
        for (int x = 0; x < fillEnd; ++x) copy(x, 0);
        for (int x = fillEnd; x < w; ++x) average(x, x - s1);
    } else {
        const int avgEnd = w + s1;   // s1 <= 0, bounded to -width
        for (int x = 0; x < avgEnd; ++x) average(x, x - s1);
        for (int x = avgEnd; x < w; ++x) copy(x, last);
    }
}

// ---- Kaleidoscope -------------------------------------------------------------

template <bool Alpha, class Source>
void kaleidoscopeRow(const Frame& frame, unsigned y, std::uint8_t* out, Source src, unsigned outStep) {
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
    for (unsigned x = 0; x < width; ++x, out += outStep) {
        const unsigned xFold = x <= halfWidth ? x : width - 1 - x;
        unsigned xs = xFold, ys = yFold;
        if (xFold > k) {   // xFold >= 1 here, so width >= 2
            xs = xDiagonal;
            ys = unsigned(std::uint64_t(height - 1) * xFold / (width - 1));
        }
        // Moves from (x, y) toward (xs, ys) with the progress, truncating toward zero.
        const int xf = int(xs) + (int(x) - int(xs)) * q / 16384;
        const int yf = int(ys) + (int(y) - int(ys)) * q / 16384;
        const std::uint8_t* v = src(rows[yf], unsigned(xf));
        const std::uint8_t* s = src(own, x);
        put<Alpha>(out, s, Alpha ? s[3] : 255u, v[0], v[1], v[2]);
    }
}

}  // namespace

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

FLR_ROW(FrazzleLine1) { frazzleRow<false>(frame, carry, y, out, PaletteSource{frame.colourTable}, 3); }
FLR_ROW(FrazzleLine2) {
    if (frame.hasAlpha)
        frazzleRow<true>(frame, carry, y, out, DirectSource{4}, 4);
    else
        frazzleRow<false>(frame, carry, y, out, DirectSource{3}, 3);
}

// Line2 moves whole pixels, alpha included.
FLR_ROW(ReflectionLine1) { reflectionRow(frame, carry, y, out, PaletteSource{frame.colourTable}, 3); }
FLR_ROW(ReflectionLine2) {
    const unsigned bytes = frame.hasAlpha ? 4 : 3;
    reflectionRow(frame, carry, y, out, DirectSource{bytes}, bytes);
}

FLR_ROW(KaleidoscopeLine1) {
    (void)carry;
    kaleidoscopeRow<false>(frame, y, out, PaletteSource{frame.colourTable}, 3);
}
FLR_ROW(KaleidoscopeLine2) {
    (void)carry;
    if (frame.hasAlpha)
        kaleidoscopeRow<true>(frame, y, out, DirectSource{4}, 4);
    else
        kaleidoscopeRow<false>(frame, y, out, DirectSource{3}, 3);
}
