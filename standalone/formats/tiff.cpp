// TIFF through libtiff, read from memory and written through the output's
// file descriptor; deflate-compressed RGB(A) or palette strips are written,
// with the colour profile and resolution tags. EXIF data is read through
// Exiv2.
#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "standalone/formats/common.h"

namespace pictures {
namespace {

std::uint8_t to8(std::uint32_t v16) { return std::uint8_t((v16 * 255 + 32767) / 65535); }

// libtiff's first error becomes the reason; nothing goes to stderr.
int tiffError(TIFF*, void* user, const char*, const char* format, va_list args) {
    auto* error = static_cast<std::string*>(user);
    if (error && error->empty()) {
        char text[256];
        std::vsnprintf(text, sizeof text, format, args);
        *error = std::strncmp(text, "tiff: ", 6) == 0 ? text + 6 : text;   // the name given to libtiff
    }
    return 1;
}
// Warnings stay quiet, except that a tag libtiff could not read from the file
// (a file cut short) is kept: libtiff goes on without the tag, but the picture
// would not be the one the file meant (a palette picture read as grey).
int tiffWarning(TIFF*, void* user, const char*, const char* format, va_list args) {
    auto* lost = static_cast<std::string*>(user);
    char text[256];
    std::vsnprintf(text, sizeof text, format, args);
    if (lost && lost->empty() && std::strstr(text, "IO error")) {
        *lost = text;
        const std::size_t ignored = lost->find("; tag ignored");
        if (ignored != std::string::npos) lost->erase(ignored);
    }
    return 1;
}

struct TiffMemory {
    const unsigned char* data;
    toff_t size;
    toff_t pos;
};
tmsize_t tiffMemRead(thandle_t h, void* buf, tmsize_t n) {
    auto* m = static_cast<TiffMemory*>(h);
    if (n <= 0 || m->pos >= m->size) return 0;
    const toff_t count = std::min<toff_t>(toff_t(n), m->size - m->pos);
    std::memcpy(buf, m->data + m->pos, count);
    m->pos += count;
    return tmsize_t(count);
}
tmsize_t tiffNoWrite(thandle_t, void*, tmsize_t) { return -1; }
toff_t tiffMemSeek(thandle_t h, toff_t off, int whence) {
    auto* m = static_cast<TiffMemory*>(h);
    const toff_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? m->pos : m->size;
    m->pos = base + off;   // past the end reads nothing
    return m->pos;
}
int tiffNoClose(thandle_t) { return 0; }
toff_t tiffMemSize(thandle_t h) { return static_cast<TiffMemory*>(h)->size; }
int tiffNoMap(thandle_t, void**, toff_t*) { return 0; }
void tiffNoUnmap(thandle_t, void*, toff_t) {}

tmsize_t tiffFdRead(thandle_t h, void* buf, tmsize_t n) { return ::read(*static_cast<int*>(h), buf, std::size_t(n)); }
tmsize_t tiffFdWrite(thandle_t h, void* buf, tmsize_t n) {
    std::string ignored;
    return writeAll(*static_cast<int*>(h), buf, std::size_t(n), ignored) ? n : -1;
}
toff_t tiffFdSeek(thandle_t h, toff_t off, int whence) {
    return toff_t(::lseek(*static_cast<int*>(h), off_t(off), whence));
}
toff_t tiffFdSize(thandle_t h) {
    struct stat st {};
    return ::fstat(*static_cast<int*>(h), &st) == 0 ? toff_t(st.st_size) : 0;
}

// A file made in memory, for EXIF data to be added before it goes out.
struct TiffBuffer {
    std::vector<unsigned char> bytes;
    toff_t pos = 0;
};
tmsize_t tiffBufferRead(thandle_t h, void* buf, tmsize_t n) {
    auto* b = static_cast<TiffBuffer*>(h);
    if (n <= 0 || b->pos >= b->bytes.size()) return 0;
    const toff_t count = std::min<toff_t>(toff_t(n), b->bytes.size() - b->pos);
    std::memcpy(buf, b->bytes.data() + b->pos, count);
    b->pos += count;
    return tmsize_t(count);
}
tmsize_t tiffBufferWrite(thandle_t h, void* buf, tmsize_t n) {
    auto* b = static_cast<TiffBuffer*>(h);
    if (n < 0) return -1;
    try {
        if (b->pos + toff_t(n) > b->bytes.size()) b->bytes.resize(std::size_t(b->pos + toff_t(n)));
    } catch (const std::bad_alloc&) {
        return -1;
    }
    std::memcpy(b->bytes.data() + b->pos, buf, std::size_t(n));
    b->pos += toff_t(n);
    return n;
}
toff_t tiffBufferSeek(thandle_t h, toff_t off, int whence) {
    auto* b = static_cast<TiffBuffer*>(h);
    const toff_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? b->pos : b->bytes.size();
    b->pos = base + off;
    return b->pos;
}
toff_t tiffBufferSize(thandle_t h) { return static_cast<TiffBuffer*>(h)->bytes.size(); }

struct Tiff {
    TIFF* tif = nullptr;
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    std::string lostTag;
    explicit Tiff(std::string& error) {
        TIFFOpenOptionsSetErrorHandlerExtR(options, tiffError, &error);
        TIFFOpenOptionsSetWarningHandlerExtR(options, tiffWarning, &lostTag);
    }
    ~Tiff() {
        if (tif) TIFFClose(tif);
        TIFFOpenOptionsFree(options);
    }
};

void unpremultiply(unsigned char* bgra) {
    const unsigned a = bgra[3];
    for (int c = 0; c < 3; ++c) bgra[c] = a ? std::uint8_t(std::min(255u, (bgra[c] * 255u + a / 2) / a)) : 0;
}

void keepMetadata(TIFF* tif, const std::vector<unsigned char>& data, Metadata& metadata) {
    std::uint32_t iccSize = 0;
    void* icc = nullptr;
    if (TIFFGetField(tif, TIFFTAG_ICCPROFILE, &iccSize, &icc) && icc) {
        const auto* bytes = static_cast<const unsigned char*>(icc);
        metadata.icc.assign(bytes, bytes + iccSize);
    }
    float x = 0, y = 0;
    std::uint16_t unit = RESUNIT_NONE;
    TIFFGetFieldDefaulted(tif, TIFFTAG_RESOLUTIONUNIT, &unit);
    if (TIFFGetField(tif, TIFFTAG_XRESOLUTION, &x) && TIFFGetField(tif, TIFFTAG_YRESOLUTION, &y) &&
        (unit == RESUNIT_INCH || unit == RESUNIT_CENTIMETER)) {
        metadata.xResolution = x;
        metadata.yResolution = y;
        metadata.unit = unit == RESUNIT_INCH ? ResolutionUnit::Inch : ResolutionUnit::Centimetre;
    }
    metadata.exif = exifOfTiff(data);
}

}  // namespace

bool isTiff(const unsigned char* data, std::size_t size) {
    return size >= 4 && ((data[0] == 'I' && data[1] == 'I' && (data[2] == 42 || data[2] == 43) && data[3] == 0) ||
                         (data[0] == 'M' && data[1] == 'M' && data[2] == 0 && (data[3] == 42 || data[3] == 43)));
}

// Strips of 8- or 16-bit RGB(A), grey(+alpha) and palette samples are read
// directly; anything else (tiles, planes, YCbCr, CMYK, bilevel) goes through
// libtiff's RGBA reader, whose 16-bit channels are rounded in the same way.
HGLOBAL readTiff(const std::vector<unsigned char>& data, Reading& in) {
    std::string& error = in.error;
    TiffMemory memory{data.data(), toff_t(data.size()), 0};
    Tiff t(error);
    TIFFOpenOptionsSetMaxSingleMemAlloc(t.options, tmsize_t(in.limits.maxFileBytes()));
    t.tif = TIFFClientOpenExt("tiff", "rm", &memory, tiffMemRead, tiffNoWrite, tiffMemSeek, tiffNoClose, tiffMemSize,
                              tiffNoMap, tiffNoUnmap, t.options);
    if (!t.tif || !t.lostTag.empty()) {
        if (error.empty()) error = t.tif ? t.lostTag : "not a readable TIFF file";
        return nullptr;
    }
    std::uint32_t width = 0, height = 0;
    std::uint16_t photometric = 0, bits = 1, samples = 1, planar = PLANARCONFIG_CONTIG, format = SAMPLEFORMAT_UINT;
    std::uint16_t extraCount = 0;
    std::uint16_t* extra = nullptr;
    TIFFGetField(t.tif, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(t.tif, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(t.tif, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(t.tif, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(t.tif, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(t.tif, TIFFTAG_SAMPLEFORMAT, &format);
    TIFFGetFieldDefaulted(t.tif, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
    if (!TIFFGetField(t.tif, TIFFTAG_PHOTOMETRIC, &photometric)) {
        error = "TIFF file without a colour interpretation";
        return nullptr;
    }
    if (!sideOk(width, height)) {
        error = "unsupported picture size";
        return nullptr;
    }
    keepMetadata(t.tif, data, in.metadata);
    const bool alpha = extraCount > 0 && (extra[0] == EXTRASAMPLE_ASSOCALPHA || extra[0] == EXTRASAMPLE_UNASSALPHA);
    const bool premultiplied = alpha && extra[0] == EXTRASAMPLE_ASSOCALPHA;
    const int colours = photometric == PHOTOMETRIC_RGB ? 3 : 1;
    const bool palette = photometric == PHOTOMETRIC_PALETTE && samples == 1 && bits >= 1 && bits <= 8 && !(bits & (bits - 1));
    const bool direct = !TIFFIsTiled(t.tif) && planar == PLANARCONFIG_CONTIG && format == SAMPLEFORMAT_UINT &&
                        (palette || ((photometric == PHOTOMETRIC_RGB || photometric == PHOTOMETRIC_MINISBLACK) &&
                                     (bits == 8 || bits == 16) && samples == colours + (alpha ? 1 : 0)));
    const unsigned dibBits = palette ? 8 : alpha ? 32 : 24;
    // Layouts read through libtiff's RGBA reader need its raster besides.
    if (!in.fits(width, height, dibBits, direct ? 0 : std::uint64_t(width) * height * 4)) return nullptr;
    NewDib out;
    if (!out.create(nullptr, 40, std::int32_t(width), std::int32_t(height), dibBits, palette ? 1u << bits : 0))
        return in.noMemory();
    const unsigned bpp = dibBits / 8;
    if (!direct) {
        std::vector<std::uint32_t> raster(std::size_t(width) * height);
        if (!TIFFReadRGBAImageOriented(t.tif, width, height, raster.data(), ORIENTATION_BOTLEFT, 1)) {
            if (error.empty()) error = "unsupported TIFF layout";
            return nullptr;
        }
        for (std::uint32_t y = 0; y < height; ++y)
            for (std::uint32_t x = 0; x < width; ++x) {
                const std::uint32_t p = raster[std::size_t(y) * width + x];
                unsigned char* o = out.pixels + std::size_t(y) * out.stride + x * bpp;
                o[0] = std::uint8_t(TIFFGetB(p)), o[1] = std::uint8_t(TIFFGetG(p)), o[2] = std::uint8_t(TIFFGetR(p));
                if (bpp == 4) {
                    o[3] = std::uint8_t(TIFFGetA(p));
                    unpremultiply(o);   // the RGBA reader always premultiplies
                }
            }
        return out.release();
    }
    if (palette) {
        std::uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
        if (!TIFFGetField(t.tif, TIFFTAG_COLORMAP, &red, &green, &blue)) {
            error = "palette TIFF without a colour map";
            return nullptr;
        }
        // Some writers store 8-bit colour maps; a map with no value above 255 is one.
        const std::uint32_t entries = 1u << bits;
        bool eightBit = true;
        for (std::uint32_t i = 0; i < entries; ++i) eightBit = eightBit && red[i] < 256 && green[i] < 256 && blue[i] < 256;
        for (std::uint32_t i = 0; i < entries; ++i) {
            out.table[4 * i + 0] = eightBit ? std::uint8_t(blue[i]) : to8(blue[i]);
            out.table[4 * i + 1] = eightBit ? std::uint8_t(green[i]) : to8(green[i]);
            out.table[4 * i + 2] = eightBit ? std::uint8_t(red[i]) : to8(red[i]);
        }
    }
    std::vector<unsigned char> line(std::size_t(TIFFScanlineSize(t.tif)));
    const std::size_t needed = palette ? (std::size_t(width) * bits + 7) / 8 : std::size_t(width) * samples * (bits / 8);
    if (line.size() < needed) {
        error = "unsupported TIFF layout";
        return nullptr;
    }
    for (std::uint32_t y = 0; y < height; ++y) {
        if (TIFFReadScanline(t.tif, line.data(), y, 0) < 0) {
            if (error.empty()) error = "damaged TIFF data";
            return nullptr;
        }
        unsigned char* o = out.pixels + std::size_t(height - 1 - y) * out.stride;
        if (palette) {
            for (std::uint32_t x = 0; x < width; ++x) {
                const std::uint32_t bit = x * bits;
                o[x] = std::uint8_t((line[bit / 8] >> (8 - bits - bit % 8)) & ((1u << bits) - 1));
            }
            continue;
        }
        const auto* wide = reinterpret_cast<const std::uint16_t*>(line.data());   // libtiff gives host order
        auto sample = [&](std::size_t i) { return bits == 16 ? to8(wide[i]) : line[i]; };
        for (std::uint32_t x = 0; x < width; ++x, o += bpp) {
            const std::size_t s = std::size_t(x) * samples;
            if (colours == 3) {
                o[2] = sample(s), o[1] = sample(s + 1), o[0] = sample(s + 2);
            } else {
                o[0] = o[1] = o[2] = sample(s);
            }
            if (alpha) {
                o[3] = sample(s + std::size_t(colours));
                if (premultiplied) unpremultiply(o);
            }
        }
    }
    return out.release();
}

bool writeTiff(int fd, const dib::Source& pic, const WriteOptions& options, Writing& out) {
    std::string& error = out.error;
    const dib::Layout& l = pic.layout();
    Tiff t(error);
    int handle = fd;
    // With EXIF data the file is made in memory, and Exiv2 adds it there.
    const bool withExif = options.metadata && !options.metadata->exif.empty();
    TiffBuffer buffer;
    t.tif = withExif ? TIFFClientOpenExt("tiff", "w", &buffer, tiffBufferRead, tiffBufferWrite, tiffBufferSeek,
                                         tiffNoClose, tiffBufferSize, tiffNoMap, tiffNoUnmap, t.options)
                     : TIFFClientOpenExt("tiff", "w", &handle, tiffFdRead, tiffFdWrite, tiffFdSeek, tiffNoClose,
                                         tiffFdSize, tiffNoMap, tiffNoUnmap, t.options);
    if (!t.tif) {
        if (error.empty()) error = "cannot start the TIFF writer";
        return false;
    }
    const bool palette = l.bitCount == 8;
    const std::uint16_t samples = palette ? 1 : std::uint16_t(l.bitCount / 8);
    TIFFSetField(t.tif, TIFFTAG_IMAGEWIDTH, std::uint32_t(l.width));
    TIFFSetField(t.tif, TIFFTAG_IMAGELENGTH, std::uint32_t(l.height));
    TIFFSetField(t.tif, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(t.tif, TIFFTAG_SAMPLESPERPIXEL, samples);
    TIFFSetField(t.tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t.tif, TIFFTAG_PHOTOMETRIC, palette ? PHOTOMETRIC_PALETTE : PHOTOMETRIC_RGB);
    TIFFSetField(t.tif, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    if (!palette) TIFFSetField(t.tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    TIFFSetField(t.tif, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t.tif, 0));
    if (const Metadata* m = options.metadata) {
        if (!m->icc.empty()) TIFFSetField(t.tif, TIFFTAG_ICCPROFILE, std::uint32_t(m->icc.size()), m->icc.data());
        if (hasResolution(*m)) {
            TIFFSetField(t.tif, TIFFTAG_XRESOLUTION, float(m->xResolution));
            TIFFSetField(t.tif, TIFFTAG_YRESOLUTION, float(m->yResolution));
            TIFFSetField(t.tif, TIFFTAG_RESOLUTIONUNIT, m->unit == ResolutionUnit::Inch ? RESUNIT_INCH : RESUNIT_CENTIMETER);
        }
    }
    if (samples == 4) {
        const std::uint16_t extra[1] = {EXTRASAMPLE_UNASSALPHA};
        TIFFSetField(t.tif, TIFFTAG_EXTRASAMPLES, 1, extra);
    }
    std::vector<std::uint16_t> map(3 * 256);
    if (palette) {
        for (std::size_t i = 0; i < 256; ++i) {
            const std::uint8_t* e = pic.colourTable() + 4 * i;
            map[i] = std::uint16_t(e[2] * 257), map[256 + i] = std::uint16_t(e[1] * 257),
            map[512 + i] = std::uint16_t(e[0] * 257);
        }
        TIFFSetField(t.tif, TIFFTAG_COLORMAP, map.data(), map.data() + 256, map.data() + 512);
    }
    std::vector<unsigned char> line(std::size_t(l.width) * samples);
    for (std::uint32_t y = 0; y < l.height; ++y) {
        const unsigned char* in = pic.row(l.height - 1 - y);
        std::memcpy(line.data(), in, line.size());
        if (!palette)
            for (std::size_t x = 0; x < line.size(); x += samples) std::swap(line[x], line[x + 2]);   // BGR to RGB
        if (TIFFWriteScanline(t.tif, line.data(), y, 0) < 0) {
            if (error.empty()) error = "cannot write the TIFF data";
            return false;
        }
    }
    if (!TIFFWriteDirectory(t.tif)) {
        if (error.empty()) error = "cannot write the TIFF directory";
        return false;
    }
    TIFFClose(t.tif);
    t.tif = nullptr;
    if (!error.empty()) return false;
    if (!withExif) return true;
    addExifToTiff(buffer.bytes, options.metadata->exif);   // without it where Exiv2 cannot add it
    return writeAll(fd, buffer.bytes.data(), buffer.bytes.size(), error);
}

}  // namespace pictures
