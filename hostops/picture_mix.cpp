// The picture mix, and the engine's services over the host operations.
#include <cstring>

#include "engine/dib.h"
#include "hostops/host_ops.h"

namespace {
// One row of the mix, byte by byte; a flat loop the compiler vectorises.
void mixBytes(const std::uint8_t* f, std::uint8_t* s, std::uint32_t n, std::uint32_t w) {
    const std::uint32_t wf = 16384 - w;
    for (std::uint32_t i = 0; i < n; ++i) s[i] = static_cast<std::uint8_t>((f[i] * wf + s[i] * w) >> 14);
}

// Pixels per chunk when a palette row is expanded before the mix.
constexpr unsigned kChunk = 256;

void mixRowInPlace(const std::uint8_t* first, unsigned firstBytes, const std::uint8_t* table, std::uint8_t* row,
                   unsigned width, unsigned bytes, std::uint32_t weight) {
    if (weight >= 16384) return;   // (first * 0 + row * 16384) >> 14 is the row itself
    if (firstBytes != 1) {
        mixBytes(first, row, width * bytes, weight);
        return;
    }
    std::uint8_t expanded[3 * kChunk];   // the first row read through its colour table, a chunk at a time
    for (unsigned x0 = 0; x0 < width; x0 += kChunk) {
        const unsigned n = width - x0 < kChunk ? width - x0 : kChunk;
        for (unsigned x = 0; x < n; ++x) std::memcpy(&expanded[3 * x], table + 4u * first[x0 + x], 3);
        mixBytes(expanded, row + 3 * std::size_t(x0), 3 * n, weight);
    }
}
}  // namespace

namespace hostops {

namespace {
thread_local Failure t_lastFailure = Failure::None;
}

Failure lastFailure() { return t_lastFailure; }
HGLOBAL failed(Failure why) {
    t_lastFailure = why;
    return nullptr;
}
HGLOBAL succeeded(HGLOBAL picture) {
    t_lastFailure = Failure::None;
    return picture;
}

HGLOBAL mix(HGLOBAL first, HGLOBAL second, std::uint32_t weight) {
    dib::Source a(first), b(second);
    if (!a.ok() || !b.ok() || b.layout().bitCount == 8) return failed(Failure::BadPicture);
    const dib::Layout& la = a.layout();
    const dib::Layout& lb = b.layout();
    if (la.fullWidth != lb.fullWidth || la.fullHeight != lb.fullHeight) return failed(Failure::BadPicture);
    const bool alpha = lb.bitCount == 32;
    if (alpha != (la.bitCount == 32)) return failed(Failure::BadPicture);
    if (weight > 16384) weight = 16384;
    dib::Output out(b);
    if (!out.ok()) return failed(Failure::OutOfMemory);
    const unsigned step = alpha ? 4 : 3;
    for (std::uint32_t y = 0; y < lb.height; ++y) {
        std::memcpy(out.row(y), b.row(y), std::size_t(lb.width) * step);
        mixRowInPlace(a.row(y), la.bytesPerPixel, a.colourTable(), out.row(y), lb.width, step, weight);
    }
    return succeeded(out.release());
}

flairize::HostServices services(void (*rowTick)(void* user), void* user) {
    flairize::HostServices s;
    s.user = user;
    s.colourTableSize = [](void*, const BITMAPINFOHEADER* header) { return dib::colourTableBytes(header); };
    s.rowTick = rowTick;
    s.mix = [](void*, HGLOBAL first, HGLOBAL second, std::uint32_t weight) { return mix(first, second, weight); };
    s.mixRow = [](void*, const std::uint8_t* first, unsigned firstBytes, const std::uint8_t* table,
                  std::uint8_t* row, unsigned width, unsigned bytes, std::uint32_t weight) {
        mixRowInPlace(first, firstBytes, table, row, width, bytes, weight);
    };
    s.smooth = [](void*, HGLOBAL picture) { return smooth(picture); };
    s.simplify = [](void*, HGLOBAL picture) { return simplify(picture); };
    s.soften = [](void*, HGLOBAL picture) { return soften(picture); };
    s.colourChain = [](void*, const flairize::ColourOp* ops, unsigned count, const dib::View& source,
                       const dib::View& output) { return colourChain(ops, count, source, output); };
    return s;
}

}  // namespace hostops
