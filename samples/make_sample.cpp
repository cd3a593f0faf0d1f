// Draws the bundled sample picture: a small landscape with sky, sun, hills,
// lake, trees and a house, rich in edges, gradients and flat areas.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "engine/dib.h"
#include "platform/global_memory.h"
#include "standalone/picture_io.h"

namespace {

struct Rgb {
    double r, g, b;
};

Rgb mix(Rgb a, Rgb b, double t) { return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t}; }

double hash(int x, int y) {
    unsigned h = unsigned(x) * 374761393u + unsigned(y) * 668265263u;
    h = (h ^ (h >> 13)) * 1274126177u;
    return double((h ^ (h >> 16)) & 0xFFFF) / 65535.0;
}

// (x, y) with y = 0 at the top of the scene.
Rgb scene(double x, double y, double w, double h) {
    const double horizon = h * 0.55;
    Rgb c;
    if (y < horizon) {
        c = mix({70, 120, 200}, {250, 200, 150}, y / horizon);                 // sky
        const double dx = x - w * 0.72, dy = y - h * 0.22;
        const double d = std::sqrt(dx * dx + dy * dy);
        if (d < h * 0.08) c = {255, 230, 120};                                // sun
        else if (d < h * 0.16) c = mix({255, 220, 140}, c, (d - h * 0.08) / (h * 0.08));
        const double far = horizon - h * 0.12 - std::sin(x / w * 9.0) * h * 0.05 - std::sin(x / w * 23.0) * h * 0.015;
        if (y > far) c = mix({90, 110, 150}, {70, 95, 120}, (y - far) / (horizon - far + 1));   // far hills
        const double near = horizon - h * 0.05 + std::sin(x / w * 5.0 + 1.0) * h * 0.04;
        if (y > near) c = mix({60, 130, 60}, {40, 100, 45}, (y - near) / (horizon - near + 1));  // near hills
    } else {
        // Lake: a darker, rippled reflection of the sky.
        const double ry = 2 * horizon - y + std::sin(y * 0.9) * 2.0;
        c = scene(x + std::sin(y * 0.5) * 3.0, ry < 0 ? 0 : ry, w, h);
        c = mix(c, {20, 50, 90}, 0.35 + 0.25 * (y - horizon) / (h - horizon));
        if (y > h * 0.85) c = mix({150, 120, 80}, {120, 95, 60}, hash(int(x), int(y)) * 0.5);  // shore
    }
    // Trees on the left bank.
    for (int t = 0; t < 7; ++t) {
        const double tx = w * (0.05 + 0.06 * t), base = horizon + h * 0.02, top = base - h * (0.18 + 0.03 * (t % 3));
        const double half = (y - top) / (base - top) * w * 0.028;
        if (y > top && y < base && std::fabs(x - tx) < half) c = mix({20, 90, 40}, {10, 60, 25}, hash(int(x), int(y)) * 0.6);
        if (y >= base && y < base + h * 0.03 && std::fabs(x - tx) < w * 0.004) c = {90, 60, 30};
    }
    // A house with a red roof and a lit window.
    const double hx0 = w * 0.52, hx1 = w * 0.62, hy0 = horizon - h * 0.1, hy1 = horizon;
    if (x > hx0 && x < hx1 && y > hy0 && y < hy1) {
        c = {235, 225, 200};
        if (x > hx0 + w * 0.02 && x < hx0 + w * 0.045 && y > hy0 + h * 0.03 && y < hy0 + h * 0.06) c = {255, 210, 60};
    }
    const double roofTop = hy0 - h * 0.06;
    if (y > roofTop && y <= hy0 && std::fabs(x - (hx0 + hx1) / 2) < (y - roofTop) / (hy0 - roofTop) * (hx1 - hx0) * 0.6)
        c = {180, 40, 35};
    return c;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string out = argc > 1 ? argv[1] : "sample.png";
    const int w = 480, h = 320;
    const std::uint32_t stride = std::uint32_t(dib::paddedStride(w, 24));
    HGLOBAL pic = dib::create(w, h, 24);
    auto* p = static_cast<unsigned char*>(plat::globalLock(pic));
    for (int row = 0; row < h; ++row)
        for (int x = 0; x < w; ++x) {
            // Two-by-two supersampling for smooth edges.
            Rgb sum{0, 0, 0};
            for (int s = 0; s < 4; ++s) {
                const Rgb c = scene(x + 0.25 + 0.5 * (s & 1), (h - 1 - row) + 0.25 + 0.5 * (s >> 1), w, h);
                sum = {sum.r + c.r / 4, sum.g + c.g / 4, sum.b + c.b / 4};
            }
            unsigned char* q = p + 40 + std::size_t(row) * stride + 3 * std::size_t(x);
            q[0] = static_cast<unsigned char>(std::lround(sum.b));
            q[1] = static_cast<unsigned char>(std::lround(sum.g));
            q[2] = static_cast<unsigned char>(std::lround(sum.r));
        }
    plat::globalUnlock(pic);
    std::string error;
    const bool ok = pictures::write(out, pic, error);
    plat::globalFree(pic);
    if (!ok) std::fprintf(stderr, "make_sample: %s: %s\n", out.c_str(), error.c_str());
    return ok ? 0 : 1;
}
