// WebP through libwebp: still pictures are read, with or without alpha;
// written lossless unless a quality is given.
#include <webp/decode.h>
#include <webp/encode.h>

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

bool writeWebP(int fd, const dib::Source& pic, const WriteOptions& options, std::string& error) {
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

}  // namespace pictures
