// The blurs and Shake as their algorithm reads: for every pixel, walk from it
// step by step along the direction vector, clamp, sample.
#include <cmath>

#include "effects/plain/plain_rows.h"

namespace {

using plain::clampTo;

struct Vector {
    int x, y;
};

int sign(int v) { return (v > 0) - (v < 0); }

// The direction of Motion Blur and Shake for angle P1, in double precision.
Vector angleVector(unsigned p1) {
    const double t = (double(p1) * 0.00392156862745098) * 6.2831853071958;
    return Vector{static_cast<int>(15.0 * std::sin(t)), static_cast<int>(15.0 * std::cos(t))};
}

// Walks n steps from (x, y) along v and hands each clamped position to visit.
template <class Visit>
void walk(const Frame& f, int x, int y, Vector v, int n, Visit visit) {
    const int sx = sign(v.x), sy = sign(v.y), mx = v.x < 0 ? -v.x : v.x, my = v.y < 0 ? -v.y : v.y;
    int ex = sx, ey = sy;
    for (int k = 0; k < n; ++k) {
        if (ey < ex) {
            x += sx;
            ey += my;
        } else {
            y += sy;
            ex += mx;
        }
        x = clampTo(x, f.width - 1);
        y = clampTo(y, f.height - 1);
        visit(plain::sourceAt(f, x, y));
    }
}

// The average of pixel (x, y) and the n samples of its walk.
void blurPixel(const Frame& f, int x, int y, Vector v, int n, std::uint8_t* out) {
    const std::uint8_t* start = plain::sourceAt(f, x, y);
    int b = start[0], g = start[1], r = start[2];
    walk(f, x, y, v, n, [&](const std::uint8_t* c) { b += c[0], g += c[1], r += c[2]; });
    plain::writeAt(f, out, x, y, b / (n + 1), g / (n + 1), r / (n + 1));
}

}  // namespace

FLR_ROW(PlainMotionBlur) {
    (void)carry;
    const int n = static_cast<int>((frame.progress * 15u) >> 14);
    for (int x = 0; x < frame.width; ++x) blurPixel(frame, x, y, angleVector(frame.p1), n, out);
}

FLR_ROW(PlainCenterBlur) {
    (void)carry;
    const int n = static_cast<int>(((unsigned(frame.p1) >> 3) * frame.progress) >> 14);
    for (int x = 0; x < frame.width; ++x)
        blurPixel(frame, x, y, Vector{x - (frame.width >> 1), y - (frame.height >> 1)}, n, out);
}

FLR_ROW(PlainRadialBlur) {
    (void)carry;
    const int n = static_cast<int>((frame.progress * 15u) >> 14);
    for (int x = 0; x < frame.width; ++x)
        blurPixel(frame, x, y, Vector{y - (frame.height >> 1), (frame.width >> 1) - x}, n, out);
}

// Shake folds each sample into the colour so far (a = (sample + 7 a) / 8),
// then keeps the pixel's own colour where that smear is light.
FLR_ROW(PlainShake) {
    (void)carry;
    const int n = static_cast<int>(((unsigned(frame.p2) >> 3) * frame.progress) >> 14);
    for (int x = 0; x < frame.width; ++x) {
        const std::uint8_t* s = plain::sourceAt(frame, x, y);
        int a[3] = {s[0], s[1], s[2]};
        walk(frame, x, y, angleVector(frame.p1), n, [&](const std::uint8_t* c) {
            for (int i = 0; i < 3; ++i) a[i] = (c[i] + 7 * a[i]) / 8;
        });
        const int l = px::luminance(a[0], a[1], a[2]);
        int v[3];
        for (int i = 0; i < 3; ++i) v[i] = (s[i] * l + a[i] * (255 - l)) / 255;
        plain::writeAt(frame, out, x, y, v[0], v[1], v[2]);
    }
}
