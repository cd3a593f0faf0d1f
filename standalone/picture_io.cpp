#include "standalone/picture_io.h"

#include <png.h>
#include <zlib.h>
#include <tiffio.h>
#include <turbojpeg.h>
#include <webp/decode.h>
#include <webp/encode.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/dib.h"
#include "platform/global_memory.h"
#include "standalone/output_file.h"

namespace pictures {

const char* const kKnownExtensions = ".bmp, .png, .jpg, .jpeg, .webp, .tif or .tiff";

namespace {

constexpr std::uint32_t kBiBitfields = 3;
constexpr int kDefaultJpegQuality = 90;
constexpr std::uint32_t kWebPMaxSide = 16383;   // the WebP format's own limit

std::uint16_t le16(const unsigned char* p) { return std::uint16_t(p[0] | (p[1] << 8)); }
std::uint32_t le32(const unsigned char* p) {
    return std::uint32_t(p[0]) | (std::uint32_t(p[1]) << 8) | (std::uint32_t(p[2]) << 16) | (std::uint32_t(p[3]) << 24);
}
void putLe32(unsigned char* p, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}

std::uint8_t to8(std::uint32_t v16) { return std::uint8_t((v16 * 255 + 32767) / 65535); }

bool sideOk(std::uint64_t width, std::uint64_t height) {
    return width >= 1 && height >= 1 && width <= dib::kMaxSide && height <= dib::kMaxSide;
}

// One read: its limits, and whether it failed for want of memory.
struct Reading {
    std::string& error;
    const Limits& limits;
    bool outOfMemory = false;
    // False, with the refusal, for a declared size over the limits.
    bool fits(std::uint64_t width, std::uint64_t height, unsigned bits, std::uint64_t extra = 0) {
        error = limits.check(width, height, bits, extra);
        return error.empty();
    }
    HGLOBAL noMemory() {
        error = "not enough memory";
        outOfMemory = true;
        return nullptr;
    }
};

// A V5 header's colour space may name a profile stored after the pixels (or a
// file); the picture carries no profile, so the header must not claim one.
void dropProfile(unsigned char* header, std::uint32_t headerSize) {
    if (headerSize < 124) return;
    constexpr std::uint32_t kEmbedded = 0x4D424544, kLinked = 0x4C494E4B, kSrgb = 0x73524742;
    const std::uint32_t space = le32(header + 56);
    if (space == kEmbedded || space == kLinked) putLe32(header + 56, kSrgb);
    std::memset(header + 112, 0, 8);   // bV5ProfileData, bV5ProfileSize
}

// A new bottom-up DIB: `header` (headerSize bytes), `tableEntries` colour entries, rows.
struct NewDib {
    HGLOBAL handle = nullptr;
    unsigned char* base = nullptr;
    unsigned char* table = nullptr;
    unsigned char* pixels = nullptr;
    std::uint32_t stride = 0;
    ~NewDib() {
        if (handle) {
            plat::globalUnlock(handle);
            plat::globalFree(handle);
        }
    }
    bool create(const unsigned char* header, std::uint32_t headerSize, std::int32_t width, std::int32_t height,
                unsigned bits, std::uint32_t tableEntries) {
        handle = dib::create(width, height, bits, tableEntries, headerSize);
        if (!handle) return false;
        base = static_cast<unsigned char*>(plat::globalLock(handle));
        // The file's resolution and a longer header's further fields are kept;
        // colour masks no longer apply to BI_RGB.
        if (header) std::memcpy(base + 24, header + 24, 8);
        if (header && headerSize > 40) std::memcpy(base + 40, header + 40, headerSize - 40);
        if (headerSize >= 56) std::memset(base + 40, 0, 16);
        stride = std::uint32_t(dib::paddedStride(std::uint32_t(width), bits));
        table = base + headerSize;
        pixels = table + tableEntries * 4;
        return true;
    }
    HGLOBAL release() {
        plat::globalUnlock(handle);
        HGLOBAL h = handle;
        handle = nullptr;
        return h;
    }
};

// True when the first bytes (at least 12, or the whole file) start a picture
// format this reader knows.
bool knownSignature(const unsigned char* d, std::size_t n) {
    static const unsigned char kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    return (n >= 8 && std::memcmp(d, kPngSignature, 8) == 0) || (n >= 2 && d[0] == 'B' && d[1] == 'M') ||
           (n >= 3 && d[0] == 0xFF && d[1] == 0xD8 && d[2] == 0xFF) ||
           (n >= 12 && std::memcmp(d, "RIFF", 4) == 0 && std::memcmp(d + 8, "WEBP", 4) == 0) ||
           (n >= 4 && ((d[0] == 'I' && d[1] == 'I' && (d[2] == 42 || d[2] == 43) && d[3] == 0) ||
                       (d[0] == 'M' && d[1] == 'M' && d[2] == 0 && (d[3] == 42 || d[3] == 43))));
}
const char* const kNotAPicture = "not a BMP, PNG, JPEG, WebP or TIFF picture";

// Reads at most `limit` bytes; more is refused as soon as it arrives, so an
// endless stream (a pipe, /dev/zero) costs no more than the limit.
bool readAll(int fd, std::vector<unsigned char>& data, std::size_t expected, std::size_t limit, std::string& error) {
    data.resize(std::min(expected ? expected + 1 : std::size_t(1) << 16, limit + 1));
    std::size_t used = 0;
    for (;;) {
        if (used > limit) {
            error = "file too large (over " + sizeText(limit) + ", half the memory limit)";
            return false;
        }
        if (used == data.size()) data.resize(std::min(data.size() * 2, limit + 1));
        const ssize_t n = ::read(fd, data.data() + used, data.size() - used);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            error = std::strerror(errno);
            return false;
        }
        if (n == 0) break;
        // A stream that starts no known picture is refused at once, not read to its end.
        if (used < 12 && used + std::size_t(n) >= 12 && !knownSignature(data.data(), used + std::size_t(n))) {
            error = kNotAPicture;
            return false;
        }
        used += std::size_t(n);
    }
    data.resize(used);
    return true;
}

bool readFile(const std::string& path, std::vector<unsigned char>& data, std::size_t limit, std::string& error) {
    if (path == "-") return readAll(STDIN_FILENO, data, 0, limit, error);
    const int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0) {
        error = std::strerror(errno);
        return false;
    }
    struct stat st {};
    bool ok = ::fstat(fd, &st) == 0;
    if (!ok) error = std::strerror(errno);
    if (ok && S_ISDIR(st.st_mode)) {
        error = "is a folder";
        ok = false;
    }
    if (ok && S_ISREG(st.st_mode) && std::uint64_t(st.st_size) > limit) {   // refused before it is read
        error = "file too large (" + sizeText(std::uint64_t(st.st_size)) + ", limit " + sizeText(limit) +
                ", half the memory limit)";
        ok = false;
    }
    ok = ok && readAll(fd, data, S_ISREG(st.st_mode) ? std::size_t(st.st_size) : 0, limit, error);
    ::close(fd);
    return ok;
}

