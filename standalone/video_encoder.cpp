#if FLAIRIZE_VIDEO

#include "standalone/video_encoder.h"

extern "C" {
#include <libavutil/log.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "standalone/video_support.h"

namespace video {
namespace {

struct DictionaryFree {
    void operator()(AVDictionary* d) const { av_dict_free(&d); }
};

std::string encoderName(const AVCodec* codec) { return std::string("the ") + codec->name + " encoder"; }

bool offers(const AVCodec* codec, AVPixelFormat format) {
    if (!codec->pix_fmts) return true;
    for (const AVPixelFormat* p = codec->pix_fmts; *p != AV_PIX_FMT_NONE; ++p)
        if (*p == format) return true;
    return false;
}

// Codecs that players decode in 4:2:0 and rarely otherwise.
bool deliveryCodec(AVCodecID id) {
    return id == AV_CODEC_ID_H264 || id == AV_CODEC_ID_HEVC || id == AV_CODEC_ID_VP8 || id == AV_CODEC_ID_VP9 ||
           id == AV_CODEC_ID_AV1;
}

// The encoder's private option `name`, without an encoder context.
const AVOption* privateOption(const AVCodec* codec, const char* name) {
    if (!codec->priv_class) return nullptr;
    return av_opt_find(const_cast<AVClass**>(&codec->priv_class), name, nullptr, 0, AV_OPT_SEARCH_FAKE_OBJ);
}

// The named values an option takes ("ultrafast, superfast, ..."), or "".
std::string namedValues(const AVCodec* codec, const AVOption* option) {
    std::string names;
    if (!option->unit || !codec->priv_class) return names;
    for (const AVOption* o = codec->priv_class->option; o && o->name; ++o)
        if (o->type == AV_OPT_TYPE_CONST && o->unit && !std::strcmp(o->unit, option->unit))
            names += (names.empty() ? "" : ", ") + std::string(o->name);
    return names;
}

// x264 and x265 take their presets as text and check it only when opened.
const char* const kX26xPresets[] = {"ultrafast", "superfast", "veryfast", "faster",   "fast",
                                    "medium",    "slow",      "slower",   "veryslow", "placebo"};

void checkCrf(const AVCodec* codec, const std::string& text) {
    const AVOption* option = privateOption(codec, "crf");
    if (!option) fail(2, "--crf: " + encoderName(codec) + " has no constant-quality setting");
    errno = 0;
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    const bool integral = option->type == AV_OPT_TYPE_INT || option->type == AV_OPT_TYPE_INT64;
    // x264 and x265 declare no upper bound; their scale ends at 51.
    const bool x26x = codec->id == AV_CODEC_ID_H264 || codec->id == AV_CODEC_ID_HEVC;
    const double low = std::max(0.0, option->min), high = x26x ? 51.0 : option->max;
    char range[64];
    std::snprintf(range, sizeof range, "%g to %g", low, high);
    if (text.empty() || *end || errno || !std::isfinite(value) || value < low || value > high ||
        (integral && value != std::floor(value)))
        fail(2, "--crf: " + encoderName(codec) + " takes " + (integral ? "a whole number " : "a number ") + range +
                    ", not \"" + text + "\"");
}

void checkPreset(const AVCodec* codec, const std::string& preset) {
    const AVOption* option = privateOption(codec, "preset");
    if (!option) fail(2, "--preset: " + encoderName(codec) + " has no presets");
    if (option->type == AV_OPT_TYPE_STRING) {
        if (codec->id != AV_CODEC_ID_H264 && codec->id != AV_CODEC_ID_HEVC) return;  // checked when opened
        std::string names;
        for (const char* p : kX26xPresets) {
            if (preset == p) return;
            names += (names.empty() ? "" : ", ") + std::string(p);
        }
        fail(2, "--preset: " + encoderName(codec) + " has no preset \"" + preset + "\" (it has " + names + ")");
    }
    auto scratch = newCodec(codec);
    if (av_opt_set(scratch.get(), "preset", preset.c_str(), AV_OPT_SEARCH_CHILDREN) < 0) {
        const std::string names = namedValues(codec, option);
        char range[64];
        std::snprintf(range, sizeof range, "%g to %g", option->min, option->max);
        fail(2, "--preset: " + encoderName(codec) + " has no preset \"" + preset + "\" (it takes " +
                    (names.empty() ? std::string(range) : names) + ")");
    }
}

void checkOption(const AVCodec* codec, const std::string& key, const std::string& value) {
    const std::string what = "--encoder-option " + key + "=" + value;
    if (key.empty()) fail(2, "--encoder-option: expected key=value, got \"=" + value + "\"");
    auto scratch = newCodec(codec);
    const int e = av_opt_set(scratch.get(), key.c_str(), value.c_str(), AV_OPT_SEARCH_CHILDREN);
    if (e == AVERROR_OPTION_NOT_FOUND) fail(2, what + ": " + encoderName(codec) + " has no option \"" + key + "\"");
    if (e < 0) fail(2, what + ": " + encoderName(codec) + " refuses the value: " + avError(e));
}

// The last error FFmpeg logged while the encoder opened: the reason it gives.
thread_local std::string gLastLogged;
void keepLastError(void*, int level, const char* format, va_list args) {
    if (level > AV_LOG_ERROR) return;
    char line[512];
    std::vsnprintf(line, sizeof line, format, args);
    std::string text = line;
    while (!text.empty() && (text.back() == '\n' || text.back() == '.' || text.back() == ' ')) text.pop_back();
    if (!text.empty()) gLastLogged = text;
}

}  // namespace

void checkControls(const AVCodec* codec, const EncoderControls& controls) {
    if (!controls.crf.empty()) checkCrf(codec, controls.crf);
    if (!controls.preset.empty()) checkPreset(codec, controls.preset);
    if (!controls.pixelFormat.empty()) {
        const AVPixelFormat format = av_get_pix_fmt(controls.pixelFormat.c_str());
        if (format == AV_PIX_FMT_NONE)
            fail(2, "--pix-fmt: FFmpeg has no pixel format \"" + controls.pixelFormat + "\"");
        if (!offers(codec, format)) {
            std::string names;
            for (const AVPixelFormat* p = codec->pix_fmts; *p != AV_PIX_FMT_NONE; ++p)
                if (const char* name = av_get_pix_fmt_name(*p))
                    names += (names.empty() ? "" : ", ") + std::string(name);
            fail(2, "--pix-fmt: " + encoderName(codec) + " does not take " + controls.pixelFormat + " (it takes " +
                        names + ")");
        }
    }
    for (const auto& option : controls.options) checkOption(codec, option.first, option.second);
}

AVPixelFormat encoderPixelFormat(const AVCodec* codec, AVPixelFormat engine, const EncoderControls& controls) {
    if (!controls.pixelFormat.empty()) return av_get_pix_fmt(controls.pixelFormat.c_str());
    if (!codec->pix_fmts) return engine;
    const bool alpha = engine == AV_PIX_FMT_BGRA;
    if (deliveryCodec(codec->id)) {
        if (alpha && codec->id != AV_CODEC_ID_H264 && offers(codec, AV_PIX_FMT_YUVA420P)) return AV_PIX_FMT_YUVA420P;
        if (offers(codec, AV_PIX_FMT_YUV420P)) return AV_PIX_FMT_YUV420P;
    }
    const AVPixelFormat lossless[] = {engine, alpha ? AV_PIX_FMT_BGRA : AV_PIX_FMT_BGR0,
                                      alpha ? AV_PIX_FMT_GBRAP : AV_PIX_FMT_GBRP};
    for (AVPixelFormat f : lossless)
        if (offers(codec, f)) return f;
    return avcodec_find_best_pix_fmt_of_list(codec->pix_fmts, engine, alpha ? 1 : 0, nullptr);
}

void codedSize(AVPixelFormat format, int& width, int& height) {
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
    if (!d) return;
    const int across = (1 << d->log2_chroma_w) - 1, down = (1 << d->log2_chroma_h) - 1;
    width = (width + across) & ~across;
    height = (height + down) & ~down;
}

void padEdges(AVFrame* frame, int width, int height) {
    if (frame->width == width && frame->height == height) return;
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(AVPixelFormat(frame->format));
    // Only planar YUV is padded (codedSize grows nothing else); the chroma
    // planes already hold whole samples for the picture's size.
    if (!d || !(d->flags & AV_PIX_FMT_FLAG_PLANAR)) return;
    const int bytes = (d->comp[0].depth + 7) / 8;
    for (int c = 0; c < d->nb_components; ++c) {
        const int plane = d->comp[c].plane;
        const bool chroma = c == 1 || c == 2;
        if (chroma) continue;  // luma and alpha carry the full size
        std::uint8_t* data = frame->data[plane];
        const int stride = frame->linesize[plane];
        for (int y = 0; y < height; ++y)
            for (int x = width; x < frame->width; ++x)
                std::memcpy(data + y * stride + x * bytes, data + y * stride + (width - 1) * bytes, bytes);
        for (int y = height; y < frame->height; ++y)
            std::memcpy(data + y * stride, data + (height - 1) * stride, std::size_t(frame->width) * bytes);
    }
}

void openEncoderWith(AVCodecContext* encoder, const AVCodec* codec, const EncoderControls& controls,
                     const std::string& output, const AVDictionary* caps) {
    AVDictionary* raw = nullptr;
    if (!controls.crf.empty()) av_dict_set(&raw, "crf", controls.crf.c_str(), 0);
    if (!controls.preset.empty()) av_dict_set(&raw, "preset", controls.preset.c_str(), 0);
    for (const auto& option : controls.options) av_dict_set(&raw, option.first.c_str(), option.second.c_str(), 0);
    // The memory budget's caps come last: x264's parameters join the user's, which they override.
    for (const AVDictionaryEntry* cap = nullptr; (cap = av_dict_get(caps, "", cap, AV_DICT_IGNORE_SUFFIX));) {
        const AVDictionaryEntry* given = av_dict_get(raw, cap->key, nullptr, 0);
        const std::string value = given && std::string(cap->key) == "x264-params"
                                      ? std::string(given->value) + ":" + cap->value : std::string(cap->value);
        av_dict_set(&raw, cap->key, value.c_str(), 0);
    }
    std::unique_ptr<AVDictionary, DictionaryFree> options(raw);
    if (controls.bitrate > 0) encoder->bit_rate = controls.bitrate;
    if (controls.gop > 0) encoder->gop_size = controls.gop;

    gLastLogged.clear();
    av_log_set_callback(keepLastError);
    raw = options.release();
    const int e = avcodec_open2(encoder, codec, &raw);
    options.reset(raw);
    av_log_set_callback(av_log_default_callback);
    if (e < 0) {
        const std::string reason = gLastLogged.empty() ? avError(e) : gLastLogged;
        fail(2, output + ": " + encoderName(codec) + " refuses " + av_get_pix_fmt_name(encoder->pix_fmt) + " at " +
                    std::to_string(encoder->width) + " x " + std::to_string(encoder->height) +
                    " with these settings: " + reason);
    }
    if (const AVDictionaryEntry* unused = av_dict_get(options.get(), "", nullptr, AV_DICT_IGNORE_SUFFIX)) {
        const std::string key = unused->key;
        const std::string option = key == "crf" ? "--crf" : key == "preset" ? "--preset" : "--encoder-option " + key;
        fail(2, option + ": " + encoderName(codec) + " does not use it");
    }
}

}  // namespace video

#endif
