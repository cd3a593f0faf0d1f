// Blur effects: Motion Blur, Center Blur and Radial Blur. Each output pixel is
// the plain average of the source pixel and the samples of an integer walk that
// starts at it; the effects differ in the walk's direction and length.
#include <cmath>
#include <cstddef>

#include "effects/rows/row_effects.h"
#include "effects/rows/row_pixels.h"
#include "engine/pixel.h"
#include "engine/render_state.h"

namespace {

using namespace rowpx;

struct ColourSum {
    unsigned b = 0, g = 0, r = 0;
    void add(const std::uint8_t* p) { b += p[0], g += p[1], r += p[2]; }
};

// A walk's direction vector as signs and magnitudes.
struct Direction {
    int sx, sy, mx, my;
};
inline int sign(int v) { return (v > 0) - (v < 0); }
inline Direction direction(int vx, int vy) {
    return Direction{sign(vx), sign(vy), vx < 0 ? -vx : vx, vy < 0 ? -vy : vy};
}

// The blur walk from (x, y): n steps, each moving along x or y as the two step
// counters (starting at the signs) decide, then clamping to the picture, then
// adding the pixel reached. A step may stay put and add the same pixel again.
// Without kClamp the caller guarantees the walk stays inside: no step moves
// more than one pixel, so a start at least n pixels from every border does.
template <bool kClamp, class Rows>
inline void walk(const Rows& src, int x, int y, Direction d, int n, int width, int height, ColourSum& sum) {
    int ex = d.sx, ey = d.sy;
    const std::uint8_t* row = src.rows[y];
    for (int k = 0; k < n; ++k) {
        if (ey < ex) {
            x += d.sx;
            ey += d.my;
            if (kClamp) x = x < 0 ? 0 : (x >= width ? width - 1 : x);
        } else {
            y += d.sy;
            ex += d.mx;
            if (kClamp) y = y < 0 ? 0 : (y >= height ? height - 1 : y);
            row = src.rows[y];
        }
        sum.add(src.pixel(row, x));
    }
}

// Blurs pixel x of row y along d and writes the average of its n + 1 colours.
template <class Rows>
inline void blurPixel(const Rows& src, int x, int y, Direction d, int n, int width, int height, bool interior,
                      std::uint8_t* out, bool alpha) {
    const std::uint8_t* start = src.pixel(src.rows[y], x);
    ColourSum sum;
    sum.add(start);
    if (interior)
        walk<false>(src, x, y, d, n, width, height, sum);
    else
        walk<true>(src, x, y, d, n, width, height, sum);
    const unsigned count = unsigned(n) + 1;
    putPixel(out, start, sum.b / count, sum.g / count, sum.r / count, alpha);
}

// Motion Blur's vector for angle P1: t = P1 / 255 of a turn, in double precision.
inline Direction motionDirection(unsigned p1) {
    const double t = (double(p1) * 0.00392156862745098) * 6.2831853071958;
    return direction(static_cast<int>(15.0 * std::sin(t)), static_cast<int>(15.0 * std::cos(t)));
}

constexpr int kMaxPatternSteps = 31;

// Motion Blur: one vector for the whole picture, so the walk takes the same
// steps from every pixel. Where it cannot reach a border (the walk moves one way
// on each axis, so its end is its farthest point) the samples are fixed offsets
// from the pixel; elsewhere the clamped walk runs step by step.
template <class Rows>
void motionBlurRow(int y, std::uint32_t progress, int width, int height, const Rows& src, std::uint8_t* out,
                   bool alpha) {
    const int n = static_cast<int>((progress * 15u) >> 14);
    const Direction d = motionDirection(renderState().p1);
    const unsigned step = alpha ? 4 : 3;

    const std::uint8_t* row = src.rows[y];
    const std::ptrdiff_t bytes = src.bytesPerPixel();
    std::ptrdiff_t sampleOffset[kMaxPatternSteps];  // from the pixel's source bytes to each sample's
    int interiorBegin = 0, interiorEnd = 0;         // x range served by the offsets
    if (n <= kMaxPatternSteps) {
        int ex = d.sx, ey = d.sy, dx = 0, dy = 0;
        int sampleDx[kMaxPatternSteps], sampleDy[kMaxPatternSteps];
        for (int k = 0; k < n; ++k) {
            if (ey < ex) {
                dx += d.sx;
                ey += d.my;
            } else {
                dy += d.sy;
                ex += d.mx;
            }
            sampleDx[k] = dx;
            sampleDy[k] = dy;
        }
        if (y + dy >= 0 && y + dy < height) {
            for (int k = 0; k < n; ++k)
                sampleOffset[k] = (src.rows[y + sampleDy[k]] - row) + sampleDx[k] * bytes;
            interiorBegin = dx < 0 ? -dx : 0;
            interiorEnd = dx > 0 ? width - dx : width;
        }
    }

    for (int x = 0; x < width; ++x, out += step) {
        if (x < interiorBegin || x >= interiorEnd) {
            blurPixel(src, x, y, d, n, width, height, false, out, alpha);
            continue;
        }
        const std::uint8_t* at = row + x * bytes;
        const std::uint8_t* start = src.colour(at);
        ColourSum sum;
        sum.add(start);
        for (int k = 0; k < n; ++k) sum.add(src.colour(at + sampleOffset[k]));
        const unsigned count = unsigned(n) + 1;
        putPixel(out, start, sum.b / count, sum.g / count, sum.r / count, alpha);
    }
}

// Center Blur: outward along the line from the centre through each pixel.
template <class Rows>
void centerBlurRow(int y, std::uint32_t progress, int width, int height, const Rows& src, std::uint8_t* out,
                   bool alpha) {
    const unsigned amount = renderState().p1 > 255 ? 255u : renderState().p1;
    const int n = static_cast<int>(((amount >> 3) * progress) >> 14);
    const int vy = y - (height >> 1), centreX = width >> 1;
    const bool rowInterior = y >= n && y + n < height;
    const unsigned step = alpha ? 4 : 3;
    for (int x = 0; x < width; ++x, out += step) {
        const bool interior = rowInterior && x >= n && x + n < width;
        blurPixel(src, x, y, direction(x - centreX, vy), n, width, height, interior, out, alpha);
    }
}

// Radial Blur: across that line, turning about the centre.
template <class Rows>
void radialBlurRow(int y, std::uint32_t progress, int width, int height, const Rows& src, std::uint8_t* out,
                   bool alpha) {
    const int n = static_cast<int>((progress * 15u) >> 14);
    const int vx = y - (height >> 1), centreX = width >> 1;
    const bool rowInterior = y >= n && y + n < height;
    const unsigned step = alpha ? 4 : 3;
    for (int x = 0; x < width; ++x, out += step) {
        const bool interior = rowInterior && x >= n && x + n < width;
        blurPixel(src, x, y, direction(vx, centreX - x), n, width, height, interior, out, alpha);
    }
}

}  // namespace

FLR_ROW1(MotionBlurLine1) {
    motionBlurRow(y, progress, width, height, PaletteRows{rows, colourTable}, out, false);
}
FLR_ROW2(MotionBlurLine2) {
    const bool alpha = hasAlpha != 0;
    motionBlurRow(y, progress, width, height, DirectRows{rows, alpha ? 4u : 3u}, out, alpha);
}

FLR_ROW1(CenterBlurLine1) {
    centerBlurRow(y, progress, width, height, PaletteRows{rows, colourTable}, out, false);
}
FLR_ROW2(CenterBlurLine2) {
    const bool alpha = hasAlpha != 0;
    centerBlurRow(y, progress, width, height, DirectRows{rows, alpha ? 4u : 3u}, out, alpha);
}

FLR_ROW1(RadialBlurLine1) {
    radialBlurRow(y, progress, width, height, PaletteRows{rows, colourTable}, out, false);
}
FLR_ROW2(RadialBlurLine2) {
    const bool alpha = hasAlpha != 0;
    radialBlurRow(y, progress, width, height, DirectRows{rows, alpha ? 4u : 3u}, out, alpha);
}
