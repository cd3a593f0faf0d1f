#if FLAIRIZE_VIDEO

#include "standalone/video_streams.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
#include <libswresample/swresample.h>
}

#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "standalone/video_support.h"
#include "standalone/messages.h"

namespace video {
namespace {

// A decoder for a stream, opened; `where` names it in a refusal.
Codec openDecoder(const AVStream* in, const std::string& where) {
    const AVCodec* decoder = avcodec_find_decoder(in->codecpar->codec_id);
    if (!decoder) fail(2, where + ": FFmpeg here has no decoder for it");
    Codec dec = newCodec(decoder);
    int e = avcodec_parameters_to_context(dec.get(), in->codecpar);
    if (e < 0) fail(2, where + ": " + avError(e));
    dec->pkt_timebase = in->time_base;
    if ((e = avcodec_open2(dec.get(), decoder, nullptr)) < 0) fail(2, where + ": " + avError(e));
    return dec;
}

// Tags that describe the bytes of a stream written anew (its encoder,
// Matroska's statistics) and so are wrong for the output; the duration, which
// the muxer writes itself, for every stream.
bool stale(const char* key, bool encodedAnew) {
    if (!strcasecmp(key, "DURATION") || !strncasecmp(key, "DURATION-", 9)) return true;
    if (!encodedAnew) return false;
    for (const char* s : {"encoder", "vendor_id", "BPS", "NUMBER_OF_FRAMES", "NUMBER_OF_BYTES", "_STATISTICS_"})
        if (!strncasecmp(key, s, std::strlen(s))) return true;
    return false;
}

void copyMetadata(AVDictionary* from, AVDictionary** to, bool encodedAnew) {
    const AVDictionaryEntry* e = nullptr;
    while ((e = av_dict_get(from, "", e, AV_DICT_IGNORE_SUFFIX)))
        if (!stale(e->key, encodedAnew) && av_dict_set(to, e->key, e->value, 0) < 0) throw std::bad_alloc();
}

void copySideData(const AVStream* in, AVStream* out, bool geometryOnly) {
    for (int k = 0; k < in->nb_side_data; ++k) {
        const AVPacketSideData& d = in->side_data[k];
        if (geometryOnly && d.type != AV_PKT_DATA_DISPLAYMATRIX && d.type != AV_PKT_DATA_STEREO3D &&
            d.type != AV_PKT_DATA_SPHERICAL)
            continue;
        std::uint8_t* copy = av_stream_new_side_data(out, d.type, d.size);
        if (!copy) throw std::bad_alloc();
        std::memcpy(copy, d.data, d.size);
    }
}

const char* kindOf(AVMediaType type) {
    switch (type) {
        case AVMEDIA_TYPE_AUDIO:
            return "audio";
        case AVMEDIA_TYPE_SUBTITLE:
            return "subtitles";
        case AVMEDIA_TYPE_DATA:
            return "data";
        case AVMEDIA_TYPE_ATTACHMENT:
            return "attachment";
        case AVMEDIA_TYPE_VIDEO:
            return "video";
        default:
            return "stream";
    }
}

bool takes(const AVOutputFormat* format, AVCodecID id) {
    return avformat_query_codec(format, id, FF_COMPLIANCE_NORMAL) == 1;
}

// The encoder audio the container refuses is written with: Opus for WebM,
// else AAC where the container takes it, else the container's own default.
const AVCodec* audioEncoderFor(const AVOutputFormat* format) {
    std::vector<AVCodecID> ids;
    if (!std::strcmp(format->name, "webm"))
        ids = {AV_CODEC_ID_OPUS};
    else
        ids = {AV_CODEC_ID_AAC, AV_CODEC_ID_OPUS, format->audio_codec};
    for (AVCodecID id : ids) {
        if (id == AV_CODEC_ID_NONE || !takes(format, id)) continue;
        // FFmpeg's own Opus encoder is experimental; libopus is preferred.
        if (id == AV_CODEC_ID_OPUS)
            if (const AVCodec* c = avcodec_find_encoder_by_name("libopus")) return c;
        if (const AVCodec* c = avcodec_find_encoder(id)) return c;
    }
    return nullptr;
}

// The encoder text subtitles the container refuses are written with.
const AVCodec* subtitleEncoderFor(const AVOutputFormat* format) {
    for (AVCodecID id : {AV_CODEC_ID_MOV_TEXT, AV_CODEC_ID_SUBRIP, AV_CODEC_ID_ASS, AV_CODEC_ID_WEBVTT})
        if (takes(format, id))
            if (const AVCodec* c = avcodec_find_encoder(id)) return c;
    return nullptr;
}

bool textSubtitles(AVCodecID id) {
    const AVCodecDescriptor* d = avcodec_descriptor_get(id);
    return d && (d->props & AV_CODEC_PROP_TEXT_SUB);
}

}  // namespace

// The container's encoder tag names the program that wrote the input; the muxer writes its own.
void keepContainerMetadata(const AVFormatContext* in, AVFormatContext* out) {
    copyMetadata(in->metadata, &out->metadata, true);
}

void keepVideoMetadata(const AVStream* in, AVStream* out) {
    copyMetadata(in->metadata, &out->metadata, true);
    out->disposition = in->disposition;
    copySideData(in, out, true);
}

// ---- transcoding

struct Streams::Transcoder {
    virtual ~Transcoder() = default;
    virtual void write(AVPacket* packet, AVStream* out, const Mux& mux) = 0;
    virtual void finish(AVStream* out, const Mux& mux) = 0;
};

namespace {

using Mux = Streams::Mux;

// Audio decoded, resampled to what the encoder takes, and encoded in the
// encoder's frame size. Timestamps count samples from the first frame's.
class AudioTranscoder : public Streams::Transcoder {
   public:
    AudioTranscoder(const AVStream* in, const AVCodec* encoder, AVFormatContext* out, AVStream* o,
                    const std::string& where)
        : in_(in), where_(where) {
        dec_ = openDecoder(in, where);

        enc_ = newCodec(encoder);
        AVChannelLayout layout{};
        if (dec_->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC || !dec_->ch_layout.nb_channels)
            av_channel_layout_default(&layout, std::max(1, dec_->ch_layout.nb_channels));
        else if (av_channel_layout_copy(&layout, &dec_->ch_layout) < 0)
            throw std::bad_alloc();
        if (!supportsLayout(encoder, layout)) {
            av_channel_layout_uninit(&layout);
            av_channel_layout_default(&layout, dec_->ch_layout.nb_channels == 1 ? 1 : 2);
        }
        av_channel_layout_copy(&enc_->ch_layout, &layout);
        av_channel_layout_uninit(&layout);
        enc_->sample_rate = rateFor(encoder, dec_->sample_rate);
        enc_->sample_fmt = encoder->sample_fmts ? encoder->sample_fmts[0] : AV_SAMPLE_FMT_FLTP;
        enc_->time_base = {1, enc_->sample_rate};
        if (encoder->capabilities & AV_CODEC_CAP_EXPERIMENTAL) enc_->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
        if (out->oformat->flags & AVFMT_GLOBALHEADER) enc_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        if (const int e = avcodec_open2(enc_.get(), encoder, nullptr); e < 0)
            fail(2, where + ": the " + encoder->name + " encoder refuses it: " + avError(e));
        if (avcodec_parameters_from_context(o->codecpar, enc_.get()) < 0) throw std::bad_alloc();
        o->time_base = enc_->time_base;
        frameSize_ = (encoder->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) || enc_->frame_size <= 0
                         ? 1024
                         : enc_->frame_size;
        fifo_ = av_audio_fifo_alloc(enc_->sample_fmt, enc_->ch_layout.nb_channels, frameSize_);
        if (!fifo_) throw std::bad_alloc();
    }
    ~AudioTranscoder() override {
        swr_free(&swr_);
        if (fifo_) av_audio_fifo_free(fifo_);
    }

