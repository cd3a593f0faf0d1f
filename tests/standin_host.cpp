// Stand-ins for the host's libraries ANIMKIT, BASEKIT, HUEKIT and PIXKIT over Flairize's own
// picture operations, each call logged: linked into the Linux tests, and with
// tests/windows/standin_ui.cpp built into the four DLLs the Wine test host loads.
#include "tests/standin_host.h"

#include "engine/dib.h"
#include "host/host_imports.h"
#include "hostops/host_ops.h"
#include "platform/strings.h"

#ifdef _WIN32
#include <windows.h>
#else
#include "host/exports.h"
#endif

namespace {
StandInLog g_log;

// The host reports its own operations' failures for want of memory, as one
// message; a picture it does not take is the caller's mistake and shows none.
HGLOBAL reported(HGLOBAL result) {
    if (!result && hostops::lastFailure() == hostops::Failure::OutOfMemory) {
        const char* text = "Not enough memory to complete operation";
#ifdef _WIN32
        MessageBoxA(nullptr, text, nullptr, MB_TASKMODAL);
#else
        plat::messageBox(text);
#endif
    }
    return result;
}
}  // namespace

extern "C" StandInLog* StandIn_Log() { return &g_log; }

// ---------------------------------------------------------------- ANIMKIT

extern "C" HGLOBAL FLR_STDCALL AnimKit_SourcePicture(void* hostContext, std::uint32_t) {
    ++g_log.sourceRequests;
    return hostContext ? static_cast<TestHostContext*>(hostContext)->source : nullptr;
}
extern "C" std::uint32_t FLR_STDCALL AnimKit_GenAnimation(std::uint32_t a, std::uint32_t b) { return a * 3 + b; }
extern "C" HWND FLR_STDCALL AnimKit_OwnerWindow() { return nullptr; }
extern "C" void FLR_STDCALL AnimKit_BeforeEditor() { ++g_log.beforeEditor; }
extern "C" void FLR_STDCALL AnimKit_AfterEditor() { ++g_log.afterEditor; }

// Moves the host and sets the frame up again through the plug-in's SetupFrame.
extern "C" void FLR_STDCALL AnimKit_MoveTo(void* hostContext, std::uint32_t position) {
    ++g_log.moves;
    static_cast<TestHostContext*>(hostContext)->setCurrentPosition(position);
#ifdef _WIN32
    using SetupFrameFn = std::uint32_t(FLR_STDCALL*)(void*, std::uint32_t);
    if (HMODULE plugin = GetModuleHandleA("FLAIR.dll"))
        if (auto setup = reinterpret_cast<SetupFrameFn>(
                reinterpret_cast<void (*)()>(GetProcAddress(plugin, MAKEINTRESOURCEA(11)))))
            setup(hostContext, 0);
#else
    SetupFrame(hostContext, 0);
#endif
}

// ---------------------------------------------------------------- BASEKIT

extern "C" void FLR_STDCALL BaseKit_BusyBegin() { ++g_log.busyBegin; }
extern "C" void FLR_STDCALL BaseKit_BusyEnd() { ++g_log.busyEnd; }
extern "C" void FLR_STDCALL BaseKit_RowTick() { ++g_log.rowTicks; }
extern "C" std::uint16_t FLR_STDCALL BaseKit_ColorTableSize(const BITMAPINFOHEADER* header) {
    return dib::colourTableBytes(header);
}
extern "C" HGLOBAL FLR_STDCALL BaseKit_MixPictures(HGLOBAL first, HGLOBAL second, std::uint32_t weight) {
    ++g_log.mixes;
    return reported(hostops::mix(first, second, weight));
}

// A small real palette where there is a display, so the plug-in's palette ownership is exercised.
extern "C" HPALETTE FLR_STDCALL BaseKit_Palette(HGLOBAL) {
    ++g_log.palettesMade;
#ifdef _WIN32
    struct {
        WORD version, entries;
        PALETTEENTRY e[2];
    } pal = {0x300, 2, {{0, 0, 0, 0}, {255, 255, 255, 0}}};
    return CreatePalette(reinterpret_cast<LOGPALETTE*>(&pal));
#else
    return nullptr;
#endif
}

// ---------------------------------------------------------------- HUEKIT

extern "C" HGLOBAL FLR_STDCALL HueKit_Smooth(HGLOBAL picture, std::uint32_t, std::uint32_t) {
    return reported(hostops::smooth(picture));
}
extern "C" HGLOBAL FLR_STDCALL HueKit_Simplify(HGLOBAL picture, std::uint32_t, std::uint32_t) {
    return reported(hostops::simplify(picture));
}
extern "C" HGLOBAL FLR_STDCALL HueKit_Soften(HGLOBAL picture, std::uint32_t, std::uint32_t) {
    return reported(hostops::soften(picture));
}

// ---------------------------------------------------------------- PIXKIT

extern "C" void FLR_STDCALL PixKit_RegisterIcon(void* icon, const char* name) {
    g_log.icon = icon;
    std::strncpy(g_log.name, name ? name : "", sizeof g_log.name - 1);
}
extern "C" void FLR_STDCALL PixKit_BeforeHelp() { ++g_log.beforeHelp; }
