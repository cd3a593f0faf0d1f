#include "standalone/video.h"

#if !FLAIRIZE_VIDEO

namespace video {

Outcome convert(const Job& job) {
    return {2, job.input + ": this flairize was built without FFmpeg's libraries (libavformat, libavcodec, "
                           "libswscale, libswresample, libavutil), so it reads and writes no video"};
}

}  // namespace video

#else

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <tbb/enumerable_thread_specific.h>

#include <algorithm>
#include <iterator>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "engine/flairize.h"
#include "platform/strings.h"
#include "hostops/threads.h"
#include "resources/string_ids.h"
#include "standalone/video_colour.h"
#include "standalone/video_encoder.h"
#include "standalone/video_streams.h"
#include "standalone/video_support.h"

namespace video {
namespace {

bool endsWith(const std::string& s, const char* tail) {
    const std::size_t n = std::strlen(tail);
    if (s.size() < n) return false;
    for (std::size_t k = 0; k < n; ++k)
        if (std::tolower(static_cast<unsigned char>(s[s.size() - n + k])) != tail[k]) return false;
    return true;
}

// ---- owners of FFmpeg's objects

struct InputCloser {
    void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct OutputCloser {
    void operator()(AVFormatContext* c) const {
        if (c->pb) avio_closep(&c->pb);
        avformat_free_context(c);
    }
};
struct CodecCloser {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameFree {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketFree {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
using Input = std::unique_ptr<AVFormatContext, InputCloser>;
using Output = std::unique_ptr<AVFormatContext, OutputCloser>;
using Codec = std::unique_ptr<AVCodecContext, CodecCloser>;
using Frame = std::unique_ptr<AVFrame, FrameFree>;
using Packet = std::unique_ptr<AVPacket, PacketFree>;

Frame newFrame() {
    Frame f(av_frame_alloc());
    if (!f) throw std::bad_alloc();
    return f;
}
Packet newPacket() {
    Packet p(av_packet_alloc());
    if (!p) throw std::bad_alloc();
    return p;
}

Input openInput(const std::string& path) {
    AVFormatContext* raw = nullptr;
    int e = avformat_open_input(&raw, path.c_str(), nullptr, nullptr);
    if (e < 0) fail(2, path + ": " + avError(e));
    Input in(raw);
    e = avformat_find_stream_info(in.get(), nullptr);
    if (e < 0) fail(2, path + ": " + avError(e));
    return in;
}

// ---- the temporary output, removed on failure and on SIGINT or SIGTERM

char gTemporary[4096];
volatile std::sig_atomic_t gTemporarySet = 0;

void removeTemporaryAndDie(int signal) {
    if (gTemporarySet) ::unlink(gTemporary);
    // SA_RESETHAND has put the default action back: the process ends by this signal.
    ::raise(signal);
}

class Temporary {
public:
    explicit Temporary(const std::string& output) : path_(output + ".XXXXXX") {
        if (path_.size() >= sizeof gTemporary) fail(2, output + ": the file name is too long");
        const int fd = ::mkstemp(path_.data());
        if (fd < 0) fail(2, output + ": " + std::strerror(errno));
        ::fchmod(fd, 0644);
        ::close(fd);
        std::memcpy(gTemporary, path_.c_str(), path_.size() + 1);
        gTemporarySet = 1;
        struct sigaction action {};
        action.sa_handler = removeTemporaryAndDie;
        action.sa_flags = SA_RESETHAND;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &oldInt_);
        sigaction(SIGTERM, &action, &oldTerm_);
    }
    ~Temporary() {
        sigaction(SIGINT, &oldInt_, nullptr);
        sigaction(SIGTERM, &oldTerm_, nullptr);
        gTemporarySet = 0;
        if (!kept_) ::unlink(path_.c_str());
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;

    const std::string& path() const { return path_; }
    void keepAs(const std::string& output) {
        if (std::rename(path_.c_str(), output.c_str()) != 0) fail(2, output + ": " + std::strerror(errno));
        kept_ = true;
    }

private:
    std::string path_;
    bool kept_ = false;
    struct sigaction oldInt_ {}, oldTerm_ {};
};

// ---- choices made before the first frame

// The encoder: --codec, else H.264 for MP4 and QuickTime, FFV1 (lossless) for
// Matroska, else the container's own default video codec.
const AVCodec* chooseEncoder(const Job& job, const AVOutputFormat* format) {
    const AVCodec* codec = nullptr;
    std::string name = job.codec;
    if (!name.empty()) {
        codec = avcodec_find_encoder_by_name(name.c_str());
        if (!codec || codec->type != AVMEDIA_TYPE_VIDEO) fail(2, "--codec: FFmpeg has no video encoder named \"" + name + "\"");
    } else {
        if (endsWith(job.output, ".mp4") || endsWith(job.output, ".mov") || endsWith(job.output, ".m4v"))
            name = "libx264";
        else if (endsWith(job.output, ".mkv"))
            name = "ffv1";
        codec = name.empty() ? avcodec_find_encoder(format->video_codec) : avcodec_find_encoder_by_name(name.c_str());
        if (!codec) {
            if (name.empty()) fail(2, job.output + ": the container has no default video encoder; choose one with --codec");
            fail(2, job.output + ": FFmpeg here has no " + name + " encoder; choose another with --codec");
        }
    }
    if (avformat_query_codec(format, codec->id, FF_COMPLIANCE_NORMAL) == 0)
        fail(2, job.output + ": the " + format->name + " container does not take " + codec->name + " video");
    return codec;
}

// The number of frames: the video's packets, counted by reading the file
// through once without decoding, leaving out those the demuxer marks to be
// discarded. No container's own count is taken: where there is one at all it
// is estimated from the duration or a tag, or, as MP4's sample count, still
// includes the frames an edit list cuts away.
long countFrames(const std::string& path, int stream) {
    Input again = openInput(path);
    if (unsigned(stream) >= again->nb_streams) fail(2, path + ": the streams differ between two readings");
    Packet packet = newPacket();
    long count = 0;
    int e;
    while ((e = av_read_frame(again.get(), packet.get())) >= 0) {
        if (packet->stream_index == stream && !(packet->flags & AV_PKT_FLAG_DISCARD)) ++count;
        av_packet_unref(packet.get());
    }
    if (e != AVERROR_EOF) fail(2, path + ": " + avError(e));
    return count;
}

// ---- the frames in flight

// One frame's way through the stages, with the audio packets read before it.
// Items are reused in turn; their pictures are allocated once.
struct Item {
    long index = -1;                    // the frame's number; -1: no frame (audio at the end)
    Frame decoded = newFrame();         // as the decoder gave it
    Frame source = newFrame();          // the engine's layout (BGR or BGRA, top row first)
    Frame rendered = newFrame();        // the effect's output, same layout
    Frame encoded = newFrame();         // the encoder's pixel format
    std::vector<Packet> audio;          // packets of the other streams kept (audio, subtitles, data)
    std::int64_t pts = AV_NOPTS_VALUE;
};

void allocate(AVFrame* f, AVPixelFormat format, int width, int height) {
    f->format = format;
    f->width = width;
    f->height = height;
    if (av_frame_get_buffer(f, 0) < 0) throw std::bad_alloc();
}

flairize::PictureView viewOf(const AVFrame* f, std::uint8_t bytesPerPixel) {
    return {f->data[0], f->linesize[0], std::uint16_t(f->width), std::uint16_t(f->height), bytesPerPixel};
}

// A colour conversion from frames of one size and layout into another, made
// anew when the source's size, layout, matrix or range changes.
// A libav colour tag as it may be used: damaged input can leave any number in
// these enum fields, which is no value of the enum type; a number outside the
// known tags reads as `unknown`.
template <typename Tag>
Tag knownTag(const Tag& field, Tag count, Tag unknown) {
    static_assert(sizeof(Tag) == sizeof(int), "libav's colour tags are ints");
    int v;
    std::memcpy(&v, &field, sizeof v);
    return v >= 0 && v < int(count) ? static_cast<Tag>(v) : unknown;
}
AVColorSpace colourSpaceOf(const AVColorSpace& field) { return knownTag(field, AVCOL_SPC_NB, AVCOL_SPC_UNSPECIFIED); }
AVColorRange colourRangeOf(const AVColorRange& field) { return knownTag(field, AVCOL_RANGE_NB, AVCOL_RANGE_UNSPECIFIED); }

class Scaler {
public:
    ~Scaler() { sws_freeContext(context_); }
    void convert(const AVFrame* from, AVFrame* to, const std::string& what) {
        const int key[] = {from->width, from->height, from->format, colourSpaceOf(from->colorspace),
                           colourRangeOf(from->color_range)};
        if (!context_ || !std::equal(std::begin(key), std::end(key), key_)) {
            sws_freeContext(context_);
            context_ = sws_getContext(from->width, from->height, AVPixelFormat(from->format), to->width, to->height,
                                      AVPixelFormat(to->format), kFlags, nullptr, nullptr, nullptr);
            if (!context_)
                fail(1, what + ": no conversion from " + av_get_pix_fmt_name(AVPixelFormat(from->format)) + " to " +
                            av_get_pix_fmt_name(AVPixelFormat(to->format)));
            // YUV is read and written with the frame's own matrix and range.
            sws_setColorspaceDetails(context_, coefficients(from), colourRangeOf(from->color_range) == AVCOL_RANGE_JPEG,
                                     coefficients(to), colourRangeOf(to->color_range) == AVCOL_RANGE_JPEG, 0,
                                     1 << 16, 1 << 16);
            std::copy(std::begin(key), std::end(key), key_);
        }
        if (sws_scale(context_, from->data, from->linesize, 0, from->height, to->data, to->linesize) != to->height)
            fail(1, what + ": the colour conversion failed");
    }

private:
    // Full chroma resolution both ways. SWS_ACCURATE_RND is left out: its plain C
    // paths cost about a third more time per 1080p frame for a finer rounding of
    // YUV (RGB to RGB conversions are exact either way).
    static constexpr int kFlags = SWS_BICUBIC | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;
    static const int* coefficients(const AVFrame* f) {
        const AVColorSpace space = colourSpaceOf(f->colorspace);
        return sws_getCoefficients(space == AVCOL_SPC_UNSPECIFIED ? SWS_CS_DEFAULT : int(space));
    }
    SwsContext* context_ = nullptr;
    int key_[5] = {};
};
struct Scalers {
    Scaler toEngine, toEncoder;
    SdrConverter hdrToEngine;   // HDR input
};

// "frame 12/300  41.5 fps  0:07 left", redrawn at most four times a second, on a terminal only.
struct ProgressLine {
    bool enabled = ::isatty(STDERR_FILENO) != 0;
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now(), shown{};
    void show(long done, long total, bool last) {
        if (!enabled) return;
        const auto now = std::chrono::steady_clock::now();
        if (!last && now - shown < std::chrono::milliseconds(250)) return;
        shown = now;
        const double seconds = std::chrono::duration<double>(now - start).count();
        const double fps = seconds > 0 ? double(done) / seconds : 0;
        const long left = fps > 0 ? long(double(total - std::min(done, total)) / fps + 0.5) : 0;
        std::fprintf(stderr, "\rframe %ld/%ld  %.1f fps  %ld:%02ld left ", done, total, fps, left / 60, left % 60);
        if (last) std::fputc('\n', stderr);
        std::fflush(stderr);
    }
};

// ---- the job's set-up: everything fixed before the first frame, in this
// order: the output's container and encoder (a wrong name is a usage error),
// the input and its decoder, the memory budget, the frame count, the encoder,
// the output file.

struct Setup {
    explicit Setup(const Job& job);