    void write(AVPacket* packet, AVStream* out, const Mux& mux) override {
        const int e = avcodec_send_packet(dec_.get(), packet);
        if (e < 0 && e != AVERROR(EAGAIN)) fail(2, where_ + ": " + avError(e));
        decoded(out, mux);
    }

    void finish(AVStream* out, const Mux& mux) override {
        avcodec_send_packet(dec_.get(), nullptr);
        decoded(out, mux);
        if (swr_) resample(nullptr, 0);
        encodeWhole(out, mux, true);
        int e = avcodec_send_frame(enc_.get(), nullptr);
        if (e < 0) fail(1, where_ + ": the encoder failed: " + avError(e));
        drain(out, mux);
    }

   private:
    static bool supportsLayout(const AVCodec* encoder, const AVChannelLayout& layout) {
        if (!encoder->ch_layouts) return true;
        for (const AVChannelLayout* l = encoder->ch_layouts; l->nb_channels; ++l)
            if (!av_channel_layout_compare(l, &layout)) return true;
        return false;
    }
    static int rateFor(const AVCodec* encoder, int rate) {
        if (!encoder->supported_samplerates) return rate > 0 ? rate : 48000;
        for (const int* r = encoder->supported_samplerates; *r; ++r)
            if (*r == rate) return rate;
        return 48000;
    }

