// Windows types used across the engine. On Windows they come from <windows.h>;
// elsewhere this header supplies layout-compatible stand-ins.
#pragma once

#include <cstddef>
#include <cstdint>

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#define FLR_STDCALL __stdcall
#else
#define FLR_STDCALL

struct GlobalBlock;  // opaque movable block (platform/global_memory.cpp)
using HGLOBAL = GlobalBlock*;
using HPALETTE = void*;
using HWND = void*;
using HINSTANCE = void*;
using COLORREF = std::uint32_t;
using BOOL = int;

#pragma pack(push, 1)
struct BITMAPINFOHEADER {
    std::uint32_t biSize;
    std::int32_t biWidth;
    std::int32_t biHeight;
    std::uint16_t biPlanes;
    std::uint16_t biBitCount;
    std::uint32_t biCompression;
    std::uint32_t biSizeImage;
    std::int32_t biXPelsPerMeter;
    std::int32_t biYPelsPerMeter;
    std::uint32_t biClrUsed;
    std::uint32_t biClrImportant;
};
#pragma pack(pop)
static_assert(sizeof(BITMAPINFOHEADER) == 40, "BITMAPINFOHEADER must be 40 bytes");

constexpr std::uint32_t BI_RGB = 0;
constexpr unsigned GMEM_MOVEABLE = 0x0002;
constexpr unsigned GMEM_ZEROINIT = 0x0040;
constexpr unsigned MB_TASKMODAL = 0x2000;
#endif
