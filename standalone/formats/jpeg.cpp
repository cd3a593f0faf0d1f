// JPEG through libjpeg-turbo: read as 24-bit (CMYK and YCCK converted to RGB),
// written from 24- or 32-bit pictures (alpha is left out) and 8-bit ones
// through their colour table. The colour profile (APP2), the EXIF data (APP1)
// and the JFIF resolution are read with libjpeg and written beside the
// encoder's output.
#include <cstdio>   // jpeglib.h needs FILE
#include <csetjmp>

#include <jpeglib.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cstdlib>
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

// libjpeg's errors, and its warnings (damaged data), end the read with the reason.
struct JpegErrors {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
    std::string* error;
};
[[noreturn]] void jpegFail(j_common_ptr info) {
    auto* errors = reinterpret_cast<JpegErrors*>(info->err);
    char text[JMSG_LENGTH_MAX];
    info->err->format_message(info, text);
    *errors->error = text;
    std::longjmp(errors->jump, 1);
}
void jpegMessage(j_common_ptr info, int level) {
    if (level < 0) jpegFail(info);   // a warning: the data is damaged
}

struct JpegReader {
    jpeg_decompress_struct info{};
    JpegErrors errors{};
    explicit JpegReader(std::string& error) {
        info.err = jpeg_std_error(&errors.manager);
        errors.manager.error_exit = jpegFail;
        errors.manager.emit_message = jpegMessage;
        errors.error = &error;
        jpeg_create_decompress(&info);
    }
    ~JpegReader() { jpeg_destroy_decompress(&info); }
};

bool isCmykProfile(const std::vector<unsigned char>& icc) {
    return icc.size() >= 20 && std::equal(icc.begin() + 16, icc.begin() + 20, "CMYK");
}

// The profile, EXIF data and JFIF resolution from the saved markers.
void keepMetadata(j_decompress_ptr info, Metadata& metadata) {
    JOCTET* icc = nullptr;
    unsigned int iccSize = 0;
    if (jpeg_read_icc_profile(info, &icc, &iccSize) && icc) metadata.icc.assign(icc, icc + iccSize);
    std::free(icc);
    for (jpeg_saved_marker_ptr m = info->marker_list; m; m = m->next)
        if (m->marker == JPEG_APP0 + 1 && m->data_length > 14 && std::memcmp(m->data, "Exif\0\0", 6) == 0 &&
            metadata.exif.empty())
            metadata.exif.assign(m->data + 6, m->data + m->data_length);
    if (info->saw_JFIF_marker && (info->density_unit == 1 || info->density_unit == 2) && info->X_density &&
        info->Y_density) {
        metadata.xResolution = info->X_density;
        metadata.yResolution = info->Y_density;
        metadata.unit = info->density_unit == 1 ? ResolutionUnit::Inch : ResolutionUnit::Centimetre;
    }
}

// CMYK and YCCK pictures (libjpeg gives both as CMYK) decoded row by row into
// RGB. Adobe's files store the inks inverted (255: no ink), others as they are.
// `line` lives outside the jump that libjpeg's errors take.
bool readCmyk(JpegReader& r, NewDib& out, std::vector<JSAMPLE>& line) {
    r.info.out_color_space = JCS_CMYK;
    jpeg_start_decompress(&r.info);
    if (r.info.output_components != 4) return false;
    const bool inverted = r.info.saw_Adobe_marker;
    line.resize(std::size_t(r.info.output_width) * 4);
    while (r.info.output_scanline < r.info.output_height) {
        const JDIMENSION y = r.info.output_scanline;
        JSAMPROW rows[1] = {line.data()};
        if (jpeg_read_scanlines(&r.info, rows, 1) != 1) return false;
        unsigned char* o = out.pixels + std::size_t(r.info.output_height - 1 - y) * out.stride;
        for (JDIMENSION x = 0; x < r.info.output_width; ++x, o += 3) {
            const JSAMPLE* p = line.data() + 4 * std::size_t(x);
            const unsigned c = inverted ? p[0] : 255u - p[0], m = inverted ? p[1] : 255u - p[1],
                           yellow = inverted ? p[2] : 255u - p[2], k = inverted ? p[3] : 255u - p[3];
            o[2] = std::uint8_t((c * k + 127) / 255);   // what is left of the light: (1 - ink) (1 - black)
            o[1] = std::uint8_t((m * k + 127) / 255);
            o[0] = std::uint8_t((yellow * k + 127) / 255);
        }
    }
    jpeg_finish_decompress(&r.info);
    return true;
}