// ---------------------------------------------------------------- PNG reading

struct PngReader {
    png_structp png = nullptr;
    png_infop info = nullptr;
    ~PngReader() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
};

struct PngSource {
    const unsigned char* data;
    std::size_t size;
    std::size_t offset;
};

void pngError(png_structp png, png_const_charp message) {
    auto* error = static_cast<std::string*>(png_get_error_ptr(png));
    if (error) *error = message;
    png_longjmp(png, 1);
}
void pngWarning(png_structp, png_const_charp) {}

void pngReadData(png_structp png, png_bytep out, png_size_t length) {
    auto* src = static_cast<PngSource*>(png_get_io_ptr(png));
    if (length > src->size - src->offset) png_error(png, "file is truncated");
    std::memcpy(out, src->data + src->offset, length);
    src->offset += length;
}

HGLOBAL parsePng(const std::vector<unsigned char>& data, Reading& in) {
    std::string& error = in.error;
    PngReader r;
    r.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &error, pngError, pngWarning);
    if (!r.png) return in.noMemory();
    r.info = png_create_info_struct(r.png);
    if (!r.info) return in.noMemory();
    // The size the header declares is checked before libpng reads it, so
    // the refusal names the size even where libpng's side limit is lower.
    if (data.size() >= 33 && std::memcmp(data.data() + 12, "IHDR", 4) == 0) {
        const unsigned char* h = data.data() + 16;
        const std::uint64_t w = std::uint64_t(h[0]) << 24 | h[1] << 16 | h[2] << 8 | h[3];
        const std::uint64_t ht = std::uint64_t(h[4]) << 24 | h[5] << 16 | h[6] << 8 | h[7];
        if (w && ht && !in.fits(w, ht, h[9] == PNG_COLOR_TYPE_PALETTE ? 8 : (h[9] & PNG_COLOR_MASK_ALPHA) ? 32 : 24))
            return nullptr;
    }
    PngSource src{data.data(), data.size(), 0};
    NewDib out;
    std::vector<png_bytep> rowPointers;
    if (setjmp(png_jmpbuf(r.png))) return nullptr;
    png_set_read_fn(r.png, &src, pngReadData);
    // libpng refuses a side over the limits itself, and keeps any one
    // ancillary chunk (text, profile) within a small share of the budget.
    const png_uint_32 side = png_uint_32(std::min<std::uint64_t>(dib::kMaxSide, in.limits.maxPixels));
    png_set_user_limits(r.png, side, side);
    png_set_chunk_malloc_max(r.png, png_alloc_size_t(std::min<std::uint64_t>(8000000, in.limits.maxFileBytes())));
    png_read_info(r.png, r.info);
    png_uint_32 width = 0, height = 0;
    int bitDepth = 0, colourType = 0, interlace = 0;
    png_get_IHDR(r.png, r.info, &width, &height, &bitDepth, &colourType, &interlace, nullptr, nullptr);
    const bool pngAlpha = (colourType & PNG_COLOR_MASK_ALPHA) || png_get_valid(r.png, r.info, PNG_INFO_tRNS);
    if (!in.fits(width, height, colourType == PNG_COLOR_TYPE_PALETTE ? 8 : pngAlpha ? 32 : 24,
                 std::uint64_t(height) * sizeof(png_bytep)))
        return nullptr;
    // Deflate packs at most 1032 bytes into one, so a size the data cannot
    // hold is refused before the picture is allocated.
    if (std::uint64_t(png_get_rowbytes(r.png, r.info) + 1) * height / 1032 > data.size()) {
        error = "file is truncated";
        return nullptr;
    }

    unsigned bits = 24;
    std::uint32_t entries = 0;
    if (colourType == PNG_COLOR_TYPE_PALETTE) {
        // Palette PNG: an 8-bit picture with its colour table.
        png_colorp palette = nullptr;
        int count = 0;
        png_get_PLTE(r.png, r.info, &palette, &count);
        if (bitDepth < 8) png_set_packing(r.png);
        bits = 8;
        entries = std::uint32_t(count);
        if (!out.create(nullptr, 40, std::int32_t(width), std::int32_t(height), bits, entries)) return in.noMemory();
        for (int i = 0; i < count; ++i) {
            out.table[4 * i + 0] = palette[i].blue;
            out.table[4 * i + 1] = palette[i].green;
            out.table[4 * i + 2] = palette[i].red;
        }
    } else {
        png_set_scale_16(r.png);   // 16-bit channels rounded: (v * 255 + 32767) / 65535
        png_set_expand(r.png);   // low-depth grey to 8 bits, tRNS to alpha
        if (colourType == PNG_COLOR_TYPE_GRAY || colourType == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(r.png);
        png_set_bgr(r.png);
        const bool alpha = (colourType & PNG_COLOR_MASK_ALPHA) || png_get_valid(r.png, r.info, PNG_INFO_tRNS);
        bits = alpha ? 32 : 24;
        if (!out.create(nullptr, 40, std::int32_t(width), std::int32_t(height), bits, 0)) return in.noMemory();
    }
    png_set_interlace_handling(r.png);
    png_read_update_info(r.png, r.info);
    if (png_get_rowbytes(r.png, r.info) > out.stride) {
        error = "unsupported PNG layout";
        return nullptr;
    }
    rowPointers.resize(height);
    for (png_uint_32 y = 0; y < height; ++y) rowPointers[y] = out.pixels + std::size_t(height - 1 - y) * out.stride;
    png_read_image(r.png, rowPointers.data());
    png_read_end(r.png, nullptr);
    return out.release();
}