    void decoded(AVStream* out, const Mux& mux) {
        int r;
        while ((r = avcodec_receive_frame(dec_.get(), frame_.get())) >= 0) {
            if (next_ == AV_NOPTS_VALUE) {
                const std::int64_t pts = frame_->best_effort_timestamp;
                next_ = pts == AV_NOPTS_VALUE ? 0 : av_rescale_q(pts, in_->time_base, enc_->time_base);
            }
            if (!swr_) openResampler(frame_.get());
            resample(frame_.get(), frame_->nb_samples);
            av_frame_unref(frame_.get());
            encodeWhole(out, mux, false);
        }
        if (r != AVERROR(EAGAIN) && r != AVERROR_EOF) fail(2, where_ + ": " + avError(r));
    }

    void openResampler(const AVFrame* f) {
        AVChannelLayout from{};
        if (f->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
            av_channel_layout_default(&from, f->ch_layout.nb_channels);
        else if (av_channel_layout_copy(&from, &f->ch_layout) < 0)
            throw std::bad_alloc();
        const int e = swr_alloc_set_opts2(&swr_, &enc_->ch_layout, enc_->sample_fmt, enc_->sample_rate, &from,
                                          AVSampleFormat(f->format), f->sample_rate, 0, nullptr);
        av_channel_layout_uninit(&from);
        if (e < 0 || swr_init(swr_) < 0) fail(2, where_ + ": no conversion to the encoder's samples");
    }

    // Samples through the resampler into the queue; null input drains it.
    void resample(const AVFrame* f, int samples) {
        const int room = swr_get_out_samples(swr_, samples);
        if (room <= 0) return;
        Frame converted = newFrame();
        converted->format = enc_->sample_fmt;
        converted->nb_samples = room;
        if (av_channel_layout_copy(&converted->ch_layout, &enc_->ch_layout) < 0 ||
            av_frame_get_buffer(converted.get(), 0) < 0)
            throw std::bad_alloc();
        const int got = swr_convert(swr_, converted->data, room,
                                    f ? const_cast<const std::uint8_t**>(f->extended_data) : nullptr, samples);
        if (got < 0) fail(2, where_ + ": " + avError(got));
        if (got > 0 && av_audio_fifo_write(fifo_, reinterpret_cast<void**>(converted->data), got) < got)
            throw std::bad_alloc();
    }

    // Whole encoder frames from the queue; at the end the rest too.
    void encodeWhole(AVStream* out, const Mux& mux, bool last) {
        while (av_audio_fifo_size(fifo_) >= frameSize_ || (last && av_audio_fifo_size(fifo_) > 0)) {
            const int n = std::min(frameSize_, av_audio_fifo_size(fifo_));
            Frame chunk = newFrame();
            chunk->format = enc_->sample_fmt;
            chunk->sample_rate = enc_->sample_rate;
            const bool small = n < frameSize_ && !(enc_->codec->capabilities & AV_CODEC_CAP_SMALL_LAST_FRAME) &&
                               !(enc_->codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE);
            chunk->nb_samples = small ? frameSize_ : n;
            if (av_channel_layout_copy(&chunk->ch_layout, &enc_->ch_layout) < 0 ||
                av_frame_get_buffer(chunk.get(), 0) < 0)
                throw std::bad_alloc();
            if (small)
                av_samples_set_silence(chunk->data, 0, frameSize_, enc_->ch_layout.nb_channels, enc_->sample_fmt);
            if (av_audio_fifo_read(fifo_, reinterpret_cast<void**>(chunk->data), n) < n) throw std::bad_alloc();
            chunk->pts = next_;
            next_ += chunk->nb_samples;
            const int e = avcodec_send_frame(enc_.get(), chunk.get());
            if (e < 0) fail(1, where_ + ": the encoder failed: " + avError(e));
            drain(out, mux);
        }
    }

    void drain(AVStream* out, const Mux& mux) {
        int r;
        while ((r = avcodec_receive_packet(enc_.get(), packet_.get())) >= 0) {
            av_packet_rescale_ts(packet_.get(), enc_->time_base, out->time_base);
            packet_->stream_index = out->index;
            mux(packet_.get());
            av_packet_unref(packet_.get());
        }
        if (r != AVERROR(EAGAIN) && r != AVERROR_EOF) fail(1, where_ + ": the encoder failed: " + avError(r));
    }

    const AVStream* in_;
    std::string where_;
    Codec dec_, enc_;
    SwrContext* swr_ = nullptr;
    AVAudioFifo* fifo_ = nullptr;
    int frameSize_ = 1024;
    std::int64_t next_ = AV_NOPTS_VALUE;
    Frame frame_ = newFrame();
    Packet packet_ = newPacket();
};

// Text subtitles decoded to their events and encoded in the container's
// format, each event with its time and duration.
class SubtitleTranscoder : public Streams::Transcoder {
   public:
    SubtitleTranscoder(const AVStream* in, const AVCodec* encoder, AVStream* o, const std::string& where)
        : in_(in), where_(where) {
        dec_ = openDecoder(in, where);
        enc_ = newCodec(encoder);
        enc_->time_base = AV_TIME_BASE_Q;
        if (dec_->subtitle_header) {  // the styles, which the encoder needs
            enc_->subtitle_header = static_cast<std::uint8_t*>(av_mallocz(std::size_t(dec_->subtitle_header_size) + 1));
            if (!enc_->subtitle_header) throw std::bad_alloc();
            std::memcpy(enc_->subtitle_header, dec_->subtitle_header, std::size_t(dec_->subtitle_header_size));
            enc_->subtitle_header_size = dec_->subtitle_header_size;
        }
        if (const int e = avcodec_open2(enc_.get(), encoder, nullptr); e < 0)
            fail(2, where + ": the " + encoder->name + " encoder refuses it: " + avError(e));
        if (avcodec_parameters_from_context(o->codecpar, enc_.get()) < 0) throw std::bad_alloc();
        o->time_base = {1, 1000};
    }

