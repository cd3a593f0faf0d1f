#include "standalone/picture_io.h"

#include <png.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/dib.h"
#include "platform/global_memory.h"

namespace pictures {
namespace {

constexpr std::uint32_t kBiBitfields = 3;

std::uint16_t le16(const unsigned char* p) { return std::uint16_t(p[0] | (p[1] << 8)); }
std::uint32_t le32(const unsigned char* p) {
    return std::uint32_t(p[0]) | (std::uint32_t(p[1]) << 8) | (std::uint32_t(p[2]) << 16) | (std::uint32_t(p[3]) << 24);
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

bool readFile(const std::string& path, std::vector<unsigned char>& data, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = std::strerror(errno);
        return false;
    }
    data.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (in.bad()) {
        error = "cannot read the file";
        return false;
    }
    return true;
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

HGLOBAL parsePng(const std::vector<unsigned char>& data, std::string& error) {
    PngReader r;
    r.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &error, pngError, pngWarning);
    if (!r.png) return nullptr;
    r.info = png_create_info_struct(r.png);
    if (!r.info) return nullptr;
    PngSource src{data.data(), data.size(), 0};
    NewDib out;
    std::vector<png_bytep> rowPointers;
    if (setjmp(png_jmpbuf(r.png))) return nullptr;
    png_set_read_fn(r.png, &src, pngReadData);
    png_set_user_limits(r.png, dib::kMaxSide, dib::kMaxSide);
    png_read_info(r.png, r.info);
    png_uint_32 width = 0, height = 0;
    int bitDepth = 0, colourType = 0, interlace = 0;
    png_get_IHDR(r.png, r.info, &width, &height, &bitDepth, &colourType, &interlace, nullptr, nullptr);

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
        if (!out.create(nullptr, 40, std::int32_t(width), std::int32_t(height), bits, entries)) {
            error = "picture too large";
            return nullptr;
        }
        for (int i = 0; i < count; ++i) {
            out.table[4 * i + 0] = palette[i].blue;
            out.table[4 * i + 1] = palette[i].green;
            out.table[4 * i + 2] = palette[i].red;
        }
    } else {
        png_set_strip_16(r.png);
        png_set_expand(r.png);   // low-depth grey to 8 bits, tRNS to alpha
        if (colourType == PNG_COLOR_TYPE_GRAY || colourType == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(r.png);
        png_set_bgr(r.png);
        const bool alpha = (colourType & PNG_COLOR_MASK_ALPHA) || png_get_valid(r.png, r.info, PNG_INFO_tRNS);
        bits = alpha ? 32 : 24;
        if (!out.create(nullptr, 40, std::int32_t(width), std::int32_t(height), bits, 0)) {
            error = "picture too large";
            return nullptr;
        }
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
    png_write_info(w.png, w.info);
    if (l.bitCount != 8) png_set_bgr(w.png);
    for (std::uint32_t y = l.height; y-- > 0;) png_write_row(w.png, const_cast<png_bytep>(pic.row(y)));
    png_write_end(w.png, w.info);
    return true;
}

// ---------------------------------------------------------------- BMP writing

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

// The engine's DIB unchanged, behind a 14-byte file header.
bool writeBmp(int fd, const dib::Source& pic, std::string& error) {
    const dib::Layout& l = pic.layout();
    const std::uint32_t dibSize = l.headerSize + l.colourTableSize + l.imageSize;
    const std::uint32_t offBits = 14 + l.headerSize + l.colourTableSize;
    unsigned char fileHeader[14] = {'B', 'M'};
    const std::uint32_t fileSize = 14 + dibSize;
    for (int i = 0; i < 4; ++i) fileHeader[2 + i] = static_cast<unsigned char>(fileSize >> (8 * i));
    for (int i = 0; i < 4; ++i) fileHeader[10 + i] = static_cast<unsigned char>(offBits >> (8 * i));
    return writeAll(fd, fileHeader, sizeof fileHeader, error) && writeAll(fd, pic.block(), dibSize, error);
}

}  // namespace

bool hasExtension(const std::string& path, const char* ext) {
    const std::size_t n = std::strlen(ext);
    if (path.size() < n) return false;
    return strcasecmp(path.c_str() + path.size() - n, ext) == 0;
}

namespace {

HGLOBAL parseBmp(const unsigned char* data, std::size_t size, std::string& error) {
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
    if (!out.create(info, headerSize, width, height, bits, entries)) {
        error = "picture too large";
        return nullptr;
    }
    std::memcpy(out.table, data + tableStart, entries * 4);
    for (std::int32_t y = 0; y < height; ++y) {
        const std::int32_t fileRow = topDown ? height - 1 - y : y;
        std::memcpy(out.pixels + std::size_t(y) * stride, data + offBits + std::size_t(fileRow) * stride, stride);
    }
    return out.release();
}

}  // namespace

HGLOBAL read(const std::string& path, std::string& error) {
    std::vector<unsigned char> data;
    if (!readFile(path, data, error)) return nullptr;
    static const unsigned char kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (data.size() >= 8 && std::memcmp(data.data(), kPngSignature, 8) == 0) return parsePng(data, error);
    if (data.size() >= 2 && data[0] == 'B' && data[1] == 'M') return parseBmp(data.data(), data.size(), error);
    error = data.empty() ? "file is empty" : "not a BMP or PNG picture";
    return nullptr;
}

bool write(const std::string& path, HGLOBAL picture, std::string& error) {
    const bool png = hasExtension(path, ".png");
    if (!png && !hasExtension(path, ".bmp")) {
        error = "unknown picture format (use .bmp or .png)";
        return false;
    }
    dib::Source pic(picture);
    if (!pic.ok()) {
        error = "the picture cannot be written";
        return false;
    }
    std::string temp = path + ".XXXXXX";
    int fd = mkstemp(temp.data());
    if (fd < 0) {
        error = std::strerror(errno);
        return false;
    }
    bool ok = png ? writePng(fd, pic, error) : writeBmp(fd, pic, error);
    if (ok) fchmod(fd, 0644);
    if (::close(fd) != 0 && ok) {
        error = std::strerror(errno);
        ok = false;
    }
    if (ok && std::rename(temp.c_str(), path.c_str()) != 0) {
        error = std::strerror(errno);
        ok = false;
    }
    if (!ok) ::unlink(temp.c_str());
    return ok;
}

}  // namespace pictures
