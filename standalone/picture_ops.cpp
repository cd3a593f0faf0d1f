// Picture operations of the host's base library that are pure computation:
// the colour-table size and the picture mix. Shared by every host we build.
#include <cstring>
#include <vector>

#include "engine/dib.h"
#include "hostapi/host_ops.h"
#include "standalone/host_context.h"

using standalone::operationCounts;

// The published DIB rule: biClrUsed entries of 4 bytes, or 2^biBitCount when it
// is 0, for pictures of up to 8 bits; none for deeper pictures.
extern "C" std::uint16_t FLR_STDCALL BaseKit_ColorTableSize(const BITMAPINFOHEADER* header) {
    BITMAPINFOHEADER h;
    std::memcpy(&h, header, sizeof h);
    if (h.biBitCount > 8) return 0;
    const std::uint64_t entries = h.biClrUsed ? h.biClrUsed : (1u << h.biBitCount);
    const std::uint64_t bytes = entries * 4;
    return bytes > 0xFFFF ? 0xFFFF : static_cast<std::uint16_t>(bytes);
}

namespace {
// One row of the mix, byte by byte; a flat loop the compiler vectorises.
void mixRow(const std::uint8_t* f, const std::uint8_t* s, std::uint8_t* o, std::uint32_t n, std::uint32_t w) {
    const std::uint32_t wf = 16384 - w;
    for (std::uint32_t i = 0; i < n; ++i) o[i] = static_cast<std::uint8_t>((f[i] * wf + s[i] * w) >> 14);
}
}  // namespace

// out = (first * (16384 - w) + second * w) >> 14 per byte, in the second's format.
extern "C" HGLOBAL FLR_STDCALL BaseKit_MixPictures(HGLOBAL first, HGLOBAL second, std::uint32_t weight) {
    ++operationCounts().mixes;
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