    void write(AVPacket* packet, AVStream* out, const Mux& mux) override {
        AVSubtitle sub{};
        int got = 0;
        const int e = avcodec_decode_subtitle2(dec_.get(), &sub, &got, packet);
        if (e < 0) fail(2, where_ + ": " + avError(e));
        if (!got) return;
        std::unique_ptr<AVSubtitle, void (*)(AVSubtitle*)> owner(&sub, avsubtitle_free);
        if (!sub.num_rects) return;
        if (sub.pts == AV_NOPTS_VALUE) {
            if (packet->pts == AV_NOPTS_VALUE) return;
            sub.pts = av_rescale_q(packet->pts, in_->time_base, AV_TIME_BASE_Q);
        }
        // The event's times from its packet's time on.
        sub.pts += av_rescale_q(sub.start_display_time, {1, 1000}, AV_TIME_BASE_Q);
        sub.end_display_time -= sub.start_display_time;
        sub.start_display_time = 0;
        const int size = avcodec_encode_subtitle(enc_.get(), buffer_.data(), int(buffer_.size()), &sub);
        if (size < 0) fail(1, where_ + ": the subtitle encoder failed: " + avError(size));
        if (size == 0) return;
        Packet p = newPacket();
        if (av_new_packet(p.get(), size) < 0) throw std::bad_alloc();
        std::memcpy(p->data, buffer_.data(), std::size_t(size));
        p->pts = p->dts = av_rescale_q(sub.pts, AV_TIME_BASE_Q, out->time_base);
        p->duration = av_rescale_q(sub.end_display_time, {1, 1000}, out->time_base);
        p->stream_index = out->index;
        mux(p.get());
    }
    void finish(AVStream*, const Mux&) override {}

