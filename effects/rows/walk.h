// The integer walk of the blurs and of Shake. From a start pixel it takes n
// steps along a direction vector, each along x when ey < ex (ey then adding
// |vy|) and along y otherwise (ex adding |vx|), the counters starting at the
// vector's signs. The choice of axis depends only on the counters, never on
// the position, and the walk moves one way on each axis; so a walk is a fixed
// list of offsets from its start, and clamping each step to the picture equals
// clamping the offset positions.
#pragma once

#include <cmath>

namespace rowpx {

inline int clampTo(int v, int last) { return v < 0 ? 0 : (v > last ? last : v); }
inline int sign(int v) { return (v > 0) - (v < 0); }

constexpr int kMaxSteps = 31;   // sliders 0..255 and progress 0..16384 never ask for more

// A walk's direction vector as signs and magnitudes.
struct Direction {
    int sx, sy, mx, my;
};
inline Direction direction(int vx, int vy) {
    return Direction{sign(vx), sign(vy), vx < 0 ? -vx : vx, vy < 0 ? -vy : vy};
}

// A walk of n steps as offsets from its start.
struct WalkPattern {
    int n = 0;
    int dx[kMaxSteps], dy[kMaxSteps];
    int endDx = 0;  // dx after the last step: the farthest column offset
};

// Which magnitude grows from one pixel of a run to the next.
enum class Growth { None, X, Y };

// Lays out the walk of d. With a x steps and b y steps taken, ey = sy + a my
// and ex = sx + b mx. Returns how
// far the growing magnitude may grow with every decision unchanged: a step
// along y stays one while b (mx + g) <= ey - ex (growth in mx), a step along x
// while a (my + g) < ex - ey (growth in my); the other decisions only firm up.
inline int layOut(Direction d, int n, Growth growth, WalkPattern& p) {
    int ex = d.sx, ey = d.sy, a = 0, b = 0, dx = 0, dy = 0;
    int slack = 0, weight = 0;  // tightest slack / weight so far; weight 0: no bound
    auto bound = [&](int s, int w) {
        if (weight == 0 || s * weight < slack * w) slack = s, weight = w;
    };
    for (int k = 0; k < n; ++k) {
        if (ey < ex) {
            if (growth == Growth::Y && a > 0) bound(ex - ey - 1, a);
            dx += d.sx;
            ey += d.my;
            ++a;
        } else {
            if (growth == Growth::X && b > 0) bound(ey - ex, b);
            dy += d.sy;
            ex += d.mx;
            ++b;
        }
        p.dx[k] = dx;
        p.dy[k] = dy;
    }
    p.n = n;
    p.endDx = dx;
    return weight == 0 ? 65535 : slack / weight;  // 65535: more than any run
}

// The vector of Motion Blur and Shake for angle P1: t = P1 / 255 of a turn, in double precision.
inline Direction motionDirection(unsigned p1) {
    const double t = (double(p1) * 0.00392156862745098) * 6.2831853071958;
    return direction(static_cast<int>(15.0 * std::sin(t)), static_cast<int>(15.0 * std::cos(t)));
}

}  // namespace rowpx
