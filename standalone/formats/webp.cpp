// WebP through libwebp: still pictures are read, with or without alpha;
// written lossless unless a quality is given. The colour profile (ICCP) and
// EXIF data (EXIF) are read with the demuxer and written with the muxer.
#include <webp/decode.h>
#include <webp/demux.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <cstring>
#include <vector>

#include "standalone/formats/common.h"

namespace pictures {
namespace {

constexpr std::uint32_t kWebPMaxSide = 16383;   // the WebP format's own limit

struct WebPSink {
    int fd;
    std::string* error;
};
int webpWrite(const std::uint8_t* data, std::size_t size, const WebPPicture* picture) {
    auto* sink = static_cast<WebPSink*>(picture->custom_ptr);
    return writeAll(sink->fd, data, size, *sink->error) ? 1 : 0;
}

// The ICCP and EXIF chunks of an extended file.
void keepMetadata(const std::vector<unsigned char>& data, Metadata& metadata) {
    const WebPData file{data.data(), data.size()};
    WebPDemuxer* demux = WebPDemux(&file);
    if (!demux) return;
    WebPChunkIterator chunk;
    if (WebPDemuxGetChunk(demux, "ICCP", 1, &chunk))
        metadata.icc.assign(chunk.chunk.bytes, chunk.chunk.bytes + chunk.chunk.size);
    WebPDemuxReleaseChunkIterator(&chunk);
    if (WebPDemuxGetChunk(demux, "EXIF", 1, &chunk)) {
        const std::uint8_t* exif = chunk.chunk.bytes;
        std::size_t size = chunk.chunk.size;
        if (size >= 6 && std::memcmp(exif, "Exif\0\0", 6) == 0) exif += 6, size -= 6;   // some writers keep JPEG's prefix
        metadata.exif.assign(exif, exif + size);
    }
    WebPDemuxReleaseChunkIterator(&chunk);
    WebPDemuxDelete(demux);
}

bool outOfMemory(WebPEncodingError code) {
    return code == VP8_ENC_ERROR_OUT_OF_MEMORY || code == VP8_ENC_ERROR_BITSTREAM_OUT_OF_MEMORY;
}

// The encoded picture with the metadata's chunks, through the muxer.
bool writeWithMetadata(int fd, const WebPMemoryWriter& encoded, const Metadata& metadata, Writing& out) {
    WebPMux* mux = WebPMuxNew();
    if (!mux) return out.noMemory();
    const WebPData image{encoded.mem, encoded.size};
    const WebPData icc{metadata.icc.data(), metadata.icc.size()};
    const WebPData exif{metadata.exif.data(), metadata.exif.size()};
    WebPMuxError status = WebPMuxSetImage(mux, &image, 0);
    if (status == WEBP_MUX_OK && icc.size) status = WebPMuxSetChunk(mux, "ICCP", &icc, 0);
    if (status == WEBP_MUX_OK && exif.size) status = WebPMuxSetChunk(mux, "EXIF", &exif, 0);
    WebPData assembled{nullptr, 0};
    if (status == WEBP_MUX_OK) status = WebPMuxAssemble(mux, &assembled);
    WebPMuxDelete(mux);
    bool written = false;
    if (status == WEBP_MUX_MEMORY_ERROR)
        out.noMemory();
    else if (status != WEBP_MUX_OK)
        out.error = "cannot add the colour profile or EXIF data to the WebP file";
    else
        written = writeAll(fd, assembled.bytes, assembled.size, out.error);
    WebPDataClear(&assembled);
    return written;
}

}  // namespace

bool isWebP(const unsigned char* data, std::size_t size) {
    return size >= 12 && std::memcmp(data, "RIFF", 4) == 0 && std::memcmp(data + 8, "WEBP", 4) == 0;
}

HGLOBAL readWebP(const std::vector<unsigned char>& data, Reading& in) {
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
        error = "animated WebP: use flairize video to render every frame";
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
    keepMetadata(data, in.metadata);
    return out.release();
}

bool writeWebP(int fd, const dib::Source& pic, const WriteOptions& options, Writing& out) {
    std::string& error = out.error;
    const int quality = options.quality;
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
        return out.noMemory();
    }
    // With a profile or EXIF data the file is made in memory, for the muxer;
    // otherwise it goes out as it is encoded.
    const bool withMetadata = options.metadata && (!options.metadata->icc.empty() || !options.metadata->exif.empty());
    WebPSink sink{fd, &error};
    WebPMemoryWriter memory;
    WebPMemoryWriterInit(&memory);
    picture.writer = withMetadata ? WebPMemoryWrite : webpWrite;
    picture.custom_ptr = withMetadata ? static_cast<void*>(&memory) : static_cast<void*>(&sink);
    bool encoded = WebPEncode(&config, &picture) != 0;
    const WebPEncodingError code = picture.error_code;
    WebPPictureFree(&picture);
    if (!encoded && outOfMemory(code)) {
        WebPMemoryWriterClear(&memory);
        return out.noMemory();
    }
    if (!encoded && error.empty()) error = "WebP encoding failed (error " + std::to_string(int(code)) + ")";
    if (encoded && withMetadata) encoded = writeWithMetadata(fd, memory, *options.metadata, out);
    WebPMemoryWriterClear(&memory);
    return encoded;
}

}  // namespace pictures