// Writes the encoder's file with the metadata's segments after its JFIF
// segment, and that segment's resolution set: what libjpeg's
// jpeg_write_marker and jpeg_write_icc_profile would write, without encoding
// the picture twice.
bool writeWithMetadata(int fd, unsigned char* jpeg, unsigned long size, const Metadata& metadata, std::string& error) {
    std::size_t split = 2;   // after SOI
    if (size >= 20 && jpeg[2] == 0xFF && jpeg[3] == 0xE0 && std::memcmp(jpeg + 6, "JFIF", 5) == 0) {
        split = 4 + (std::size_t(jpeg[4]) << 8 | jpeg[5]);
        if (hasResolution(metadata)) {
            auto density = [](double v) { return unsigned(std::min(65535.0, std::max(1.0, v + 0.5))); };
            const unsigned x = density(metadata.xResolution), y = density(metadata.yResolution);
            jpeg[13] = metadata.unit == ResolutionUnit::Inch ? 1 : 2;
            jpeg[14] = std::uint8_t(x >> 8), jpeg[15] = std::uint8_t(x);
            jpeg[16] = std::uint8_t(y >> 8), jpeg[17] = std::uint8_t(y);
        }
    }
    if (split > size) split = 2;
    std::vector<unsigned char> segments;
    auto segment = [&](unsigned char marker, const char* id, std::size_t idSize, const unsigned char* data,
                       std::size_t dataSize, const unsigned char* extra = nullptr, std::size_t extraSize = 0) {
        const std::size_t length = 2 + idSize + extraSize + dataSize;
        segments.insert(segments.end(), {0xFF, marker, std::uint8_t(length >> 8), std::uint8_t(length)});
        segments.insert(segments.end(), id, id + idSize);
        if (extra) segments.insert(segments.end(), extra, extra + extraSize);
        segments.insert(segments.end(), data, data + dataSize);
    };
    constexpr std::size_t kMostInSegment = 65533;   // after the length
    if (!metadata.exif.empty() && metadata.exif.size() <= kMostInSegment - 6)
        segment(0xE1, "Exif\0\0", 6, metadata.exif.data(), metadata.exif.size());
    // ICC_PROFILE\0, then this chunk's number and the count, from 1.
    constexpr std::size_t kIccChunk = kMostInSegment - 14;
    const std::size_t chunks = (metadata.icc.size() + kIccChunk - 1) / kIccChunk;
    for (std::size_t i = 0; i < chunks && chunks <= 255; ++i) {
        const unsigned char numbers[2] = {std::uint8_t(i + 1), std::uint8_t(chunks)};
        const std::size_t at = i * kIccChunk;
        segment(0xE2, "ICC_PROFILE\0", 12, metadata.icc.data() + at, std::min(kIccChunk, metadata.icc.size() - at),
                numbers, 2);
    }
    return writeAll(fd, jpeg, split, error) && writeAll(fd, segments.data(), segments.size(), error) &&
           writeAll(fd, jpeg + split, size - split, error);
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
    JpegReader r(error);
    NewDib out;
    std::vector<JSAMPLE> line;
    if (setjmp(r.errors.jump)) return nullptr;
    jpeg_mem_src(&r.info, data.data(), static_cast<unsigned long>(data.size()));
    jpeg_save_markers(&r.info, JPEG_APP0 + 1, 0xFFFF);
    jpeg_save_markers(&r.info, JPEG_APP0 + 2, 0xFFFF);
    jpeg_read_header(&r.info, TRUE);
    keepMetadata(&r.info, in.metadata);
    if (!out.create(nullptr, 40, width, height, 24, 0)) return in.noMemory();
    if (space == TJCS_CMYK || space == TJCS_YCCK) {
        // The pixels become RGB without going through the profile, so a CMYK
        // profile no longer describes them and is dropped; an RGB one is kept.
        if (isCmykProfile(in.metadata.icc)) in.metadata.icc.clear();
        if (!readCmyk(r, out, line)) {
            if (error.empty()) error = "unsupported JPEG layout";
            return nullptr;
        }
        return out.release();
    }
    // A damaged or cut-off file is refused rather than shown half grey.
    if (tjDecompress2(t.h, data.data(), static_cast<unsigned long>(data.size()), out.pixels, width, int(out.stride),
                      height, TJPF_BGR, TJFLAG_BOTTOMUP | TJFLAG_STOPONWARNING) != 0) {
        error = tjGetErrorStr2(t.h);
        return nullptr;
    }
    return out.release();
}

bool writeJpeg(int fd, const dib::Source& pic, const WriteOptions& options, Writing& out) {
    std::string& error = out.error;
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
        return t.h ? false : out.noMemory();
    }
    const bool written = options.metadata && !options.metadata->empty()
                             ? writeWithMetadata(fd, jpeg, size, *options.metadata, error)
                             : writeAll(fd, jpeg, size, error);
    tjFree(jpeg);
    return written;
}

}  // namespace pictures
