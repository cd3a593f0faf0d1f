// GIF through giflib, read only: the first frame on the file's screen, an
// 8-bit picture with its colour table, or 32-bit where the frame has a
// transparent colour. Later frames are not read.
#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "standalone/formats/common.h"

namespace pictures {
namespace {

struct GifSource {
    const unsigned char* data;
    std::size_t size;
    std::size_t offset;
};

int gifRead(GifFileType* gif, GifByteType* out, int length) {
    auto* src = static_cast<GifSource*>(gif->UserData);
    const std::size_t n = std::min(std::size_t(length > 0 ? length : 0), src->size - src->offset);
    std::memcpy(out, src->data + src->offset, n);
    src->offset += n;
    return int(n);
}

struct Gif {
    GifFileType* file = nullptr;
    ~Gif() {
        int ignored = 0;
        if (file) DGifCloseFile(file, &ignored);
    }
};

std::string gifReason(int code) {
    const char* text = GifErrorString(code);
    return text ? text : "damaged GIF data";
}

}  // namespace

bool isGif(const unsigned char* data, std::size_t size) {
    return size >= 6 && (std::memcmp(data, "GIF87a", 6) == 0 || std::memcmp(data, "GIF89a", 6) == 0);
}

HGLOBAL readGif(const std::vector<unsigned char>& data, Reading& in) {
    std::string& error = in.error;
    GifSource src{data.data(), data.size(), 0};
    Gif g;
    int code = 0;
    g.file = DGifOpen(&src, gifRead, &code);
    if (!g.file) {
        if (code == D_GIF_ERR_NOT_ENOUGH_MEM) return in.noMemory();
        error = gifReason(code);
        return nullptr;
    }
    GifFileType* gif = g.file;
    // The extensions before the first frame: its transparent colour, if any.
    int transparent = NO_TRANSPARENT_COLOR;
    for (;;) {
        GifRecordType record = UNDEFINED_RECORD_TYPE;
        if (DGifGetRecordType(gif, &record) == GIF_ERROR) {
            error = gifReason(gif->Error);
            return nullptr;
        }
        if (record == IMAGE_DESC_RECORD_TYPE) break;
        if (record == TERMINATE_RECORD_TYPE) {
            error = "GIF file without a picture";
            return nullptr;
        }
        if (record != EXTENSION_RECORD_TYPE) continue;
        int kind = 0;
        GifByteType* block = nullptr;
        if (DGifGetExtension(gif, &kind, &block) == GIF_ERROR) {
            error = gifReason(gif->Error);
            return nullptr;
        }
        GraphicsControlBlock control;
        if (kind == GRAPHICS_EXT_FUNC_CODE && block && DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK)
            transparent = control.TransparentColor;
        while (block)
            if (DGifGetExtensionNext(gif, &block) == GIF_ERROR) {
                error = gifReason(gif->Error);
                return nullptr;
            }
    }
    if (DGifGetImageDesc(gif) == GIF_ERROR) {
        error = gifReason(gif->Error);
        return nullptr;
    }
    const GifImageDesc& frame = gif->Image;
    const ColorMapObject* colours = frame.ColorMap ? frame.ColorMap : gif->SColorMap;
    if (!colours || colours->ColorCount < 1 || colours->ColorCount > 256) {
        error = "GIF file without colours";
        return nullptr;
    }
    // The screen the frame is placed on; a file that gives none is the frame's size.
    const std::uint32_t width = gif->SWidth > 0 ? std::uint32_t(gif->SWidth) : std::uint32_t(std::max(0, frame.Width));
    const std::uint32_t height = gif->SHeight > 0 ? std::uint32_t(gif->SHeight) : std::uint32_t(std::max(0, frame.Height));
    if (!sideOk(width, height) || frame.Width < 1 || frame.Height < 1 || frame.Width > 65535 || frame.Height > 65535) {
        error = "unsupported picture size";
        return nullptr;
    }
    const bool alpha = transparent >= 0 && transparent < colours->ColorCount;
    const unsigned bits = alpha ? 32 : 8;
    if (!in.fits(width, height, bits, std::uint64_t(frame.Width))) return nullptr;
    NewDib out;
    const std::uint32_t entries = alpha ? 0 : std::uint32_t(colours->ColorCount);
    if (!out.create(nullptr, 40, std::int32_t(width), std::int32_t(height), bits, entries)) return in.noMemory();
    for (std::uint32_t i = 0; i < entries; ++i) {
        out.table[4 * i + 0] = colours->Colors[i].Blue;
        out.table[4 * i + 1] = colours->Colors[i].Green;
        out.table[4 * i + 2] = colours->Colors[i].Red;
    }
    // Outside the frame: the background colour, or clear where the frame has a transparent colour.
    if (!alpha && gif->SBackGroundColor < colours->ColorCount && gif->SBackGroundColor > 0)
        for (std::uint32_t y = 0; y < height; ++y)
            std::memset(out.pixels + std::size_t(y) * out.stride, gif->SBackGroundColor, width);
    std::vector<GifPixelType> line(std::size_t(frame.Width));
    // Interlaced frames come in four passes: rows 0, 8, 16...; 4, 12...; 2, 6...; 1, 3...
    static const int kStart[4] = {0, 4, 2, 1}, kStep[4] = {8, 8, 4, 2};
    const int passes = frame.Interlace ? 4 : 1;
    for (int pass = 0; pass < passes; ++pass)
        for (int row = frame.Interlace ? kStart[pass] : 0; row < frame.Height; row += frame.Interlace ? kStep[pass] : 1) {
            if (DGifGetLine(gif, line.data(), frame.Width) == GIF_ERROR) {
                error = gifReason(gif->Error);
                return nullptr;
            }
            const long y = long(frame.Top) + row;
            if (y < 0 || y >= long(height)) continue;
            unsigned char* o = out.pixels + std::size_t(height - 1 - std::uint32_t(y)) * out.stride;
            for (int k = 0; k < frame.Width; ++k) {
                const long x = long(frame.Left) + k;
                if (x < 0 || x >= long(width)) continue;
                const GifPixelType index = line[std::size_t(k)];
                if (!alpha) {
                    o[x] = index;
                    continue;
                }
                unsigned char* p = o + 4 * x;
                if (index == transparent || index >= colours->ColorCount) continue;   // stays clear
                p[0] = colours->Colors[index].Blue, p[1] = colours->Colors[index].Green;
                p[2] = colours->Colors[index].Red, p[3] = 255;
            }
        }
    return out.release();
}

}  // namespace pictures
