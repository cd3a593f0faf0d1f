// JPEG through libjpeg-turbo: read as 24-bit, written from 24- or 32-bit
// pictures (alpha is left out) and 8-bit ones through their colour table.
#include <turbojpeg.h>

#include <vector>

#include "standalone/formats/common.h"

namespace pictures {
namespace {

constexpr int kDefaultJpegQuality = 90;

struct Turbo {
    tjhandle h;
    explicit Turbo(bool compress) : h(compress ? tjInitCompress() : tjInitDecompress()) {}
    ~Turbo() {
        if (h) tjDestroy(h);
    }
};

// Whether a JPEG's frame is progressive (SOF2, SOF6, SOF10, SOF14): libjpeg
// then holds every coefficient of the picture, two bytes each, while decoding.
bool progressiveJpeg(const std::vector<unsigned char>& data) {
    for (std::size_t at = 2; at + 4 <= data.size() && data[at] == 0xFF;) {
        const unsigned char marker = data[at + 1];
        if (marker == 0xDA) break;   // start of scan: no frame header after it
        if (marker == 0xC2 || marker == 0xC6 || marker == 0xCA || marker == 0xCE) return true;
        at += 2 + (std::size_t(data[at + 2]) << 8 | data[at + 3]);
    }
    return false;
}

}  // namespace

bool isJpeg(const unsigned char* data, std::size_t size) {
    return size >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF;
}

HGLOBAL readJpeg(const std::vector<unsigned char>& data, Reading& in) {
    std::string& error = in.error;
    Turbo t(false);
    int width = 0, height = 0, subsampling = 0, space = 0;
    if (!t.h || tjDecompressHeader3(t.h, data.data(), static_cast<unsigned long>(data.size()), &width, &height,
                                    &subsampling, &space) != 0) {
        error = t.h ? tjGetErrorStr2(t.h) : "cannot start the JPEG decoder";
        return nullptr;
    }
    if (!sideOk(std::uint64_t(width), std::uint64_t(height))) {
        error = "unsupported picture size";
        return nullptr;
    }
    const std::uint64_t pixels = std::uint64_t(width) * std::uint64_t(height);
    if (!in.fits(std::uint64_t(width), std::uint64_t(height), 24, progressiveJpeg(data) ? 6 * pixels : 0)) return nullptr;
    NewDib out;
    if (!out.create(nullptr, 40, width, height, 24, 0)) return in.noMemory();
    // A damaged or cut-off file is refused rather than shown half grey.
    if (tjDecompress2(t.h, data.data(), static_cast<unsigned long>(data.size()), out.pixels, width, int(out.stride),
                      height, TJPF_BGR, TJFLAG_BOTTOMUP | TJFLAG_STOPONWARNING) != 0) {
        error = tjGetErrorStr2(t.h);
        return nullptr;
    }
    return out.release();
}

bool writeJpeg(int fd, const dib::Source& pic, const WriteOptions& options, std::string& error) {
    const int quality = options.quality ? options.quality : kDefaultJpegQuality;
    const dib::Layout& l = pic.layout();
    const Rows rows = rowsOf(pic);
    Turbo t(true);
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    // Fine colour detail is kept at high qualities, halved below them.
    const int subsampling = quality >= 90 ? TJSAMP_444 : TJSAMP_420;
    const bool bottomUp = rows.down < 0;
    const unsigned char* first = bottomUp ? rows.top + rows.down * (l.height - 1) : rows.top;
    const int ok = t.h ? tjCompress2(t.h, first, l.width, int(bottomUp ? -rows.down : rows.down), l.height,
                                     rows.channels == 4 ? TJPF_BGRX : TJPF_BGR, &jpeg, &size, subsampling, quality,
                                     bottomUp ? TJFLAG_BOTTOMUP : 0)
                       : -1;
    if (ok != 0) {
        error = t.h ? tjGetErrorStr2(t.h) : "cannot start the JPEG encoder";
        tjFree(jpeg);
        return false;
    }
    const bool written = writeAll(fd, jpeg, size, error);
    tjFree(jpeg);
    return written;
}

}  // namespace pictures