// ---------------------------------------------------------------- PNG writing

struct PngWriter {
    png_structp png = nullptr;
    png_infop info = nullptr;
    ~PngWriter() { png_destroy_write_struct(&png, info ? &info : nullptr); }
};

void pngWriteData(png_structp png, png_bytep data, png_size_t length) {
    auto* fd = static_cast<int*>(png_get_io_ptr(png));
    std::size_t done = 0;
    while (done < length) {
        ssize_t n = ::write(*fd, data + done, length - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) png_error(png, std::strerror(errno ? errno : EIO));
        done += std::size_t(n);
    }
}
void pngFlush(png_structp) {}

bool writePng(int fd, const dib::Source& pic, std::string& error) {
    PngWriter w;
    w.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &error, pngError, pngWarning);
    if (!w.png) return false;
    w.info = png_create_info_struct(w.png);
    if (!w.info) return false;
    const dib::Layout& l = pic.layout();
    std::vector<png_color> palette;
    if (setjmp(png_jmpbuf(w.png))) return false;
    png_set_write_fn(w.png, &fd, pngWriteData, pngFlush);
    int colourType = l.bitCount == 8 ? PNG_COLOR_TYPE_PALETTE
                                     : (l.bitCount == 32 ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB);
    png_set_IHDR(w.png, w.info, l.width, l.height, 8, colourType, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (l.bitCount == 8) {
        const std::uint32_t entries = l.colourTableSize / 4 ? l.colourTableSize / 4 : 1;
        palette.resize(entries > 256 ? 256 : entries);
        for (std::size_t i = 0; i < palette.size(); ++i) {
            const std::uint8_t* e = pic.colourTable() + 4 * i;
            palette[i] = png_color{e[2], e[1], e[0]};
        }
        png_set_PLTE(w.png, w.info, palette.data(), int(palette.size()));
    }
    // Speed first: the left-neighbour filter with run-length deflate costs little
    // on any picture and still packs flat and smooth areas well; noise, which no
    // setting packs, goes through without a costly search for matches.
    png_set_compression_level(w.png, 1);
    png_set_compression_strategy(w.png, Z_RLE);
    png_set_filter(w.png, PNG_FILTER_TYPE_BASE, l.bitCount == 8 ? PNG_FILTER_NONE : PNG_FILTER_SUB);
    png_set_compression_buffer_size(w.png, 256 * 1024);
    png_write_info(w.png, w.info);
    if (l.bitCount != 8) png_set_bgr(w.png);
    for (std::uint32_t y = l.height; y-- > 0;) png_write_row(w.png, const_cast<png_bytep>(pic.row(y)));
    png_write_end(w.png, w.info);
    return true;
}

