// The picture mix, and the engine's services over the host operations.
#include <cstring>
#include <vector>

#include "engine/dib.h"
#include "platform/host_ops.h"

namespace {
// One row of the mix, byte by byte; a flat loop the compiler vectorises.
void mixRow(const std::uint8_t* f, const std::uint8_t* s, std::uint8_t* o, std::uint32_t n, std::uint32_t w) {
    const std::uint32_t wf = 16384 - w;
    for (std::uint32_t i = 0; i < n; ++i) o[i] = static_cast<std::uint8_t>((f[i] * wf + s[i] * w) >> 14);
}
}  // namespace

namespace hostops {

HGLOBAL mix(HGLOBAL first, HGLOBAL second, std::uint32_t weight) {
    dib::Source a(first), b(second);
    if (!a.ok() || !b.ok() || b.layout().bitCount == 8) return nullptr;
    const dib::Layout& la = a.layout();
    const dib::Layout& lb = b.layout();
    if (la.fullWidth != lb.fullWidth || la.fullHeight != lb.fullHeight) return nullptr;
    const bool alpha = lb.bitCount == 32;
    if (alpha != (la.bitCount == 32)) return nullptr;
    if (weight > 16384) weight = 16384;
    dib::Output out(b);
    if (!out.ok()) return nullptr;
    const unsigned step = alpha ? 4 : 3;
    const std::uint32_t rowBytes = std::uint32_t(lb.width) * step;
    std::vector<std::uint8_t> expanded(la.bitCount == 8 ? rowBytes : 0);
    for (std::uint32_t y = 0; y < lb.height; ++y) {
        const std::uint8_t* f = a.row(y);
        if (la.bitCount == 8) {   // read the first picture through its colour table
            for (std::uint32_t x = 0; x < lb.width; ++x)
                std::memcpy(&expanded[3 * x], a.colourTable() + 4u * f[x], 3);
            f = expanded.data();
        }
        mixRow(f, b.row(y), out.row(y), rowBytes, weight);
    }
    return out.release();
}

flairize::HostServices services(void (*rowTick)(void* user), void* user) {
    flairize::HostServices s;
    s.user = user;
    s.colourTableSize = [](void*, const BITMAPINFOHEADER* header) { return dib::colourTableBytes(header); };
    s.rowTick = rowTick;
    s.mix = [](void*, HGLOBAL first, HGLOBAL second, std::uint32_t weight) { return mix(first, second, weight); };
    s.smooth = [](void*, HGLOBAL picture) { return smooth(picture); };
    s.simplify = [](void*, HGLOBAL picture) { return simplify(picture); };
    s.soften = [](void*, HGLOBAL picture) { return soften(picture); };
    return s;
}

}  // namespace hostops
