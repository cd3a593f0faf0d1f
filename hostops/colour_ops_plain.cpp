#include "hostops/colour_ops_plain.h"

#include <cstdint>

#include "engine/dib.h"
#include "hostops/host_ops.h"

namespace {

enum class Op { Smooth, Simplify, Soften };

// Blue, green, red of pixel (x, y), the picture's edge pixels repeated beyond it.
const std::uint8_t* pixelAt(const dib::Source& src, int x, int y) {
    const dib::Layout& l = src.layout();
    x = x < 0 ? 0 : (x >= l.width ? l.width - 1 : x);
    y = y < 0 ? 0 : (y >= l.height ? l.height - 1 : y);
    const std::uint8_t* p = src.row(std::uint32_t(y)) + std::size_t(x) * l.bytesPerPixel;
    return l.bitCount == 8 ? src.colourTable() + 4u * *p : p;
}

HGLOBAL apply(HGLOBAL picture, Op op) {
    dib::Source src(picture);
    if (!src.ok()) return nullptr;
    dib::Output out(src);
    if (!out.ok()) return nullptr;
    const int binomial[5] = {1, 4, 6, 4, 1};
    const int total = op == Op::Smooth ? 25 : 256;
    for (int y = 0; y < src.layout().height; ++y)
        for (int x = 0; x < src.layout().width; ++x) {
            const std::uint8_t* own = pixelAt(src, x, y);
            int value[3];
            if (op == Op::Simplify) {
                // The nearest of eight evenly spaced levels.
                for (int i = 0; i < 3; ++i) value[i] = (((own[i] * 7 + 127) / 255) * 255 + 3) / 7;
            } else {
                // The rounded mean of the window: a box for Smooth, binomial weights for Soften.
                int sum[3] = {0, 0, 0};
                for (int dy = -2; dy <= 2; ++dy)
                    for (int dx = -2; dx <= 2; ++dx) {
                        const int weight = op == Op::Smooth ? 1 : binomial[dx + 2] * binomial[dy + 2];
                        const std::uint8_t* c = pixelAt(src, x + dx, y + dy);
                        for (int i = 0; i < 3; ++i) sum[i] += weight * c[i];
                    }
                int largest = 0;
                for (int i = 0; i < 3; ++i) {
                    value[i] = (sum[i] + total / 2) / total;
                    const int d = value[i] - own[i];
                    largest = d < 0 ? (-d > largest ? -d : largest) : (d > largest ? d : largest);
                }
                // Smooth moves the pixel toward the mean by a share that falls
                // from 1 to 0 as its largest channel difference reaches 48.
                if (op == Op::Smooth) {
                    const int share = largest < 48 ? (48 - largest) * 256 / 48 : 0;
                    for (int i = 0; i < 3; ++i) value[i] = own[i] + (value[i] - own[i]) * share / 256;
                }
            }
            std::uint8_t* o = out.row(std::uint32_t(y)) + std::size_t(x) * (src.hasAlpha() ? 4 : 3);
            for (int i = 0; i < 3; ++i) o[i] = static_cast<std::uint8_t>(value[i]);
            if (src.hasAlpha()) o[3] = src.row(std::uint32_t(y))[4 * x + 3];
        }
    return out.release();
}

}  // namespace

namespace hostops {

flairize::HostServices plainServices() {
    flairize::HostServices s = services();
    s.smooth = [](void*, HGLOBAL picture) { return apply(picture, Op::Smooth); };
    s.simplify = [](void*, HGLOBAL picture) { return apply(picture, Op::Simplify); };
    s.soften = [](void*, HGLOBAL picture) { return apply(picture, Op::Soften); };
    s.colourChain = nullptr;   // the engine then chains the plain picture forms
    return s;
}

}  // namespace hostops