bool writeAll(int fd, const void* data, std::size_t size, std::string& error) {
    const auto* p = static_cast<const unsigned char*>(data);
    while (size) {
        ssize_t n = ::write(fd, p, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            error = std::strerror(errno ? errno : EIO);
            return false;
        }
        p += n;
        size -= std::size_t(n);
    }
    return true;
}

// The engine's DIB, behind a 14-byte file header.
bool writeBmp(int fd, const dib::Source& pic, std::string& error) {
    const dib::Layout& l = pic.layout();
    const std::uint32_t dibSize = l.headerSize + l.colourTableSize + l.imageSize;
    const std::uint32_t offBits = 14 + l.headerSize + l.colourTableSize;
    unsigned char fileHeader[14] = {'B', 'M'};
    const std::uint32_t fileSize = 14 + dibSize;
    for (int i = 0; i < 4; ++i) fileHeader[2 + i] = static_cast<unsigned char>(fileSize >> (8 * i));
    for (int i = 0; i < 4; ++i) fileHeader[10 + i] = static_cast<unsigned char>(offBits >> (8 * i));
    // The header goes out with any profile reference dropped (nothing follows the pixels).
    std::vector<unsigned char> header(pic.block(), pic.block() + l.headerSize);
    dropProfile(header.data(), l.headerSize);
    return writeAll(fd, fileHeader, sizeof fileHeader, error) && writeAll(fd, header.data(), header.size(), error) &&
           writeAll(fd, pic.block() + l.headerSize, dibSize - l.headerSize, error);
}

