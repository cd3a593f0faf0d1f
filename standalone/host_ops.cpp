// The host operations as the stand-alone host provides them.
#include <cstring>
#include <malloc.h>

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

void keepPictureMemory() {
    mallopt(M_MMAP_THRESHOLD, 256 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 512 * 1024 * 1024);
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

// No display here, so no palette.
extern "C" HPALETTE FLR_STDCALL BaseKit_Palette(HGLOBAL) { return nullptr; }

extern "C" void FLR_STDCALL BaseKit_RowTick() {
    ++operationCounts().rowTicks;
    if (standalone::t_tickHandler) standalone::t_tickHandler(standalone::t_tickUser);
}

extern "C" void FLR_STDCALL PixKit_RegisterIcon(void*, const char*) {}