    const Job& job;
    const AVOutputFormat* format = nullptr;
    const AVCodec* encoder = nullptr;
    Input in;
    int videoStream = -1;
    AVStream* inVideo = nullptr;
    Codec dec;
    int width = 0, height = 0;   // the picture's; the encoder's frames may be padded
    const char* hdrTransfer = nullptr;   // "PQ" or "HLG": the frames are brought to SDR for the engine
    const AVPixFmtDescriptor* decodedLayout = nullptr;
    AVPixelFormat engineLayout = AV_PIX_FMT_NONE;   // BGR24, or BGRA for frames with alpha
    std::uint8_t bytesPerPixel = 3;
    unsigned threads = 1;   // frames rendered at once
    long frames = 0;
    Codec enc;
    std::optional<Temporary> temporary;   // declared before `out`, which is closed first
    Output out;
    AVStream* outVideo = nullptr;
    std::optional<Streams> streams;   // the input's other streams; declared after `out`, closed before it

private:
    void chooseOutput();
    void openDecoder();
    void budgetMemory();
    void openEncoder();
    bool openOutput(bool asTheyAre);
    bool addOtherStreams(bool asTheyAre);
};

Setup::Setup(const Job& j) : job(j) {
    chooseOutput();
    openDecoder();
    budgetMemory();
    frames = countFrames(job.input, videoStream);
    if (frames < 1) fail(2, job.input + ": the video has no frames");
    openEncoder();
    temporary.emplace(job.output);
    if (!openOutput(true)) openOutput(false);
}

void Setup::chooseOutput() {
    format = av_guess_format(nullptr, job.output.c_str(), nullptr);
    if (!format || (format->flags & AVFMT_NOFILE) || format->video_codec == AV_CODEC_ID_NONE)
        fail(2, job.output + ": unknown video file type (use .mkv, .mp4, .mov or another video extension FFmpeg writes)");
    encoder = chooseEncoder(job, format);
    checkControls(encoder, job.encoding);
}

// The input's video stream, its decoder, and the layout its frames render in.
void Setup::openDecoder() {
    in = openInput(job.input);
    const AVCodec* decoder = nullptr;
    videoStream = av_find_best_stream(in.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
    if (videoStream == AVERROR_DECODER_NOT_FOUND) fail(2, job.input + ": FFmpeg here has no decoder for its video");
    if (videoStream < 0) fail(2, job.input + ": no video stream");
    inVideo = in->streams[videoStream];
    dec.reset(avcodec_alloc_context3(decoder));
    if (!dec) throw std::bad_alloc();
    int e = avcodec_parameters_to_context(dec.get(), inVideo->codecpar);
    if (e < 0) fail(2, job.input + ": " + avError(e));
    dec->pkt_timebase = inVideo->time_base;
    dec->thread_count = int(job.threads);   // decoded pictures are the same for every count
    if ((e = avcodec_open2(dec.get(), decoder, nullptr)) < 0) fail(2, job.input + ": " + avError(e));
    width = dec->width, height = dec->height;
    if (width < 1 || height < 1 || width > 65535 || height > 65535)
        fail(2, job.input + ": a video of " + std::to_string(width) + " x " + std::to_string(height) +
                    " pixels (1 to 65535 a side serve)");
    decodedLayout = av_pix_fmt_desc_get(dec->pix_fmt);
    if (!decodedLayout) fail(2, job.input + ": the video's pixel format is unknown");
    // Frames with alpha render as 32-bit pictures (alpha is the effect's mask), others as 24-bit.
    const bool alpha = (decodedLayout->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
    engineLayout = alpha ? AV_PIX_FMT_BGRA : AV_PIX_FMT_BGR24;
    bytesPerPixel = alpha ? 4 : 3;
}

// Each frame in flight holds a decoded, a rendered and an encoded picture
// and the render's working picture; frames decoding and encoding beside
// the renders make two more. Fewer renders run at once when the memory
// limit holds fewer; a frame too large for one is refused.
void Setup::budgetMemory() {
    const std::string frameSize = std::to_string(width) + " \u00d7 " + std::to_string(height);
    if (std::uint64_t(width) * std::uint64_t(height) > job.limits.maxPixels)
        fail(2, job.input + ": picture too large (" + frameSize + ", limit " + std::to_string(job.limits.maxPixels) +
                    " pixels)");
    const std::uint64_t perFrame = 4 * std::uint64_t(width) * std::uint64_t(height) * bytesPerPixel;
    threads = job.threads ? job.threads : hostops::availableThreads();
    while (threads > 1 && (threads + 2ull) * perFrame > job.limits.maxMemory) --threads;
    if ((threads + 2ull) * perFrame > job.limits.maxMemory)
        fail(2, job.input + ": picture too large (" + frameSize + ", limit " + pictures::sizeText(job.limits.maxMemory) +
                    " of memory; it needs " + pictures::sizeText((threads + 2ull) * perFrame) + ")");
}

// The encoder keeps the input's time base and frame rate.
void Setup::openEncoder() {
    enc.reset(avcodec_alloc_context3(encoder));
    if (!enc) throw std::bad_alloc();
    enc->pix_fmt = encoderPixelFormat(encoder, engineLayout, job.encoding);
    // Subsampled chroma takes whole samples: an odd side is padded by one pixel.
    enc->width = width;
    enc->height = height;
    codedSize(enc->pix_fmt, enc->width, enc->height);
    enc->time_base = inVideo->time_base;
    enc->framerate = av_guess_frame_rate(in.get(), inVideo, nullptr);
    enc->sample_aspect_ratio = av_guess_sample_aspect_ratio(in.get(), inVideo, nullptr);
    setColourTags(enc.get(), inVideo->codecpar, !(decodedLayout->flags & AV_PIX_FMT_FLAG_RGB));
    hdrTransfer = hdrTransferOf(inVideo->codecpar);
    if (hdrTransfer)
        std::fprintf(stderr, "flairize: note: %s: HDR (%s) input written as 8-bit SDR, BT.709\n", job.input.c_str(),
                     hdrTransfer);
    if (format->flags & AVFMT_GLOBALHEADER) enc->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    // The encoder's own threads are left to FFmpeg, so --threads never changes the bytes it writes.
    openEncoderWith(enc.get(), encoder, job.encoding, job.output);
}

// The output: the video, then the input's other streams, with the
// container's and the streams' metadata. False when the muxer refuses its
// header with streams copied as they are: the caller tries again with the
// audio transcoded and nothing else beside the video.
bool Setup::openOutput(bool asTheyAre) {
    streams.reset();
    out.reset();
    AVFormatContext* raw = nullptr;
    int r = avformat_alloc_output_context2(&raw, format, nullptr, job.output.c_str());
    if (r < 0) fail(2, job.output + ": " + avError(r));
    out.reset(raw);
    keepContainerMetadata(in.get(), out.get());
    outVideo = avformat_new_stream(out.get(), nullptr);
    if (!outVideo || avcodec_parameters_from_context(outVideo->codecpar, enc.get()) < 0) throw std::bad_alloc();
    outVideo->time_base = enc->time_base;
    outVideo->avg_frame_rate = enc->framerate;
    outVideo->sample_aspect_ratio = enc->sample_aspect_ratio;
    keepVideoMetadata(inVideo, outVideo);
    const bool copies = addOtherStreams(asTheyAre);
    if ((r = avio_open(&out->pb, temporary->path().c_str(), AVIO_FLAG_WRITE)) < 0)
        fail(2, job.output + ": " + avError(r));
    if ((r = avformat_write_header(out.get(), nullptr)) >= 0) return true;
    if (!copies) fail(2, job.output + ": " + avError(r));
    std::fprintf(stderr,
                 "flairize: %s: the %s container refuses the streams as they are (%s); the audio is transcoded and "
                 "the other streams are left out\n",
                 job.output.c_str(), format->name, avError(r).c_str());
    return false;
}

// Output streams for the input's other streams: as the container takes them
// (asTheyAre), else only the audio, transcoded. True when any is copied.
bool Setup::addOtherStreams(bool asTheyAre) {
    streams.emplace(in.get(), videoStream, out.get(),
                    asTheyAre ? Streams::Plan::AsTheyAre : Streams::Plan::AudioTranscodedOnly, job.output);
    return streams->copiesAny();
}

// ---- the pipeline: decoding (in order), rendering (several frames at once,
// one thread each) and encoding (in order) overlap; the frames never depend
// on the thread count. A frame is decoded, converted to the engine's layout,
// rendered, converted back to the encoder's, encoded and muxed.

class Pipeline {
public:
    explicit Pipeline(Setup& setup);
    void run();
    void finish();   // the encoder's last frames, the trailer, the file in its place

private:
    Item* decode();
    void readPacket(Item& item);
    Item* process(Item* item);
    void convertForEngine(Item& item, Scaler& scaler, const std::string& where);
    void render(Item& item, const std::string& where);
    void convertForEncoder(Item& item, Scaler& scaler, const std::string& where);
    void encode(Item* item);
    void writeAudio(Item& item);
    void drainEncoder();
    void mux(AVPacket* packet);
    flairize::Settings settingsFor(long i) const;

    Setup& setup_;
    const Job& job_;
    const flairize::HostServices host_ = hostops::threadedServices(1);
    const std::size_t tokens_;   // a frame decoding and one encoding beside the renders
    std::vector<std::unique_ptr<Item>> items_;
    tbb::enumerable_thread_specific<Scalers> scalers_;
    Packet packet_ = newPacket();          // read from the input
    Packet encodedPacket_ = newPacket();   // from the encoder
    bool inputEnded_ = false, decoderEnded_ = false;
    long decodedFrames_ = 0, next_ = 0, encodedFrames_ = 0;
    std::int64_t lastPts_ = AV_NOPTS_VALUE;
    ProgressLine progress_;
};

Pipeline::Pipeline(Setup& setup) : setup_(setup), job_(setup.job), tokens_(std::size_t(setup.threads) + 2) {
    for (std::size_t k = 0; k < tokens_; ++k) {
        items_.push_back(std::make_unique<Item>());
        allocate(items_.back()->source.get(), setup_.engineLayout, setup_.width, setup_.height);
        allocate(items_.back()->rendered.get(), setup_.engineLayout, setup_.width, setup_.height);
        allocate(items_.back()->encoded.get(), setup_.enc->pix_fmt, setup_.enc->width, setup_.enc->height);
        items_.back()->encoded->colorspace = setup_.enc->colorspace;
        items_.back()->encoded->color_range = setup_.enc->color_range;
    }
}

void Pipeline::run() {
    hostops::runPipeline(
        setup_.threads, tokens_, [this]() -> void* { return decode(); },
        [this](void* item) -> void* { return process(static_cast<Item*>(item)); },
        [this](void* item) { encode(static_cast<Item*>(item)); });
}

// The next frame with the audio read before it; after the last frame, the
// audio read after it, or null.
Item* Pipeline::decode() {
    Item& item = *items_[std::size_t(next_++ % long(tokens_))];
    item.index = -1;
    item.audio.clear();
    av_frame_unref(item.decoded.get());
    while (!decoderEnded_) {
        const int r = avcodec_receive_frame(setup_.dec.get(), item.decoded.get());
        if (r >= 0) {
            item.index = decodedFrames_++;
            return &item;
        }
        if (r == AVERROR_EOF) {
            decoderEnded_ = true;
            break;
        }
        if (r != AVERROR(EAGAIN))
            fail(2, job_.input + ": damaged video near frame " + std::to_string(decodedFrames_) + ": " + avError(r));
        readPacket(item);
    }
    return item.audio.empty() ? nullptr : &item;
}

// One packet: video to the decoder, the other streams' kept with the item, the rest dropped.
void Pipeline::readPacket(Item& item) {
    if (inputEnded_) fail(2, job_.input + ": the decoder stopped early");
    const int got = av_read_frame(setup_.in.get(), packet_.get());
    if (got == AVERROR_EOF) {
        inputEnded_ = true;
        avcodec_send_packet(setup_.dec.get(), nullptr);   // drain the frames the decoder still holds
        return;
    }
    if (got < 0) fail(2, job_.input + ": " + avError(got));
    const int stream = packet_->stream_index;
    if (stream == setup_.videoStream) {
        const int sent = avcodec_send_packet(setup_.dec.get(), packet_.get());
        av_packet_unref(packet_.get());
        if (sent < 0)   // never EAGAIN: the decoder's frames were all taken first
            fail(2, job_.input + ": damaged video near frame " + std::to_string(decodedFrames_) + ": " + avError(sent));
    } else if (setup_.streams->wants(stream)) {
        Packet copy = newPacket();
        av_packet_move_ref(copy.get(), packet_.get());
        item.audio.push_back(std::move(copy));
    } else {
        av_packet_unref(packet_.get());
    }
}

// The stage that runs on several threads at once.
Item* Pipeline::process(Item* item) {
    if (item->index < 0) return item;
    const std::string where = job_.input + ": frame " + std::to_string(item->index);
    Scalers& mine = scalers_.local();
    convertForEngine(*item, mine.toEngine, where);
    render(*item, where);
    if (setup_.enc->pix_fmt != setup_.engineLayout) convertForEncoder(*item, mine.toEncoder, where);
    item->pts = item->decoded->best_effort_timestamp;
    return item;
}

// The decoded frame into the engine's layout.
void Pipeline::convertForEngine(Item& item, Scaler& scaler, const std::string& where) {
    const AVFrame* d = item.decoded.get();
    if (d->width != setup_.width || d->height != setup_.height)
        fail(2, where + " is " + std::to_string(d->width) + " x " + std::to_string(d->height) +
                    ", the video's first frames " + std::to_string(setup_.width) + " x " +
                    std::to_string(setup_.height));
    if (!setup_.hdrTransfer) {
        scaler.convert(d, item.source.get(), where);
    } else if (!scalers_.local().hdrToEngine.convert(d, item.source.get())) {
        fail(1, where + ": no conversion from " + av_get_pix_fmt_name(AVPixelFormat(d->format)) + " to SDR");
    }
}

// Frame i renders at the progress the host gives frame i of a sequence of N.
flairize::Settings Pipeline::settingsFor(long i) const {
    SettingsRecord r = job_.record;
    // A video that decodes more frames than counted ends at its last.
    const long last = std::min(i, setup_.frames - 1);
    r.progress = flairize::frameProgress(flairize::sequencePosition(std::uint64_t(last), std::uint64_t(setup_.frames)),
                                         job_.speed, r.direction);
    return flairize::settingsOf(r);
}

void Pipeline::render(Item& item, const std::string& where) {
    if (av_frame_make_writable(item.rendered.get()) < 0) throw std::bad_alloc();   // it may go to the encoder itself
    const flairize::Result r = flairize::renderInto(host_, viewOf(item.source.get(), setup_.bytesPerPixel),
                                                    settingsFor(item.index), flairize::Mix::Always,
                                                    viewOf(item.rendered.get(), setup_.bytesPerPixel));
    if (r.status != flairize::Status::Ok)
        fail(1, where + ": " + plat::loadString(r.messageId ? r.messageId : ids::kNoMemory));
}

// The rendered frame into the encoder's pixel format, where it differs.
void Pipeline::convertForEncoder(Item& item, Scaler& scaler, const std::string& where) {
    // The encoder may still hold the last frame written into this item.
    AVFrame* encoded = item.encoded.get();
    if (av_frame_make_writable(encoded) < 0) throw std::bad_alloc();
    // The picture into the top left of a frame padded to whole chroma samples, then its edges repeated.
    AVFrame picture = *encoded;
    picture.width = setup_.width;
    picture.height = setup_.height;
    scaler.convert(item.rendered.get(), &picture, where);
    padEdges(encoded, setup_.width, setup_.height);
}

// In order: the audio read before the frame, then the frame.
void Pipeline::encode(Item* item) {
    writeAudio(*item);
    if (item->index < 0) return;
    AVFrame* f = setup_.enc->pix_fmt != setup_.engineLayout ? item->encoded.get() : item->rendered.get();
    // Timestamps as decoded; a missing or repeated one follows the one before.
    std::int64_t pts = item->pts;
    if (pts == AV_NOPTS_VALUE || (lastPts_ != AV_NOPTS_VALUE && pts <= lastPts_))
        pts = lastPts_ == AV_NOPTS_VALUE ? 0 : lastPts_ + 1;
    lastPts_ = f->pts = pts;
    f->pict_type = AV_PICTURE_TYPE_NONE;
    const int sent = avcodec_send_frame(setup_.enc.get(), f);
    if (sent < 0) fail(1, job_.output + ": the encoder failed: " + avError(sent));
    drainEncoder();
    progress_.show(++encodedFrames_, setup_.frames, false);
}

void Pipeline::writeAudio(Item& item) {
    for (Packet& a : item.audio) setup_.streams->write(a.get(), [this](AVPacket* p) { mux(p); });
    item.audio.clear();
}

void Pipeline::drainEncoder() {
    AVPacket* p = encodedPacket_.get();
    int r;
    while ((r = avcodec_receive_packet(setup_.enc.get(), p)) >= 0) {
        av_packet_rescale_ts(p, setup_.enc->time_base, setup_.outVideo->time_base);
        p->stream_index = setup_.outVideo->index;
        mux(p);
    }
    if (r != AVERROR(EAGAIN) && r != AVERROR_EOF) fail(1, job_.output + ": the encoder failed: " + avError(r));
}

void Pipeline::mux(AVPacket* p) {
    const int w = av_interleaved_write_frame(setup_.out.get(), p);
    if (w < 0) fail(2, job_.output + ": " + avError(w));
}

void Pipeline::finish() {
    int e;
    if ((e = avcodec_send_frame(setup_.enc.get(), nullptr)) < 0)
        fail(1, job_.output + ": the encoder failed: " + avError(e));
    drainEncoder();
    setup_.streams->finish([this](AVPacket* p) { mux(p); });
    if ((e = av_write_trailer(setup_.out.get())) < 0) fail(2, job_.output + ": " + avError(e));
    if ((e = avio_closep(&setup_.out->pb)) < 0) fail(2, job_.output + ": " + avError(e));
    if (encodedFrames_ == 0) fail(2, job_.input + ": no frame could be decoded");
    setup_.temporary->keepAs(job_.output);
    progress_.show(encodedFrames_, setup_.frames, true);
    if (encodedFrames_ != setup_.frames)
        std::fprintf(stderr, "flairize: %s: %ld frames were counted but %ld decoded\n", job_.input.c_str(),
                     setup_.frames, encodedFrames_);
}

Outcome run(const Job& job) {
    Setup setup(job);
    Pipeline pipeline(setup);
    pipeline.run();
    pipeline.finish();
    return {};
}

}  // namespace

Outcome convert(const Job& job) {
    av_log_set_level(AV_LOG_FATAL);   // problems reach the user as the one line the outcome carries
    try {
        return run(job);
    } catch (const Error& e) {
        return {e.status, e.message};
    } catch (const std::bad_alloc&) {
        return {1, job.input + ": " + plat::loadString(ids::kNoMemory)};
    } catch (const std::exception& e) {
        return {1, job.input + ": " + e.what()};
    } catch (...) {
        return {1, job.input + ": the video could not be rendered"};
    }
}

}  // namespace video

#endif
