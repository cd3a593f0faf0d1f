// PNG through libpng: palette pictures stay 8-bit with their colour table,
// grey becomes RGB, 16-bit channels are rounded to 8 bits. The colour profile
// (iCCP), EXIF data (eXIf) and resolution (pHYs) are read and written.
#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstring>

#include <unistd.h>

#include "standalone/formats/common.h"

namespace pictures {
namespace {

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

// Whether the chunks before the picture data hold an animation control chunk
// (acTL): an animated PNG, whose other frames libpng would skip.
bool animated(const std::vector<unsigned char>& data) {
    for (std::size_t at = 8; at + 8 <= data.size();) {
        const std::size_t length = std::size_t(data[at]) << 24 | std::size_t(data[at + 1]) << 16 |
                                   std::size_t(data[at + 2]) << 8 | data[at + 3];
        const unsigned char* type = data.data() + at + 4;
        if (std::memcmp(type, "acTL", 4) == 0) return true;
        if (std::memcmp(type, "IDAT", 4) == 0 || length > data.size() - at - 8) return false;
        at += 12 + length;
    }
    return false;
}

void keepMetadata(png_structp png, png_infop info, Metadata& metadata) {
    png_charp name = nullptr;
    int compression = 0;
    png_bytep profile = nullptr;
    png_uint_32 profileSize = 0;
    if (png_get_iCCP(png, info, &name, &compression, &profile, &profileSize) && profile)
        metadata.icc.assign(profile, profile + profileSize);
    png_bytep exif = nullptr;
    png_uint_32 exifSize = 0;
    if (png_get_eXIf_1(png, info, &exifSize, &exif) && exif) metadata.exif.assign(exif, exif + exifSize);
    png_uint_32 x = 0, y = 0;
    int unit = 0;
    if (png_get_pHYs(png, info, &x, &y, &unit) && unit == PNG_RESOLUTION_METER && x && y) {
        metadata.xResolution = x / 100.0;
        metadata.yResolution = y / 100.0;
        metadata.unit = ResolutionUnit::Centimetre;
    }
}

}  // namespace

bool isPng(const unsigned char* data, std::size_t size) {
    static const unsigned char kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    return size >= 8 && std::memcmp(data, kPngSignature, 8) == 0;
}

HGLOBAL readPng(const std::vector<unsigned char>& data, Reading& in) {
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
    if (animated(data)) {
        error = "animated PNG: use flairize video to render every frame";
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
    png_read_end(r.png, r.info);   // an eXIf chunk may follow the picture data
    keepMetadata(r.png, r.info, in.metadata);
    return out.release();
}

namespace {

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

}  // namespace

bool writePng(int fd, const dib::Source& pic, const WriteOptions& options, Writing& out) {
    std::string& error = out.error;
    PngWriter w;
    w.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &error, pngError, pngWarning);
    if (!w.png) return out.noMemory();
    w.info = png_create_info_struct(w.png);
    if (!w.info) return out.noMemory();
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
    if (const Metadata* m = options.metadata) {
        // A profile libpng finds wrong for the picture is left out with a warning, not an error.
        png_set_benign_errors(w.png, 1);
        if (!m->icc.empty())
            png_set_iCCP(w.png, w.info, "ICC profile", PNG_COMPRESSION_TYPE_BASE, m->icc.data(),
                         png_uint_32(m->icc.size()));
        if (!m->exif.empty()) png_set_eXIf_1(w.png, w.info, png_uint_32(m->exif.size()), const_cast<png_bytep>(m->exif.data()));
        if (hasResolution(*m)) {
            const double perMetre = m->unit == ResolutionUnit::Inch ? 100 / 2.54 : 100;
            png_set_pHYs(w.png, w.info, png_uint_32(m->xResolution * perMetre + 0.5),
                         png_uint_32(m->yResolution * perMetre + 0.5), PNG_RESOLUTION_METER);
        }
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
    png_write_end(w.png, nullptr);   // with the info, libpng would write the eXIf chunk a second time
    return true;
}

}  // namespace pictures