HGLOBAL parseBmp(const unsigned char* data, std::size_t size, Reading& in) {
    std::string& error = in.error;
    if (size < 14 + 40 || data[0] != 'B' || data[1] != 'M') {
        error = size < 54 && size >= 2 && data[0] == 'B' && data[1] == 'M' ? "file is truncated" : "not a BMP file";
        return nullptr;
    }
    const std::uint32_t offBits = le32(data + 10);
    const unsigned char* info = data + 14;
    const std::uint32_t headerSize = le32(info);
    if (headerSize != 40 && headerSize != 108 && headerSize != 124) {
        error = "unsupported BMP header of " + std::to_string(headerSize) + " bytes";
        return nullptr;
    }
    if (size < 14 + std::size_t(headerSize)) {
        error = "file is truncated";
        return nullptr;
    }
    const std::int32_t width = std::int32_t(le32(info + 4));
    const std::int32_t rawHeight = std::int32_t(le32(info + 8));
    const unsigned bits = le16(info + 14);
    const std::uint32_t compression = le32(info + 16);
    const std::uint32_t clrUsed = le32(info + 32);
    if (bits != 8 && bits != 24 && bits != 32) {
        error = "unsupported bit depth " + std::to_string(bits) + " (8, 24 and 32 are served)";
        return nullptr;
    }
    std::uint32_t maskBytes = 0;
    if (compression == kBiBitfields && bits == 32) {
        // Plain BGRA masks are the same layout as BI_RGB; anything else is refused.
        const unsigned char* masks = info + 40;
        if (headerSize == 40) {
            if (size < 14 + 40 + 12) {
                error = "file is truncated";
                return nullptr;
            }
            maskBytes = 12;
        }
        if (le32(masks) != 0x00FF0000 || le32(masks + 4) != 0x0000FF00 || le32(masks + 8) != 0x000000FF) {
            error = "unsupported BMP colour masks";
            return nullptr;
        }
    } else if (compression != BI_RGB) {
        error = "compressed BMP files are not supported";
        return nullptr;
    }
    if (width <= 0 || rawHeight == 0 || rawHeight == INT32_MIN || width > std::int32_t(dib::kMaxSide) ||
        (rawHeight < 0 ? -rawHeight : rawHeight) > std::int32_t(dib::kMaxSide)) {
        error = "unsupported picture size";
        return nullptr;
    }
    const bool topDown = rawHeight < 0;
    const std::int32_t height = topDown ? -rawHeight : rawHeight;
    if (!in.fits(std::uint64_t(width), std::uint64_t(height), bits)) return nullptr;
    std::uint32_t entries = 0;
    if (bits == 8) {
        entries = clrUsed ? clrUsed : 256;
        if (entries > 256) {
            error = "colour table has more than 256 entries";
            return nullptr;
        }
    }
    const std::uint64_t tableStart = 14ull + headerSize + maskBytes;
    const std::uint32_t stride = std::uint32_t(dib::paddedStride(std::uint32_t(width), bits));
    const std::uint64_t needed = std::uint64_t(offBits) + std::uint64_t(stride) * std::uint32_t(height);
    if (tableStart + entries * 4ull > size || offBits < tableStart + entries * 4ull || needed > size) {
        error = "file is truncated";
        return nullptr;
    }
    NewDib out;
    if (!out.create(info, headerSize, width, height, bits, entries)) return in.noMemory();
    dropProfile(out.base, headerSize);   // a profile after the pixels is not kept
    std::memcpy(out.table, data + tableStart, entries * 4);
    for (std::int32_t y = 0; y < height; ++y) {
        const std::int32_t fileRow = topDown ? height - 1 - y : y;
        std::memcpy(out.pixels + std::size_t(y) * stride, data + offBits + std::size_t(fileRow) * stride, stride);
    }
    return out.release();
}

