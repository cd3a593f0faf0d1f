#if FLAIRIZE_VIDEO

#include "standalone/video_colour.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>

namespace video {
namespace {

template <typename Tag>
Tag knownTag(const Tag& field, Tag count, Tag unknown) {
    int v;
    std::memcpy(&v, &field, sizeof v);
    return v >= 0 && v < int(count) ? static_cast<Tag>(v) : unknown;
}

// Linear light is relative to SDR white, 203 cd/m² (BT.2408); HLG's nominal
// peak is 1000 cd/m².
constexpr double kSdrWhite = 203.0, kHlgPeak = 1000.0;
constexpr int kSteps = 4096;  // table entries over the 16-bit code range

struct Tables {
    float pq[kSteps];            // PQ code -> linear light
    float hlg[kSteps];           // HLG code -> scene light, 0..1
    float hlgGain[kSteps];       // scene luminance -> the display's gain, Y^(γ-1) x peak
    std::uint8_t bt709[kSteps];  // linear light 0..1 -> 8-bit BT.709 code
    Tables() {
        for (int i = 0; i < kSteps; ++i) {
            const double e = double(i) / (kSteps - 1);
            // SMPTE ST 2084 EOTF, in cd/m².
            const double m1 = 2610.0 / 16384, m2 = 2523.0 / 4096 * 128, c1 = 3424.0 / 4096, c2 = 2413.0 / 4096 * 32,
                         c3 = 2392.0 / 4096 * 32;
            const double p = std::pow(e, 1 / m2);
            pq[i] = float(10000.0 * std::pow(std::max(p - c1, 0.0) / (c2 - c3 * p), 1 / m1) / kSdrWhite);
            // ARIB STD-B67 inverse OETF.
            const double a = 0.17883277, b = 1 - 4 * a, c = 0.5 - a * std::log(4 * a);
            hlg[i] = float(e <= 0.5 ? e * e / 3 : (std::exp((e - c) / a) + b) / 12);
            // The OOTF's system gamma 1.2 at a 1000 cd/m² display.
            hlgGain[i] = float(std::pow(e, 0.2) * kHlgPeak / kSdrWhite);
            const double v = e < 0.018 ? 4.5 * e : 1.099 * std::pow(e, 0.45) - 0.099;
            bt709[i] = std::uint8_t(std::lround(std::clamp(v, 0.0, 1.0) * 255));
        }
    }
};
const Tables& tables() {
    static const Tables t;
    return t;
}

int step(double v) { return int(std::lround(std::clamp(v, 0.0, 1.0) * (kSteps - 1))); }

// Light above the knee rolls off towards SDR white; below it stays as it is.
double rollOff(double m) {
    constexpr double knee = 0.75;
    if (m <= knee) return m;
    const double t = m - knee;
    return knee + (1 - knee) * t / (t + (1 - knee));
}

}  // namespace

const char* hdrTransferOf(const AVCodecParameters* input) {
    switch (knownTag(input->color_trc, AVCOL_TRC_NB, AVCOL_TRC_UNSPECIFIED)) {
        case AVCOL_TRC_SMPTE2084:
            return "PQ";
        case AVCOL_TRC_ARIB_STD_B67:
            return "HLG";
        default:
            return nullptr;
    }
}

void setColourTags(AVCodecContext* encoder, const AVCodecParameters* input, bool inputYuv) {
    const AVPixFmtDescriptor* layout = av_pix_fmt_desc_get(encoder->pix_fmt);
    const bool yuv = layout && !(layout->flags & AV_PIX_FMT_FLAG_RGB);
    if (hdrTransferOf(input)) {
        encoder->color_primaries = AVCOL_PRI_BT709;
        encoder->color_trc = AVCOL_TRC_BT709;
        if (yuv) {
            encoder->colorspace = AVCOL_SPC_BT709;
            encoder->color_range = AVCOL_RANGE_MPEG;
        }
        return;
    }
    if (!yuv) return;
    encoder->colorspace =
        inputYuv ? knownTag(input->color_space, AVCOL_SPC_NB, AVCOL_SPC_UNSPECIFIED) : AVCOL_SPC_SMPTE170M;
    encoder->color_primaries =
        inputYuv ? knownTag(input->color_primaries, AVCOL_PRI_NB, AVCOL_PRI_UNSPECIFIED) : AVCOL_PRI_UNSPECIFIED;
    encoder->color_trc =
        inputYuv ? knownTag(input->color_trc, AVCOL_TRC_NB, AVCOL_TRC_UNSPECIFIED) : AVCOL_TRC_UNSPECIFIED;
    encoder->color_range =
        inputYuv && knownTag(input->color_range, AVCOL_RANGE_NB, AVCOL_RANGE_UNSPECIFIED) == AVCOL_RANGE_JPEG
            ? AVCOL_RANGE_JPEG
            : AVCOL_RANGE_MPEG;
}

SdrConverter::~SdrConverter() {
    sws_freeContext(context_);
    av_frame_free(&wide_);
}

bool SdrConverter::convert(const AVFrame* from, AVFrame* to) {
    const bool alpha = to->format == AV_PIX_FMT_BGRA;
    const AVColorSpace space = knownTag(from->colorspace, AVCOL_SPC_NB, AVCOL_SPC_UNSPECIFIED);
    const AVColorRange range = knownTag(from->color_range, AVCOL_RANGE_NB, AVCOL_RANGE_UNSPECIFIED);
    const int key[] = {from->width, from->height, from->format, space, range};
    if (!context_ || !std::equal(std::begin(key), std::end(key), key_)) {
        sws_freeContext(context_);
        av_frame_free(&wide_);
        const AVPixelFormat wideLayout = alpha ? AV_PIX_FMT_RGBA64 : AV_PIX_FMT_RGB48;
        context_ = sws_getContext(from->width, from->height, AVPixelFormat(from->format), from->width, from->height,
                                  wideLayout, SWS_BICUBIC | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP | SWS_ACCURATE_RND,
                                  nullptr, nullptr, nullptr);
        if (!context_) return false;
        const int* matrix = sws_getCoefficients(space == AVCOL_SPC_UNSPECIFIED ? SWS_CS_BT2020 : int(space));
        sws_setColorspaceDetails(context_, matrix, range == AVCOL_RANGE_JPEG, matrix, 1, 0, 1 << 16, 1 << 16);
        wide_ = av_frame_alloc();
        if (!wide_) throw std::bad_alloc();
        wide_->format = wideLayout;
        wide_->width = from->width;
        wide_->height = from->height;
        if (av_frame_get_buffer(wide_, 0) < 0) throw std::bad_alloc();
        std::copy(std::begin(key), std::end(key), key_);
    }
    if (sws_scale(context_, from->data, from->linesize, 0, from->height, wide_->data, wide_->linesize) != from->height)
        return false;

    const Tables& t = tables();
    const bool hlg = knownTag(from->color_trc, AVCOL_TRC_NB, AVCOL_TRC_UNSPECIFIED) == AVCOL_TRC_ARIB_STD_B67;
    const int in = alpha ? 4 : 3, out = alpha ? 4 : 3;
    for (int y = 0; y < to->height; ++y) {
        const auto* src =
            reinterpret_cast<const std::uint16_t*>(wide_->data[0] + std::ptrdiff_t(y) * wide_->linesize[0]);
        std::uint8_t* dst = to->data[0] + std::ptrdiff_t(y) * to->linesize[0];
        for (int x = 0; x < to->width; ++x, src += in, dst += out) {
            double r, g, b;
            if (hlg) {
                r = t.hlg[src[0] >> 4], g = t.hlg[src[1] >> 4], b = t.hlg[src[2] >> 4];
                const double gain = t.hlgGain[step(0.2627 * r + 0.6780 * g + 0.0593 * b)];
                r *= gain, g *= gain, b *= gain;
            } else {
                r = t.pq[src[0] >> 4], g = t.pq[src[1] >> 4], b = t.pq[src[2] >> 4];
            }
            // BT.2020 to BT.709 primaries.
            const double r709 = 1.6605 * r - 0.5876 * g - 0.0728 * b;
            const double g709 = -0.1246 * r + 1.1329 * g - 0.0083 * b;
            const double b709 = -0.0182 * r - 0.1006 * g + 1.1187 * b;
            const double peak = std::max({r709, g709, b709});
            const double scale = peak > 0 ? rollOff(peak) / peak : 0;
            dst[0] = t.bt709[step(b709 * scale)];
            dst[1] = t.bt709[step(g709 * scale)];
            dst[2] = t.bt709[step(r709 * scale)];
            if (alpha) dst[3] = std::uint8_t(src[3] >> 8);
        }
    }
    return true;
}

}  // namespace video

#endif
