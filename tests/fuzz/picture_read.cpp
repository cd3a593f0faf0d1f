// Every picture reader of the flairize command through pictures::read, which
// tells BMP, PNG, JPEG, WebP, TIFF and GIF by their first bytes: the input becomes a
// file and is read. A picture read is one the engine accepts as a source.
// Pictures whose headers claim more than 256 pixels either way are refused
// here, before reading, so each run stays fast.
#include <tiffio.h>
#include <turbojpeg.h>
#include <unistd.h>
#include <webp/decode.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "engine/dib.h"
#include "standalone/picture_io.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

std::uint32_t bigEndian(const std::uint8_t* p) {
    return std::uint32_t(p[0]) << 24 | std::uint32_t(p[1]) << 16 | std::uint32_t(p[2]) << 8 | p[3];
}

// The size a picture file's header claims, where its format is known; false
// when there is no header to tell (the reader then refuses the file itself).
bool claimedSize(const std::string& path, const std::uint8_t* d, std::size_t n, long& width, long& height) {
    if (n >= 26 && d[0] == 'B' && d[1] == 'M') {
        std::uint32_t header;
        std::memcpy(&header, d + 14, 4);
        if (header == 12) {   // OS/2 core header: 16-bit sides
            width = d[18] | d[19] << 8, height = d[20] | d[21] << 8;
        } else {
            std::int32_t w, h;
            std::memcpy(&w, d + 18, 4), std::memcpy(&h, d + 22, 4);
            width = labs(w), height = labs(h);
        }
        return true;
    }
    if (n >= 24 && d[0] == 0x89 && d[1] == 'P') {
        width = bigEndian(d + 16), height = bigEndian(d + 20);
        return true;
    }
    if (n >= 2 && d[0] == 0xFF && d[1] == 0xD8) {
        tjhandle tj = tjInitDecompress();
        int w = 0, h = 0, subsampling = 0, colourspace = 0;
        const bool known = tjDecompressHeader3(tj, d, (unsigned long)n, &w, &h, &subsampling, &colourspace) == 0;
        tjDestroy(tj);
        width = w, height = h;
        return known;
    }
    if (n >= 10 && d[0] == 'G' && d[1] == 'I' && d[2] == 'F') {   // the screen; none: a frame of any size
        width = d[6] | d[7] << 8, height = d[8] | d[9] << 8;
        if (!width || !height) width = height = 65535;
        return true;
    }
    int w = 0, h = 0;
    if (WebPGetInfo(d, n, &w, &h)) {
        width = w, height = h;
        return true;
    }
    if (n >= 4 && (d[0] == 'I' || d[0] == 'M') && d[1] == d[0]) {
        TIFFSetErrorHandler(nullptr), TIFFSetWarningHandler(nullptr);
        TIFF* tiff = TIFFOpen(path.c_str(), "r");
        if (!tiff) return false;
        std::uint32_t tw = 0, th = 0;
        bool known = true;
        do {   // every directory: the reader may look past the first
            tw = th = 0;
            known = TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &tw) && TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &th) && known;
            width = std::max(width, long(tw)), height = std::max(height, long(th));
        } while (TIFFReadDirectory(tiff));
        TIFFClose(tiff);
        return known;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const struct TempFile {
        std::string path = "/tmp/flairize-fuzz-picture-" + std::to_string(getpid());
        ~TempFile() { unlink(path.c_str()); }
    } temp;
    const std::string& path = temp.path;
    std::FILE* file = std::fopen(path.c_str(), "wb");
    FUZZ_CHECK(file && std::fwrite(data, 1, size, file) == size && std::fclose(file) == 0);
    long width = 0, height = 0;
    if (claimedSize(path, data, size, width, height) && (width > 256 || height > 256)) return 0;

    std::string error;
    HGLOBAL picture = pictures::read(path, error);
    FUZZ_CHECK(picture || !error.empty());   // a refusal always says why
    if (picture) {
        dib::Layout layout;
        const auto* bytes = static_cast<const std::uint8_t*>(plat::globalLock(picture));
        FUZZ_CHECK(dib::inspect(bytes, plat::globalSize(picture), nullptr, layout));
        plat::globalUnlock(picture);
        plat::globalFree(picture);
    }
    return 0;
}