// ---------------------------------------------------------------- JPEG

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

HGLOBAL parseJpeg(const std::vector<unsigned char>& data, Reading& in) {
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

// A picture's rows as BGR or BGRA bytes: its own rows, or for an 8-bit picture
// its colours looked up in the table. top points at the top row, down steps
// to the row below.
struct Rows {
    const unsigned char* top = nullptr;
    std::ptrdiff_t down = 0;
    int channels = 3;
    std::vector<unsigned char> expanded;
};

Rows rowsOf(const dib::Source& pic) {
    const dib::Layout& l = pic.layout();
    Rows r;
    if (l.bitCount != 8) {
        r.top = pic.row(l.height - 1u);
        r.down = -pic.step();
        r.channels = l.bitCount / 8;
        return r;
    }
    const std::size_t stride = std::size_t(l.width) * 3;
    r.expanded.resize(stride * l.height);
    for (std::uint32_t y = 0; y < l.height; ++y) {
        const unsigned char* in = pic.row(l.height - 1 - y);
        unsigned char* o = r.expanded.data() + y * stride;
        for (std::uint32_t x = 0; x < l.width; ++x) std::memcpy(o + 3 * x, pic.colourTable() + 4 * in[x], 3);
    }
    r.top = r.expanded.data();
    r.down = std::ptrdiff_t(stride);
    return r;
}

bool writeJpeg(int fd, const dib::Source& pic, int quality, std::string& error) {
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

// ---------------------------------------------------------------- WebP

HGLOBAL parseWebP(const std::vector<unsigned char>& data, Reading& in) {
    std::string& error = in.error;
    WebPDecoderConfig config;
    if (!WebPInitDecoderConfig(&config)) {
        error = "cannot start the WebP decoder";
        return nullptr;
    }
    if (WebPGetFeatures(data.data(), data.size(), &config.input) != VP8_STATUS_OK) {
        error = "not a readable WebP file";
        return nullptr;
    }
    if (config.input.has_animation) {
        error = "animated WebP files are not supported";
        return nullptr;
    }
    const int width = config.input.width, height = config.input.height;
    if (!sideOk(std::uint64_t(width), std::uint64_t(height))) {
        error = "unsupported picture size";
        return nullptr;
    }
    const bool alpha = config.input.has_alpha != 0;
    // A lossless stream decodes through a 4-byte-a-pixel picture of libwebp's own.
    if (!in.fits(std::uint64_t(width), std::uint64_t(height), alpha ? 32 : 24,
                 config.input.format == 2 ? 4ull * std::uint64_t(width) * std::uint64_t(height) : 0))
        return nullptr;
    NewDib out;
    if (!out.create(nullptr, 40, width, height, alpha ? 32 : 24, 0)) return in.noMemory();
    config.output.colorspace = alpha ? MODE_BGRA : MODE_BGR;
    config.output.is_external_memory = 1;
    config.output.u.RGBA.rgba = out.pixels;
    config.output.u.RGBA.stride = int(out.stride);
    config.output.u.RGBA.size = std::size_t(out.stride) * std::size_t(height);
    config.options.flip = 1;   // bottom row first
    const VP8StatusCode status = WebPDecode(data.data(), data.size(), &config);
    WebPFreeDecBuffer(&config.output);
    if (status != VP8_STATUS_OK) {
        error = status == VP8_STATUS_NOT_ENOUGH_DATA ? "file is truncated" : "damaged WebP data";
        return nullptr;
    }
    return out.release();
}

struct WebPSink {
    int fd;
    std::string* error;
};
int webpWrite(const std::uint8_t* data, std::size_t size, const WebPPicture* picture) {
    auto* sink = static_cast<WebPSink*>(picture->custom_ptr);
    return writeAll(sink->fd, data, size, *sink->error) ? 1 : 0;
}

bool writeWebP(int fd, const dib::Source& pic, int quality, std::string& error) {
    const dib::Layout& l = pic.layout();
    if (l.width > kWebPMaxSide || l.height > kWebPMaxSide) {
        error = "WebP holds at most 16383 pixels a side";
        return false;
    }
    WebPConfig config;
    WebPPicture picture;
    if (!WebPConfigInit(&config) || !WebPPictureInit(&picture)) {
        error = "cannot start the WebP encoder";
        return false;
    }
    config.lossless = quality == 0;
    if (quality) config.quality = float(quality);
    config.exact = 1;   // the colours under transparent pixels are kept: the effects see them
    picture.use_argb = config.lossless;
    picture.width = l.width;
    picture.height = l.height;
    const Rows rows = rowsOf(pic);
    const int ok = rows.channels == 4 ? WebPPictureImportBGRA(&picture, rows.top, int(rows.down))
                                      : WebPPictureImportBGR(&picture, rows.top, int(rows.down));
    if (!ok) {
        WebPPictureFree(&picture);
        error = "not enough memory for the WebP encoder";
        return false;
    }
    WebPSink sink{fd, &error};
    picture.writer = webpWrite;
    picture.custom_ptr = &sink;
    const bool encoded = WebPEncode(&config, &picture) != 0;
    if (!encoded && error.empty()) error = "WebP encoding failed (error " + std::to_string(int(picture.error_code)) + ")";
    WebPPictureFree(&picture);
    return encoded;
}

// ---------------------------------------------------------------- TIFF

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

// Strips of 8- or 16-bit RGB(A), grey(+alpha) and palette samples are read
// directly; anything else (tiles, planes, YCbCr, CMYK, bilevel) goes through
// libtiff's RGBA reader, whose 16-bit channels are rounded in the same way.
HGLOBAL parseTiff(const std::vector<unsigned char>& data, Reading& in) {
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

bool writeTiff(int fd, const dib::Source& pic, std::string& error) {
    const dib::Layout& l = pic.layout();
    Tiff t(error);
    int handle = fd;
    t.tif = TIFFClientOpenExt("tiff", "w", &handle, tiffFdRead, tiffFdWrite, tiffFdSeek, tiffNoClose, tiffFdSize,
                              tiffNoMap, tiffNoUnmap, t.options);
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
    return error.empty();
}

}  // namespace

bool hasExtension(const std::string& path, const char* ext) {
    const std::size_t n = std::strlen(ext);
    if (path.size() < n) return false;
    return strcasecmp(path.c_str() + path.size() - n, ext) == 0;
}

Format formatOf(const std::string& path) {
    if (path == "-" || hasExtension(path, ".png")) return Format::Png;
    if (hasExtension(path, ".bmp")) return Format::Bmp;
    if (hasExtension(path, ".jpg") || hasExtension(path, ".jpeg")) return Format::Jpeg;
    if (hasExtension(path, ".webp")) return Format::WebP;
    if (hasExtension(path, ".tif") || hasExtension(path, ".tiff")) return Format::Tiff;
    return Format::Unknown;
}

bool takesQuality(Format format) { return format == Format::Jpeg || format == Format::WebP; }

namespace {

HGLOBAL readWithin(const std::string& path, Reading& in) {
    std::string& error = in.error;
    std::vector<unsigned char> data;
    if (!readFile(path, data, in.limits.maxFileBytes(), error)) return nullptr;
    const unsigned char* d = data.data();
    const std::size_t n = data.size();
    static const unsigned char kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (n >= 8 && std::memcmp(d, kPngSignature, 8) == 0) return parsePng(data, in);
    if (n >= 2 && d[0] == 'B' && d[1] == 'M') return parseBmp(d, n, in);
    if (n >= 3 && d[0] == 0xFF && d[1] == 0xD8 && d[2] == 0xFF) return parseJpeg(data, in);
    if (n >= 12 && std::memcmp(d, "RIFF", 4) == 0 && std::memcmp(d + 8, "WEBP", 4) == 0) return parseWebP(data, in);
    if (n >= 4 && ((d[0] == 'I' && d[1] == 'I' && (d[2] == 42 || d[2] == 43) && d[3] == 0) ||
                   (d[0] == 'M' && d[1] == 'M' && d[2] == 0 && (d[3] == 42 || d[3] == 43))))
        return parseTiff(data, in);
    error = n == 0 ? "file is empty" : kNotAPicture;
    return nullptr;
}

}  // namespace

std::string sizeText(std::uint64_t bytes) {
    static const char* const kUnits[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    int unit = 0;
    std::uint64_t whole = bytes, tenths = 0;
    while (whole >= 1024 && unit < 4) {
        tenths = (whole % 1024) * 10 / 1024;
        whole /= 1024;
        ++unit;
    }
    return std::to_string(whole) + (tenths && unit ? "." + std::to_string(tenths) : "") + " " + kUnits[unit];
}

bool parseSize(const std::string& text, std::uint64_t& bytes) {
    char* end = nullptr;
    errno = 0;
    if (text.empty() || !(std::isdigit(static_cast<unsigned char>(text[0])) || text[0] == '.')) return false;
    const double v = std::strtod(text.c_str(), &end);
    std::string unit(end);
    if (!unit.empty() && (unit.back() == 'B' || unit.back() == 'b')) unit.pop_back();   // "4GB", "512MiB"
    if (unit.size() == 2 && (unit[1] == 'i' || unit[1] == 'I')) unit.pop_back();
    double scale = 1;
    if (unit.size() == 1) {
        const char* units = "KMGT";
        const char* u = std::strchr(units, std::toupper(static_cast<unsigned char>(unit[0])));
        if (!u) return false;
        scale = double(1ull << (10 * (u - units + 1)));
    } else if (!unit.empty()) {
        return false;
    }
    const double b = v * scale;
    if (errno || !(b >= 1) || b > 1e18) return false;
    bytes = std::uint64_t(b);
    return true;
}

std::uint64_t Limits::need(std::uint64_t width, std::uint64_t height, unsigned bits, std::uint64_t extra) const {
    // The source as read; each render's output and working picture are 24-bit
    // (32-bit for a 32-bit source), rows padded to four bytes.
    const std::uint64_t source = height * ((width * bits + 31) / 32 * 4);
    const std::uint64_t rendered = height * ((width * (bits == 32 ? 32 : 24) + 31) / 32 * 4);
    return source + extra + std::uint64_t(inFlight ? inFlight : 1) * 2 * rendered;
}

std::string Limits::check(std::uint64_t width, std::uint64_t height, unsigned bits, std::uint64_t extra) const {
    const std::string size = std::to_string(width) + " \u00d7 " + std::to_string(height);
    if (width * height > maxPixels)
        return "picture too large (" + size + ", limit " + std::to_string(maxPixels) + " pixels)";
    const std::uint64_t needed = need(width, height, bits, extra);
    if (needed > maxMemory)
        return "picture too large (" + size + ", limit " + sizeText(maxMemory) + " of memory; it needs " +
               sizeText(needed) + ")";
    return "";
}

HGLOBAL read(const std::string& path, std::string& error, const Limits& limits, ReadFailure* why) {
    if (why) *why = ReadFailure::Refused;
    Reading in{error, limits};
    HGLOBAL picture = readWithin(path, in);
    if (why) *why = picture ? ReadFailure::None : in.outOfMemory ? ReadFailure::OutOfMemory : ReadFailure::Refused;
    return picture;
}

bool write(const std::string& path, HGLOBAL picture, std::string& error, const WriteOptions& options) {
    const Format format = formatOf(path);
    if (format == Format::Unknown) {
        error = std::string("unknown picture format (use ") + kKnownExtensions + ")";
        return false;
    }
    dib::Source pic(picture);
    if (!pic.ok()) {
        error = "the picture cannot be written";
        return false;
    }
    output::File file;
    if (!file.open(path, error)) return false;
    const int quality = options.quality;
    bool ok = false;
    switch (format) {
    case Format::Png: ok = writePng(file.fd(), pic, error); break;
    case Format::Bmp: ok = writeBmp(file.fd(), pic, error); break;
    case Format::Jpeg: ok = writeJpeg(file.fd(), pic, quality ? quality : kDefaultJpegQuality, error); break;
    case Format::WebP: ok = writeWebP(file.fd(), pic, quality, error); break;
    case Format::Tiff: ok = writeTiff(file.fd(), pic, error); break;
    case Format::Unknown: break;
    }
    return ok && file.commit(error);
}

}  // namespace pictures