   private:
    const AVStream* in_;
    std::string where_;
    Codec dec_, enc_;
    std::vector<std::uint8_t> buffer_ = std::vector<std::uint8_t>(1 << 20);
};

}  // namespace

// ---- the streams

Streams::Streams(const AVFormatContext* in, int video, AVFormatContext* out, Plan plan, const std::string& output)
    : in_(in), out_(out), output_(output), map_(in->nb_streams, -1), transcoders_(in->nb_streams) {
    const AVOutputFormat* format = out->oformat;
    const bool asTheyAre = plan == Plan::AsTheyAre;
    for (unsigned s = 0; s < in->nb_streams; ++s) {
        if (int(s) == video || plan == Plan::None) continue;
        const AVStream* i = in->streams[s];
        const AVCodecParameters* p = i->codecpar;
        const AVCodecID id = p->codec_id;
        const std::string what = std::string("the ") + avcodec_get_name(id) + " " + kindOf(p->codec_type) +
                                 " of stream " + std::to_string(s);
        const int query = avformat_query_codec(format, id, FF_COMPLIANCE_NORMAL);
        const AVCodec* encoder = nullptr;
        bool copy = false;
        switch (p->codec_type) {
            case AVMEDIA_TYPE_AUDIO:
                copy = asTheyAre && query != 0;
                if (!copy) encoder = audioEncoderFor(format);
                break;
            case AVMEDIA_TYPE_SUBTITLE:
                copy = asTheyAre && query != 0;
                if (!copy && asTheyAre && textSubtitles(id)) encoder = subtitleEncoderFor(format);
                break;
            case AVMEDIA_TYPE_DATA:
                copy = asTheyAre && query == 1;
                break;
            case AVMEDIA_TYPE_ATTACHMENT:
                copy = asTheyAre && !std::strcmp(format->name, "matroska");
                break;
            case AVMEDIA_TYPE_VIDEO:  // cover art; further video streams are not rendered
                copy = asTheyAre && (i->disposition & AV_DISPOSITION_ATTACHED_PIC) && query == 1;
                break;
            default:
                break;
        }
        if (!copy && !encoder) {
            if (asTheyAre)
                notices::say("%s: the %s container does not take %s; it is left out\n",
                             output.c_str(), format->name, what.c_str());
            else if (p->codec_type != AVMEDIA_TYPE_AUDIO)
                notices::say("%s: %s is left out\n", output.c_str(), what.c_str());
            else
                notices::say("%s: no encoder the %s container takes for %s; it is left out\n",
                             output.c_str(), format->name, what.c_str());
            continue;
        }
        AVStream* o = avformat_new_stream(out, nullptr);
        if (!o) throw std::bad_alloc();
        copyMetadata(i->metadata, &o->metadata, !copy);
        o->disposition = i->disposition;
        if (copy) {
            if (avcodec_parameters_copy(o->codecpar, p) < 0) throw std::bad_alloc();
            o->codecpar->codec_tag = 0;
            o->time_base = i->time_base;
            copySideData(i, o, false);
            ++copied_;
        } else {
            const std::string where = output + ": " + what;
            if (p->codec_type == AVMEDIA_TYPE_AUDIO)
                transcoders_[s] = std::make_unique<AudioTranscoder>(i, encoder, out, o, where);
            else
                transcoders_[s] = std::make_unique<SubtitleTranscoder>(i, encoder, o, where);
            notices::say("note: %s: the %s container does not take %s; it is written as %s\n",
                         output.c_str(), format->name, what.c_str(), avcodec_get_name(encoder->id));
        }
        map_[s] = o->index;
        ++kept_;
    }
}

Streams::~Streams() = default;

bool Streams::wants(int stream) const {
    return stream >= 0 && std::size_t(stream) < map_.size() && map_[std::size_t(stream)] >= 0;
}

void Streams::write(AVPacket* packet, const Mux& mux) {
    const int from = packet->stream_index;
    AVStream* to = out_->streams[map_[std::size_t(from)]];
    if (Transcoder* t = transcoders_[std::size_t(from)].get()) {
        t->write(packet, to, mux);
        return;
    }
    av_packet_rescale_ts(packet, in_->streams[from]->time_base, to->time_base);
    packet->stream_index = to->index;
    packet->pos = -1;
    mux(packet);
}

void Streams::finish(const Mux& mux) {
    for (std::size_t s = 0; s < transcoders_.size(); ++s)
        if (transcoders_[s]) transcoders_[s]->finish(out_->streams[map_[s]], mux);
}

}  // namespace video

#endif
