// The host operations as the stand-alone host provides them.
#include <cstring>

#include "engine/dib.h"
#include "host/exports.h"
#include "hostapi/host_ops.h"
#include "platform/global_memory.h"
#include "standalone/host_context.h"

namespace standalone {
namespace {
thread_local RowTickHandler t_tickHandler = nullptr;
thread_local void* t_tickUser = nullptr;
}  // namespace

void setRowTickHandler(RowTickHandler handler, void* user) {
    t_tickHandler = handler;
    t_tickUser = user;
}

OperationCounts& operationCounts() {
    thread_local OperationCounts counts;
    return counts;
}

}  // namespace standalone

using standalone::operationCounts;

extern "C" HGLOBAL FLR_STDCALL AnimKit_SourcePicture(void* hostContext, std::uint32_t) {
    return hostContext ? static_cast<standalone::Context*>(hostContext)->source : nullptr;
}

// The host's counterpart of GenAnimation: this host has no animation of its own
// and answers with its first argument.
extern "C" std::uint32_t FLR_STDCALL AnimKit_GenAnimation(std::uint32_t a, std::uint32_t) { return a; }

extern "C" void FLR_STDCALL AnimKit_MoveTo(void* hostContext, std::uint32_t position) {
    hostctx::setCurrentPosition(hostContext, position);
    SetupFrame(hostContext, 0);
}

extern "C" void FLR_STDCALL BaseKit_BusyBegin() { ++operationCounts().busyBegin; }
extern "C" void FLR_STDCALL BaseKit_BusyEnd() { ++operationCounts().busyEnd; }

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
    const unsigned wa = 16384 - weight;
    for (std::uint32_t y = 0; y < lb.height; ++y) {
        const std::uint8_t* fa = a.row(y);
        const std::uint8_t* sb = b.row(y);
        std::uint8_t* o = out.row(y);
        for (std::uint32_t x = 0; x < lb.width; ++x, sb += step, o += step) {
            const std::uint8_t* f = la.bitCount == 8 ? a.colourTable() + 4u * fa[x] : fa + std::size_t(x) * step;
            for (unsigned k = 0; k < step; ++k)
                o[k] = static_cast<std::uint8_t>((f[k] * wa + sb[k] * weight) >> 14);
        }
    }
    return out.release();
}

// No display here, so no palette.
extern "C" HPALETTE FLR_STDCALL BaseKit_Palette(HGLOBAL) { return nullptr; }

extern "C" void FLR_STDCALL BaseKit_RowTick() {
    ++operationCounts().rowTicks;
    if (standalone::t_tickHandler) standalone::t_tickHandler(standalone::t_tickUser);
}

extern "C" void FLR_STDCALL PixKit_RegisterIcon(void*, const char*) {}
