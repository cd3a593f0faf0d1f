// The host's libraries ANIMKIT, BASEKIT, HUEKIT and PIXKIT as the plug-in
// imports them, by ordinal (the definition files beside this header). The
// plug-in's tests supply stand-ins under the same names.
#pragma once

#include <cstdint>

#include "platform/win_types.h"

#if defined(_WIN32) && !defined(FLAIRIZE_STANDIN)
#define HOSTAPI extern "C" __declspec(dllimport)
#else
#define HOSTAPI extern "C"
#endif

// ANIMKIT
HOSTAPI HGLOBAL FLR_STDCALL AnimKit_SourcePicture(void* hostContext, std::uint32_t zero);  // 65
HOSTAPI std::uint32_t FLR_STDCALL AnimKit_GenAnimation(std::uint32_t a, std::uint32_t b);   // 26
HOSTAPI HWND FLR_STDCALL AnimKit_OwnerWindow();                                             // 33
HOSTAPI void FLR_STDCALL AnimKit_BeforeEditor();                                            // 48
HOSTAPI void FLR_STDCALL AnimKit_AfterEditor();                                             // 49
HOSTAPI void FLR_STDCALL AnimKit_MoveTo(void* hostContext, std::uint32_t position);        // 57

// BASEKIT
HOSTAPI void FLR_STDCALL BaseKit_BusyBegin();                                               // 100
HOSTAPI void FLR_STDCALL BaseKit_BusyEnd();                                                 // 101
HOSTAPI std::int32_t FLR_STDCALL BaseKit_Scroll(HWND dialog, std::uintptr_t wParam, std::intptr_t lParam,
                                                std::uint32_t zero);                         // 107
HOSTAPI void FLR_STDCALL BaseKit_PreviewSetupA(HWND preview, std::uint32_t zero);          // 301
HOSTAPI void FLR_STDCALL BaseKit_PreviewSetupB(HWND preview, std::uint32_t zero);          // 302
HOSTAPI void FLR_STDCALL BaseKit_PreviewSource(HWND preview, HGLOBAL source, HPALETTE palette);  // 309
// The preview control's render callback: (source, result out, palette out) -> 1 or 0.
using PreviewCallback = std::uint32_t(FLR_STDCALL*)(HGLOBAL, HGLOBAL*, HPALETTE*);
HOSTAPI void FLR_STDCALL BaseKit_PreviewCallback(HWND preview, PreviewCallback callback);   // 316
HOSTAPI std::uint16_t FLR_STDCALL BaseKit_ColorTableSize(const BITMAPINFOHEADER* header);  // 401
HOSTAPI HGLOBAL FLR_STDCALL BaseKit_MixPictures(HGLOBAL first, HGLOBAL second,
                                                 std::uint32_t weight);                     // 409
HOSTAPI HPALETTE FLR_STDCALL BaseKit_Palette(HGLOBAL picture);                              // 411
HOSTAPI void FLR_STDCALL BaseKit_RowTick();                                                 // 702

// HUEKIT: whole-picture colour operations, (picture, 0, 0) -> new picture
HOSTAPI HGLOBAL FLR_STDCALL HueKit_Smooth(HGLOBAL picture, std::uint32_t, std::uint32_t);    // 22
HOSTAPI HGLOBAL FLR_STDCALL HueKit_Simplify(HGLOBAL picture, std::uint32_t, std::uint32_t);  // 17
HOSTAPI HGLOBAL FLR_STDCALL HueKit_Soften(HGLOBAL picture, std::uint32_t, std::uint32_t);    // 21

// PIXKIT
HOSTAPI void FLR_STDCALL PixKit_RegisterIcon(void* icon, const char* name);                 // 59
HOSTAPI void FLR_STDCALL PixKit_BeforeHelp();                                                // 82
