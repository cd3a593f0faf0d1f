// Displacement effects: Shake, Frazzle, Reflection and Kaleidoscope. Each output
// pixel comes from source pixels found at other places of the picture.
#include <cmath>
#include <cstdint>
#include <vector>

#include "effects/rows/row_effects.h"
#include "effects/rows/row_pixels.h"
#include "engine/pixel.h"
#include "engine/render_state.h"
#include "platform/random.h"

namespace {

using namespace rowpx;

inline int clampTo(int v, int last) { return v < 0 ? 0 : (v > last ? last : v); }
inline int sign(int v) { return (v > 0) - (v < 0); }
// The row driver never passes more than 16384; direct callers get the same bound.
inline std::int32_t fullProgressAtMost(std::uint32_t progress) {
    return progress > 16384 ? 16384 : static_cast<std::int32_t>(progress);
}

// ---- Shake ----------------------------------------------------------------

// One step of the smear walk: the walker's x offset from its start and the
// (clamped) source row it stands on after the step.
struct WalkStep {
    int dx;
    const std::uint8_t* row;
};

template <bool Alpha, class Source>
void shakeRow(unsigned y, std::uint32_t progress, unsigned width, unsigned height,
              const std::uint8_t* const* rows, std::uint8_t* out, Source src, unsigned outStep) {
    const RenderState& rs = renderState();
    const double t = (rs.p1 * 0.00392156862745098) * 6.2831853071958;
    const int vx = static_cast<int>(15.0 * std::sin(t)), vy = static_cast<int>(15.0 * std::cos(t));
    const unsigned n = ((unsigned(rs.p2) >> 3) * unsigned(fullProgressAtMost(progress))) >> 14;

    // Which axis each step moves along depends only on the direction, so the
    // walk is laid out once per row. The walker moves monotonically on each
    // axis, so clamping its running offset equals clamping step by step.
    WalkStep fixed[32];
    std::vector<WalkStep> large;
    WalkStep* steps = fixed;
    if (n > 32) {
        large.resize(n);
        steps = large.data();
    }
    const int sx = sign(vx), sy = sign(vy), mx = vx < 0 ? -vx : vx, my = vy < 0 ? -vy : vy;
    int ex = sx, ey = sy, ox = 0, oy = 0;
    const int lastRow = int(height) - 1, lastColumn = int(width) - 1;
    for (unsigned k = 0; k < n; ++k) {
        if (ey < ex) {
            ox += sx;
            ey += my;
        } else {
            oy += sy;
            ex += mx;
        }
        steps[k] = WalkStep{ox, rows[clampTo(int(y) + oy, lastRow)]};
    }

    const std::uint8_t* own = rows[y];
    for (unsigned x = 0; x < width; ++x, out += outStep) {
        const std::uint8_t* s = src(own, x);
        unsigned ab = s[0], ag = s[1], ar = s[2];
        for (unsigned k = 0; k < n; ++k) {
            const std::uint8_t* p = src(steps[k].row, unsigned(clampTo(int(x) + steps[k].dx, lastColumn)));
            ab = (p[0] + 7u * ab) / 8u;
            ag = (p[1] + 7u * ag) / 8u;
            ar = (p[2] + 7u * ar) / 8u;
        }
        // Light smears keep the pixel's own colour, dark ones show.
        const unsigned l = unsigned(px::luminance(int(ab), int(ag), int(ar)));
        const unsigned d = 255u - l;
        put<Alpha>(out, s, Alpha ? s[3] : 255u, (s[0] * l + ab * d) / 255u, (s[1] * l + ag * d) / 255u,
                   (s[2] * l + ar * d) / 255u);
    }
}

// ---- Frazzle ----------------------------------------------------------------

template <bool Alpha, class Source>
void frazzleRow(unsigned y, std::uint32_t progress, unsigned width, unsigned height,
                const std::uint8_t* const* rows, std::uint8_t* out, Source src, unsigned outStep) {
    if (y == 0) plat::srand(0);
    if (width == 0 || height == 0) return;
    const std::int64_t p = fullProgressAtMost(progress);
    const int halfWidth = int(width >> 1), halfHeight = int(height >> 1);
    const int lastColumn = int(width) - 1, lastRow = int(height) - 1;
    plat::RandomState& random = plat::threadRandom();   // the generator behind plat::rand
    const std::uint8_t* own = rows[y];
    for (unsigned x = 0; x < width; ++x, out += outStep) {
        const int r1 = random.next();
        const int r2 = random.next();
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
void reflectionRow(int slot, unsigned y, std::uint32_t progress, unsigned width,
                   const std::uint8_t* const* rows, std::uint8_t* out, Source src, unsigned bytes) {
    RenderState& rs = renderState();
    std::int32_t& wave = rs.waveOffset[slot];
    if (y == 0) {
        wave = 0;
        plat::srand(0);
    }
    const std::int32_t prev = wave;
    const int a = rs.p1 >> 4;
    const int r = plat::rand();   // one draw per row, whatever the amount
    std::int64_t next = std::int64_t(prev) + a - r % (2 * a + 1);
    if (next > INT32_MAX) next = INT32_MAX;   // unreachable within 65535 rows
    if (next < INT32_MIN) next = INT32_MIN;
    wave = static_cast<std::int32_t>(next);
    if (width == 0) return;

    const std::int64_t p = fullProgressAtMost(progress);
    const int w = int(width), last = w - 1;
    const std::uint8_t* row = rows[y];
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
void kaleidoscopeRow(unsigned y, std::uint32_t progress, unsigned width, unsigned height,
                     const std::uint8_t* const* rows, std::uint8_t* out, Source src, unsigned outStep) {
    if (width == 0 || height == 0) return;
    const int q = 16384 - fullProgressAtMost(progress);
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

FLR_ROW1(ShakeLine1) { shakeRow<false>(y, progress, width, height, rows, out, PaletteSource{colourTable}, 3); }
FLR_ROW2(ShakeLine2) {
    if (hasAlpha)
        shakeRow<true>(y, progress, width, height, rows, out, DirectSource{4}, 4);
    else
        shakeRow<false>(y, progress, width, height, rows, out, DirectSource{3}, 3);
}

FLR_ROW1(FrazzleLine1) { frazzleRow<false>(y, progress, width, height, rows, out, PaletteSource{colourTable}, 3); }
FLR_ROW2(FrazzleLine2) {
    if (hasAlpha)
        frazzleRow<true>(y, progress, width, height, rows, out, DirectSource{4}, 4);
    else
        frazzleRow<false>(y, progress, width, height, rows, out, DirectSource{3}, 3);
}

// Each slot keeps its own wave offset. Line2 moves whole pixels, alpha included.
FLR_ROW1(ReflectionLine1) {
    (void)height;
    reflectionRow(0, y, progress, width, rows, out, PaletteSource{colourTable}, 3);
}
FLR_ROW2(ReflectionLine2) {
    (void)height;
    const unsigned bytes = hasAlpha ? 4 : 3;
    reflectionRow(1, y, progress, width, rows, out, DirectSource{bytes}, bytes);
}

FLR_ROW1(KaleidoscopeLine1) {
    kaleidoscopeRow<false>(y, progress, width, height, rows, out, PaletteSource{colourTable}, 3);
}
FLR_ROW2(KaleidoscopeLine2) {
    if (hasAlpha)
        kaleidoscopeRow<true>(y, progress, width, height, rows, out, DirectSource{4}, 4);
    else
        kaleidoscopeRow<false>(y, progress, width, height, rows, out, DirectSource{3}, 3);
}
