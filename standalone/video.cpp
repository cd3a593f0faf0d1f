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
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <tbb/enumerable_thread_specific.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <iterator>
#include <mutex>
#include <cctype>
#include <climits>
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

extern "C" {
#include <libavutil/cpu.h>
}

#include "engine/flairize.h"
#include "platform/strings.h"
#include "hostops/threads.h"
#include "resources/string_ids.h"
#include "standalone/output_file.h"
#include "standalone/video_colour.h"
#include "standalone/video_encoder.h"
#include "standalone/video_streams.h"
#include "standalone/video_support.h"
#include "standalone/messages.h"

namespace video {
namespace {

bool endsWith(const std::string& s, const char* tail) {
    const std::size_t n = std::strlen(tail);
    if (s.size() < n) return false;
    for (std::size_t k = 0; k < n; ++k)
        if (std::tolower(static_cast<unsigned char>(s[s.size() - n + k])) != tail[k]) return false;
    return true;
}

// Errors the video decoder logs. Some damage (an FFV1 slice whose checksum
// fails, say) is concealed, not returned: the message is its only sign.
std::mutex gDecoderErrorLock;
std::string gDecoderError;   // the first since it was last taken
std::atomic<bool> gDecoderErred{false};

extern "C" void keepDecoderErrors(void* object, int level, const char* format, va_list args) {
    if (level <= AV_LOG_FATAL) av_log_default_callback(object, level, format, args);
    const AVClass* kind = object ? *static_cast<const AVClass* const*>(object) : nullptr;
    if (level > AV_LOG_ERROR || !kind || std::strcmp(kind->class_name, "AVCodecContext") != 0) return;
    const auto* codec = static_cast<const AVCodecContext*>(object);
    if (!codec->codec || !av_codec_is_decoder(codec->codec) || codec->codec_type != AVMEDIA_TYPE_VIDEO) return;
    char line[200];
    std::vsnprintf(line, sizeof line, format, args);
    std::string text = line;
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ' || text.back() == '!')) text.pop_back();
    std::lock_guard<std::mutex> hold(gDecoderErrorLock);
    if (!gDecoderErred.exchange(true)) gDecoderError = text;
}

// The decoder's error since the last call, or "".
std::string takeDecoderError() {
    if (!gDecoderErred.load()) return {};
    std::lock_guard<std::mutex> hold(gDecoderErrorLock);
    gDecoderErred = false;
    return gDecoderError.empty() ? "the decoder found errors in it" : gDecoderError;
}

// ---- owners of FFmpeg's objects

// Our own byte streams (standard input, the output file's descriptor) are
// freed here; FFmpeg leaves them to the caller.
void freeStream(AVIOContext* pb) {
    if (!pb) return;
    av_freep(&pb->buffer);
    avio_context_free(&pb);
}
struct InputCloser {
    void operator()(AVFormatContext* c) const {
        AVIOContext* own = (c->flags & AVFMT_FLAG_CUSTOM_IO) ? c->pb : nullptr;
        avformat_close_input(&c);
        freeStream(own);
    }
};
struct OutputCloser {
    void operator()(AVFormatContext* c) const {
        freeStream(c->pb);   // unflushed: a failed output's last bytes are never written
        c->pb = nullptr;
        avformat_free_context(c);
    }
};
using Input = std::unique_ptr<AVFormatContext, InputCloser>;
using Output = std::unique_ptr<AVFormatContext, OutputCloser>;

// ---- byte streams on file descriptors: standard input, the output file

}  // namespace

static int readDescriptor(void* opaque, std::uint8_t* buffer, int size) {
    const int fd = int(reinterpret_cast<std::intptr_t>(opaque));
    for (;;) {
        const ssize_t n = ::read(fd, buffer, std::size_t(size));
        if (n > 0) return int(n);
        if (n == 0) return AVERROR_EOF;
        if (errno != EINTR) return AVERROR(errno);
    }
}

static int writeDescriptor(void* opaque, std::uint8_t* buffer, int size) {
    const int fd = int(reinterpret_cast<std::intptr_t>(opaque));
    for (int left = size; left > 0;) {
        const ssize_t n = ::write(fd, buffer, std::size_t(left));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return AVERROR(n < 0 ? errno : EIO);
        buffer += n, left -= int(n);
    }
    return size;
}

static std::int64_t seekDescriptor(void* opaque, std::int64_t offset, int whence) {
    const int fd = int(reinterpret_cast<std::intptr_t>(opaque));
    if (whence & AVSEEK_SIZE) {
        struct stat st {};
        return ::fstat(fd, &st) == 0 ? std::int64_t(st.st_size) : AVERROR(errno);
    }
    const off_t at = ::lseek(fd, off_t(offset), whence & ~AVSEEK_FORCE);
    return at < 0 ? AVERROR(errno) : std::int64_t(at);
}

AVIOContext* descriptorStream(int fd, bool write, bool seekable) {
    constexpr int kBufferSize = 1 << 16;
    auto* buffer = static_cast<std::uint8_t*>(av_malloc(kBufferSize));
    if (!buffer) throw std::bad_alloc();
    AVIOContext* pb = avio_alloc_context(buffer, kBufferSize, write ? 1 : 0, reinterpret_cast<void*>(std::intptr_t(fd)),
                                         write ? nullptr : readDescriptor, write ? writeDescriptor : nullptr,
                                         seekable ? seekDescriptor : nullptr);
    if (!pb) {
        av_free(buffer);
        throw std::bad_alloc();
    }
    if (!seekable) pb->seekable = 0;
    return pb;
}

namespace {

// ---- the input

// Whether a file is an animated WebP: RIFF, WEBP, a VP8X chunk with the animation flag.
bool animatedWebp(const std::string& path) {
    std::uint8_t head[21] = {};
    FILE* f = path == "-" ? nullptr : std::fopen(path.c_str(), "rb");
    if (!f) return false;
    const bool whole = std::fread(head, 1, sizeof head, f) == sizeof head;
    std::fclose(f);
    return whole && !std::memcmp(head, "RIFF", 4) && !std::memcmp(head + 8, "WEBPVP8X", 8) && (head[20] & 0x02);
}

// A frame of width x height is refused when it is over the pixel limit or
// when even one frame at a time would need more memory than the limit.
void refuseOversized(const Job& job, std::uint64_t width, std::uint64_t height, std::uint64_t need) {
    const std::string frameSize = std::to_string(width) + " \u00d7 " + std::to_string(height);
    if (width * height > job.limits.maxPixels)
        fail(2, job.input + ": picture too large (" + frameSize + ", limit " + std::to_string(job.limits.maxPixels) +
                    " pixels)");
    if (need > job.limits.maxMemory)
        fail(2, job.input + ": picture too large (" + frameSize + ", limit " + pictures::sizeText(job.limits.maxMemory) +
                    " of memory; it needs " + pictures::sizeText(need) + ")");
}

// The least a frame of width x height needs: the decoded (4:2:0 at least),
// source, rendered, working and encoded pictures of one frame in flight.
std::uint64_t leastNeed(std::uint64_t width, std::uint64_t height) { return width * height * (3 + 3 * 3 + 3) / 2; }

// The input's container opened and its header read ("-": standard input).
// Before FFmpeg looks into the streams, whose frames it decodes to learn
// their layout, a video whose header gives a size over the limits is refused;
// the frames it decodes there are held to the pixel limit too.
Input openInput(const Job& job, bool probe) {
    const std::string& path = job.input;
    AVFormatContext* raw = avformat_alloc_context();
    if (!raw) throw std::bad_alloc();
    if (path == "-") {
        raw->pb = descriptorStream(STDIN_FILENO, false, false);
        raw->flags |= AVFMT_FLAG_CUSTOM_IO;
    }
    AVIOContext* own = raw->pb;
    int e = avformat_open_input(&raw, path == "-" ? "pipe:" : path.c_str(), nullptr, nullptr);
    if (e < 0) {   // the context is freed, our stream is not
        freeStream(own);
        fail(2, path + ": " + avError(e));
    }
    Input in(raw);
    if (!probe) return in;
    bool anyFits = false;
    const AVCodecParameters* over = nullptr;
    for (unsigned s = 0; s < in->nb_streams; ++s) {
        const AVStream* v = in->streams[s];
        if (v->codecpar->codec_type != AVMEDIA_TYPE_VIDEO || (v->disposition & AV_DISPOSITION_ATTACHED_PIC)) continue;
        const std::uint64_t w = std::uint64_t(std::max(0, v->codecpar->width)),
                            h = std::uint64_t(std::max(0, v->codecpar->height));
        if (w * h > job.limits.maxPixels || leastNeed(w, h) > job.limits.maxMemory)
            over = v->codecpar;
        else
            anyFits = true;
    }
    if (over && !anyFits)
        refuseOversized(job, std::uint64_t(over->width), std::uint64_t(over->height),
                        leastNeed(std::uint64_t(over->width), std::uint64_t(over->height)));
    std::vector<AVDictionary*> options(in->nb_streams, nullptr);
    for (AVDictionary*& o : options) {
        av_dict_set_int(&o, "max_pixels", std::int64_t(std::min<std::uint64_t>(job.limits.maxPixels, INT64_MAX)), 0);
        av_dict_set(&o, "threads", "1", 0);
    }
    e = avformat_find_stream_info(in.get(), options.empty() ? nullptr : options.data());
    for (AVDictionary*& o : options) av_dict_free(&o);
    if (e < 0) fail(2, path + ": " + avError(e));
    return in;
}

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
// Only the packets within the part kept count: [from, to) as timestamps.
long countFrames(const Job& job, int stream, std::int64_t from, std::int64_t to) {
    Input again = openInput(job, false);
    if (unsigned(stream) >= again->nb_streams) fail(2, job.input + ": the streams differ between two readings");
    Packet packet = newPacket();
    long count = 0;
    int e;
    while ((e = av_read_frame(again.get(), packet.get())) >= 0) {
        const std::int64_t t = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
        const bool kept = t == AV_NOPTS_VALUE || (t >= from && t < to);
        if (packet->stream_index == stream && !(packet->flags & AV_PKT_FLAG_DISCARD) && kept) ++count;
        av_packet_unref(packet.get());
    }
    // Damage stops the count where it stops the reading; the frames are told apart as they decode.
    if (e != AVERROR_EOF && e != AVERROR_INVALIDDATA) fail(2, job.input + ": " + avError(e));
    return count;
}

// The presentation times of the video's frames, in order: its packets'
// timestamps, read as countFrames reads them, without decoding. Parts of one
// clip split at these; with --count-file they are read from that file where
// it exists, else written there (under a temporary name, then renamed) for
// the other parts, so every part splits the same list.
std::vector<std::int64_t> frameTimes(const Job& job, int stream, AVRational base) {
    struct stat st {};
    if (::stat(job.input.c_str(), &st) != 0) fail(2, job.input + ": " + std::strerror(errno));
    const std::string header = "flairize frame times 1\ninput-size " + std::to_string(st.st_size) + "\ntime-base " +
                               std::to_string(base.num) + "/" + std::to_string(base.den) + "\n";
    const std::string& file = job.countFile;
    std::vector<std::int64_t> times;
    if (!file.empty()) {
        if (FILE* f = std::fopen(file.c_str(), "r")) {
            std::string text;
            char buffer[1 << 16];
            for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;) text.append(buffer, n);
            std::fclose(f);
            if (text.compare(0, header.size(), header) != 0)
                fail(2, file + ": the frame times of another input (or not a count file); remove it to count again");
            const char* at = text.c_str() + header.size();
            long count = -1;
            if (std::sscanf(at, "frames %ld", &count) != 1 || count < 1) fail(2, file + ": damaged; remove it to count again");
            at = std::strchr(at, '\n');
            for (long k = 0; k < count && at; ++k) {
                char* end = nullptr;
                times.push_back(std::strtoll(at + 1, &end, 10));
                at = end && *end == '\n' ? end : nullptr;
            }
            if (long(times.size()) != count || !at || at[1]) fail(2, file + ": damaged; remove it to count again");
            return times;
        }
        if (errno != ENOENT) fail(2, file + ": " + std::strerror(errno));
    }
    Input again = openInput(job, false);
    if (unsigned(stream) >= again->nb_streams) fail(2, job.input + ": the streams differ between two readings");
    Packet packet = newPacket();
    int e;
    while ((e = av_read_frame(again.get(), packet.get())) >= 0) {
        const std::int64_t t = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
        const bool counts = packet->stream_index == stream && !(packet->flags & AV_PKT_FLAG_DISCARD);
        av_packet_unref(packet.get());
        if (!counts) continue;
        if (t == AV_NOPTS_VALUE) fail(2, job.input + ": --part: the video's frames have no timestamps to split at");
        times.push_back(t);
    }
    if (e != AVERROR_EOF) fail(2, job.input + ": --part needs a clip that reads to its end: " + avError(e));
    if (times.empty()) fail(2, job.input + ": the video has no frames");
    std::sort(times.begin(), times.end());
    if (std::adjacent_find(times.begin(), times.end()) != times.end())
        fail(2, job.input + ": --part: two frames share a timestamp, so the clip cannot be split at frames");
    if (!file.empty()) {
        std::string text = header + "frames " + std::to_string(times.size()) + "\n";
        for (std::int64_t t : times) text += std::to_string(t) + "\n";
        std::string temp = file + ".XXXXXX";
        const int fd = ::mkstemp(temp.data());
        bool written = fd >= 0;
        if (written) {
            written = ::write(fd, text.data(), text.size()) == ssize_t(text.size());
            written = ::close(fd) == 0 && written;
            written = written && ::rename(temp.c_str(), file.c_str()) == 0;
            if (!written) ::unlink(temp.c_str());
        }
        if (!written) fail(2, file + ": " + std::strerror(errno));
    }
    return times;
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
    // `threads` > 1: the conversion runs in bands of rows on that many of
    // swscale's own threads.
    explicit Scaler(unsigned threads = 1) : threads_(threads) {}
    Scaler(const Scaler&) = delete;
    Scaler& operator=(const Scaler&) = delete;
    ~Scaler() { sws_freeContext(context_); }
    void convert(const AVFrame* from, AVFrame* to, const std::string& what) {
        const int key[] = {from->width, from->height, from->format, colourSpaceOf(from->colorspace),
                           colourRangeOf(from->color_range)};
        if (!context_ || !std::equal(std::begin(key), std::end(key), key_)) {
            sws_freeContext(context_);
            context_ = makeContext(from, to);
            if (!context_)
                fail(1, what + ": no conversion from " + av_get_pix_fmt_name(AVPixelFormat(from->format)) + " to " +
                            av_get_pix_fmt_name(AVPixelFormat(to->format)));
            // YUV is read and written with the frame's own matrix and range.
            sws_setColorspaceDetails(context_, coefficients(from), colourRangeOf(from->color_range) == AVCOL_RANGE_JPEG,
                                     coefficients(to), colourRangeOf(to->color_range) == AVCOL_RANGE_JPEG, 0,
                                     1 << 16, 1 << 16);
            std::copy(std::begin(key), std::end(key), key_);
        }
        const bool done = threads_ > 1
                              ? sws_scale_frame(context_, to, from) >= 0
                              : sws_scale(context_, from->data, from->linesize, 0, from->height, to->data,
                                          to->linesize) == to->height;
        if (!done) fail(1, what + ": the colour conversion failed");
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
    SwsContext* makeContext(const AVFrame* from, const AVFrame* to) const {
        if (threads_ <= 1)
            return sws_getContext(from->width, from->height, AVPixelFormat(from->format), to->width, to->height,
                                  AVPixelFormat(to->format), kFlags, nullptr, nullptr, nullptr);
        SwsContext* c = sws_alloc_context();
        if (!c) throw std::bad_alloc();
        if (av_opt_set_int(c, "srcw", from->width, 0) < 0 || av_opt_set_int(c, "srch", from->height, 0) < 0 ||
            av_opt_set_pixel_fmt(c, "src_format", AVPixelFormat(from->format), 0) < 0 ||
            av_opt_set_int(c, "dstw", to->width, 0) < 0 || av_opt_set_int(c, "dsth", to->height, 0) < 0 ||
            av_opt_set_pixel_fmt(c, "dst_format", AVPixelFormat(to->format), 0) < 0 ||
            av_opt_set_int(c, "sws_flags", kFlags, 0) < 0 || av_opt_set_int(c, "threads", threads_, 0) < 0 ||
            sws_init_context(c, nullptr, nullptr) < 0) {
            sws_freeContext(c);
            return nullptr;
        }
        return c;
    }
    const unsigned threads_;
    SwsContext* context_ = nullptr;
    int key_[5] = {};
};
// swscale's bands give the rows one pass gives into the engine's layout, not
// back into subsampled YUV (rows at the band edges differ), so the conversion
// for the encoder stays whole.
struct Scalers {
    explicit Scalers(unsigned threads) : toEngine(threads), toEncoder(1) {}
    Scaler toEngine, toEncoder;
    SdrConverter hdrToEngine;   // HDR input
};

// "frame 12/300  41.5 fps  0:07 left", redrawn at most four times a second, on a terminal only.
struct ProgressLine {
    bool enabled = ::isatty(STDERR_FILENO) != 0 && !notices::quiet;
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now(), shown{};
    void show(long done, long total, bool last) {
        if (!enabled) return;
        const auto now = std::chrono::steady_clock::now();
        if (!last && now - shown < std::chrono::milliseconds(250)) return;
        shown = now;
        const double seconds = std::chrono::duration<double>(now - start).count();
        const double fps = seconds > 0 ? double(done) / seconds : 0;
        const long left = fps > 0 ? long(double(total - std::min(done, total)) / fps + 0.5) : 0;
        if (total > 0)
            std::fprintf(stderr, "\rframe %ld/%ld  %.1f fps  %ld:%02ld left ", done, total, fps, left / 60, left % 60);
        else
            std::fprintf(stderr, "\rframe %ld  %.1f fps ", done, fps);
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
    unsigned frameThreads = 1;   // threads each frame converts and renders on: --threads over the frames at once
    std::size_t tokens = 3; // frames in flight: those rendering, one decoding and one encoding beside them
    long frames = 0;        // the count the timing uses; 0 with a fixed progress
    long firstFrame = 0, endFrame = 0;   // the frames written: [first, end) of the clip's (all but with --part)
    bool counted = false;   // the frames were counted, not given
    std::int64_t from = 0, to = INT64_MAX;   // the part kept, in the video stream's time base
    Codec enc;
    AVDictionary* encoderOptions = nullptr;   // caps on the encoder's frames in flight, when memory is short
    bool codecsCapped = false;                // the decoder and encoder run one thread each to save memory
    output::File file;   // declared before `out`, which is closed first
    Output out;
    AVStream* outVideo = nullptr;
    std::optional<Streams> streams;   // the input's other streams; declared after `out`, closed before it

    ~Setup() { av_dict_free(&encoderOptions); }

private:
    void chooseOutput();
    void openDecoder();
    void chooseRange();
    void choosePart();
    Codec makeDecoder(unsigned codecThreads);
    const AVCodec* decoder = nullptr;
    void budgetMemory();
    void openEncoder();
    bool openOutput(bool asTheyAre);
    AVIOContext* outputStream();
    bool addOtherStreams(bool asTheyAre);
};

Setup::Setup(const Job& j) : job(j) {
    chooseOutput();
    if (job.input == "-" && job.frames < 1 && job.progress < 0)
        fail(2, "-: standard input cannot be read twice to count its frames; give --frames N, or --progress P for "
                "one progress throughout");
    openDecoder();
    if (job.parts)
        choosePart();
    else
        chooseRange();
    budgetMemory();
    if (job.parts) {
    } else if (job.frames > 0)
        frames = job.frames;
    else if (job.progress < 0) {
        frames = countFrames(job, videoStream, from, to);
        counted = true;
        if (frames < 1) fail(2, job.input + (job.from || job.to >= 0 ? ": no frames in the part chosen" : ": the video has no frames"));
    }
    if (!job.parts) endFrame = frames;
    openEncoder();
    std::string error;
    if (!file.open(job.output, error)) fail(2, job.output + ": " + error);
    if (!openOutput(true)) openOutput(false);
}

// The container: --format, else OUT's extension; Matroska on standard output.
// OUT is checked here, before the input is read.
void Setup::chooseOutput() {
    if (!job.format.empty() || job.output == "-") {
        const std::string name = job.format == "ts" ? "mpegts" : "matroska";
        if (!job.format.empty() && job.format != "ts" && job.format != "mkv")
            fail(2, "--format: expected mkv or ts, got \"" + job.format + "\"");
        format = av_guess_format(name.c_str(), nullptr, nullptr);
        if (!format) fail(2, job.output + ": FFmpeg here writes no " + name);
    } else {
        format = av_guess_format(nullptr, job.output.c_str(), nullptr);
    }
    if (!format || (format->flags & AVFMT_NOFILE) || format->video_codec == AV_CODEC_ID_NONE)
        fail(2, job.output + ": unknown video file type (use .mkv, .mp4, .mov or another video extension FFmpeg writes)");
    encoder = chooseEncoder(job, format);
    checkControls(encoder, job.encoding);
    std::string error;
    if (!output::check(job.output, error)) fail(2, job.output + ": " + error);
}

// Decoded pictures are the same for every thread count; --threads leaves it alone.
Codec Setup::makeDecoder(unsigned codecThreads) {
    Codec c = newCodec(decoder);
    int e = avcodec_parameters_to_context(c.get(), inVideo->codecpar);
    if (e < 0) fail(2, job.input + ": " + avError(e));
    c->pkt_timebase = inVideo->time_base;
    c->thread_count = int(codecThreads);
    c->max_pixels = std::int64_t(std::min<std::uint64_t>(job.limits.maxPixels, INT64_MAX));
    c->err_recognition |= AV_EF_CRCCHECK;   // damage found where the format has checksums
    if ((e = avcodec_open2(c.get(), decoder, nullptr)) < 0) fail(2, job.input + ": " + avError(e));
    return c;
}

// --from and --to as the video stream's timestamps, counted from its start;
// the input is sought to the key frame before --from where it can be.
void Setup::chooseRange() {
    const std::int64_t start = inVideo->start_time != AV_NOPTS_VALUE ? inVideo->start_time : 0;
    from = job.from > 0 ? start + av_rescale_q(job.from, AV_TIME_BASE_Q, inVideo->time_base) : INT64_MIN;
    to = job.to >= 0 ? start + av_rescale_q(job.to, AV_TIME_BASE_Q, inVideo->time_base) : INT64_MAX;
    if (job.to >= 0 && job.to <= job.from) fail(2, "--to: the end comes before --from's start");
    if (job.from > 0 && job.input != "-") av_seek_frame(in.get(), videoStream, from, AVSEEK_FLAG_BACKWARD);
}

// --part I/N: frames [I x M / N, (I + 1) x M / N) of the clip's M, each at
// the progress of its place in the whole clip. The input is sought to the
// keyframe before the part's first frame; what decodes before it is dropped.
void Setup::choosePart() {
    const std::vector<std::int64_t> times = frameTimes(job, videoStream, inVideo->time_base);
    frames = long(times.size());
    counted = true;
    firstFrame = long(std::int64_t(job.part) * frames / job.parts);
    endFrame = long(std::int64_t(job.part + 1) * frames / job.parts);
    if (firstFrame == endFrame)
        fail(2, "--part " + std::to_string(job.part) + "/" + std::to_string(job.parts) + ": no frames in it (the clip has " +
                    std::to_string(frames) + ")");
    from = times[std::size_t(firstFrame)];
    to = endFrame < frames ? times[std::size_t(endFrame)] : INT64_MAX;
    if (firstFrame > 0 && av_seek_frame(in.get(), videoStream, from, AVSEEK_FLAG_BACKWARD) < 0)
        fail(2, job.input + ": --part: the clip cannot be sought");
}

// The input's video stream, its decoder, and the layout its frames render in.
void Setup::openDecoder() {
    in = openInput(job, true);
    videoStream = av_find_best_stream(in.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
    if (videoStream == AVERROR_DECODER_NOT_FOUND) fail(2, job.input + ": FFmpeg here has no decoder for its video");
    if (videoStream >= 0 && in->streams[videoStream]->codecpar->codec_id == AV_CODEC_ID_WEBP &&
        in->streams[videoStream]->codecpar->width < 1 && animatedWebp(job.input))
        fail(2, job.input + ": an animated WebP, which FFmpeg's libraries here cannot decode (only still WebP pictures)");
    if (videoStream < 0) fail(2, job.input + ": no video stream");
    inVideo = in->streams[videoStream];
    dec = makeDecoder(job.codecThreads);
    width = dec->width, height = dec->height;
    refuseOversized(job, std::uint64_t(std::max(width, 0)), std::uint64_t(std::max(height, 0)),
                    leastNeed(std::uint64_t(std::max(width, 0)), std::uint64_t(std::max(height, 0))));
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

// The memory the job needs. Each frame in flight holds its decoded picture
// (the decoder's, until the frame is done), the source and rendered pictures
// in the engine's layout and the encoder's picture; each render adds its
// working picture and its colour conversions' line buffers. Beside them the
// decoder holds the frames its threads decode and the frames it refers to,
// and the encoder the frames it looks ahead over, reorders and refers to
// (x264: its threads, look-ahead, B-frames and references, each a picture
// and its half-size copies). Over the limit, the codecs' own frames are
// capped first (one thread each, then x264's look-ahead, B-frames and
// references), so that the bytes written never depend on --threads; then
// fewer frames render at once and fewer wait beside them. A job that does
// not fit even so is refused with what it needs.
namespace {
std::uint64_t pictureBytes(AVPixelFormat format, int width, int height) {
    const int bytes = av_image_get_buffer_size(format, width, height, 64);
    return bytes > 0 ? std::uint64_t(bytes) : 4 * std::uint64_t(width) * std::uint64_t(height);
}
}  // namespace

void Setup::budgetMemory() {
    const std::uint64_t pixels = std::uint64_t(width) * std::uint64_t(height);
    const std::uint64_t engine = pixels * bytesPerPixel;
    const std::uint64_t decoded = pictureBytes(dec->pix_fmt, width, height);
    const AVPixelFormat encodedLayout = encoderPixelFormat(encoder, engineLayout, job.encoding);
    int codedWidth = width, codedHeight = height;   // an odd side padded for subsampled chroma
    codedSize(encodedLayout, codedWidth, codedHeight);
    const std::uint64_t encoded = pictureBytes(encodedLayout, codedWidth, codedHeight);
    const std::uint64_t perFrame = decoded + 2 * engine + encoded;
    const std::uint64_t perRender = engine + 2 * 1024 * std::uint64_t(width);
    const unsigned cores = unsigned(std::max(1, av_cpu_count()));

    const AVCodecDescriptor* input = avcodec_descriptor_get(dec->codec_id);
    const bool intraOnly = input && (input->props & AV_CODEC_PROP_INTRA_ONLY);
    const bool decoderFrameThreads = dec->codec->capabilities & AV_CODEC_CAP_FRAME_THREADS;
    const bool x264 = !std::strcmp(encoder->name, "libx264") || !std::strcmp(encoder->name, "libx264rgb");
    const bool encoderFrameThreads = x264 || (encoder->capabilities & AV_CODEC_CAP_FRAME_THREADS);
    auto codecs = [&](int level) {
        const std::uint64_t codecThreads = level ? 1 : job.codecThreads ? job.codecThreads : cores + 1;
        const std::uint64_t decoderFrames =
            (decoderFrameThreads ? codecThreads : 1) + (intraOnly ? 0 : 5 + std::uint64_t(std::max(0, dec->has_b_frames)));
        std::uint64_t encoderBytes;
        if (x264) {   // the default preset's look-ahead 40, 3 B-frames, 3 references; capped by level
            const std::uint64_t x264Threads = level ? 1 : job.codecThreads ? job.codecThreads : cores * 3 / 2;
            const std::uint64_t lookahead = level >= 3 ? 0 : level == 2 ? 10 : 40, bframes = level >= 4 ? 0 : 3,
                                references = level >= 4 ? 1 : 3, sync = level ? 0 : x264Threads + bframes;
            // Frames to encode with their half-size copies; reference frames with their three
            // half-sample interpolations.
            const std::uint64_t toEncode = x264Threads + lookahead + bframes + sync + 1,
                                reconstructed = references + x264Threads + 1;
            encoderBytes = toEncode * (encoded + pixels) + reconstructed * (encoded + 3 * pixels);
        } else {
            // The frames its threads hold, and the packet for the worst case, which FFV1 fills
            // in whole (148 bytes a pixel, at most 2 GiB).
            const std::uint64_t packet = !std::strcmp(encoder->name, "ffv1")
                                             ? std::min<std::uint64_t>(148 * pixels + 16384, INT_MAX)
                                             : 2 * encoded;
            encoderBytes = ((encoderFrameThreads ? codecThreads : 1) + 1) * encoded + packet;
        }
        return decoderFrames * decoded + encoderBytes;
    };
    auto need = [&](int level, std::uint64_t renders, std::uint64_t inFlight) {
        return codecs(level) + inFlight * perFrame + renders * perRender;
    };
    const int levels = x264 ? 5 : 2;
    int level = 0;
    while (level + 1 < levels && need(level, 1, 1) > job.limits.maxMemory) ++level;
    refuseOversized(job, std::uint64_t(width), std::uint64_t(height), need(level, 1, 1));
    const unsigned wanted = job.threads ? job.threads : hostops::availableThreads();
    threads = wanted;
    while (threads > 1 && need(level, threads, threads + 2ull) > job.limits.maxMemory) --threads;
    frameThreads = std::max(1u, wanted / threads);   // bands of one frame need no more frames in memory
    tokens = threads + 2;
    while (tokens > 1 && need(level, threads, tokens) > job.limits.maxMemory) --tokens;
    codecsCapped = level >= 1;
    if (codecsCapped && dec->thread_count != 1) dec = makeDecoder(1);
    if (x264 && level >= 1) {
        std::string caps = "sync-lookahead=0";
        if (level >= 2) caps += std::string(":rc-lookahead=") + (level >= 3 ? "0" : "10");
        if (level >= 4) caps += ":bframes=0:ref=1";
        av_dict_set(&encoderOptions, "x264-params", caps.c_str(), 0);
    }
}

// The encoder keeps the input's time base and frame rate.
void Setup::openEncoder() {
    enc = newCodec(encoder);
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
        notices::say("note: %s: HDR (%s) input written as 8-bit SDR, BT.709\n", job.input.c_str(),
                     hdrTransfer);
    if (format->flags & AVFMT_GLOBALHEADER) enc->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    // The encoder's own threads: --codec-threads, else FFmpeg's choice for the machine; never
    // --threads, which does not change the bytes written.
    enc->thread_count = codecsCapped ? 1 : int(job.codecThreads);
    if (job.parts) enc->flags |= AV_CODEC_FLAG_CLOSED_GOP;   // a part refers to no frame outside it
    openEncoderWith(enc.get(), encoder, job.encoding, job.output, encoderOptions);
    av_log_set_callback(keepDecoderErrors);   // the encoder's opening took FFmpeg's messages for a while
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
    if (job.parts) {   // what flairize join checks the parts by
        const std::string part = std::to_string(job.part) + "/" + std::to_string(job.parts),
                          range = std::to_string(firstFrame) + " " + std::to_string(endFrame) + " " + std::to_string(frames);
        if (av_dict_set(&out->metadata, "FLAIRIZE_PART", part.c_str(), 0) < 0 ||
            av_dict_set(&out->metadata, "FLAIRIZE_FRAMES", range.c_str(), 0) < 0)
            throw std::bad_alloc();
    }
    outVideo = avformat_new_stream(out.get(), nullptr);
    if (!outVideo || avcodec_parameters_from_context(outVideo->codecpar, enc.get()) < 0) throw std::bad_alloc();
    outVideo->time_base = enc->time_base;
    outVideo->avg_frame_rate = enc->framerate;
    outVideo->sample_aspect_ratio = enc->sample_aspect_ratio;
    keepVideoMetadata(inVideo, outVideo);
    const bool copies = addOtherStreams(asTheyAre);
    out->pb = outputStream();
    if ((r = avformat_write_header(out.get(), nullptr)) >= 0) return true;
    if (!copies) fail(2, job.output + ": " + avError(r));
    notices::say(
                 "%s: the %s container refuses the streams as they are (%s); the audio is transcoded and "
                 "the other streams are left out\n",
                 job.output.c_str(), format->name, avError(r).c_str());
    return false;
}

// Output streams for the input's other streams: as the container takes them
// (asTheyAre), else only the audio, transcoded. True when any is copied.
bool Setup::addOtherStreams(bool asTheyAre) {
    streams.emplace(in.get(), videoStream, out.get(),
                    job.parts ? Streams::Plan::None
                    : asTheyAre ? Streams::Plan::AsTheyAre : Streams::Plan::AudioTranscodedOnly, job.output);
    return streams->copiesAny();
}

// The output file's descriptor as FFmpeg's byte stream, seekable (MP4's index
// is written at the end) unless it is standard output. A second try starts
// the file again.
AVIOContext* Setup::outputStream() {
    if (file.seekable() && (::ftruncate(file.fd(), 0) != 0 || ::lseek(file.fd(), 0, SEEK_SET) != 0))
        fail(2, job.output + ": " + std::strerror(errno));
    out->flags |= AVFMT_FLAG_CUSTOM_IO;
    return descriptorStream(file.fd(), true, file.seekable());
}

// ---- the pipeline: decoding (in order), rendering (several frames at once,
// one thread each; where memory allows fewer frames at once than threads, each
// frame converts and renders in bands on its share) and encoding (in order)
// overlap; the frames never depend on the thread count. A frame is decoded,
// converted to the engine's layout, rendered, converted back to the encoder's,
// encoded and muxed.

class Pipeline {
public:
    explicit Pipeline(Setup& setup);
    void run();
    void finish();   // the encoder's last frames, the trailer, the file in its place

private:
    // A failed write: standard output whose reader went away is a failed run
    // (exit 1), as for a picture; a file that cannot be written, a refusal.
    int writeStatus() const { return job_.output == "-" ? 1 : 2; }
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
    void damaged(const std::string& reason);
    bool inRange(std::int64_t t) const { return t == AV_NOPTS_VALUE || (t >= setup_.from && t < setup_.to); }
    bool trimmed() const { return job_.from > 0 || job_.to >= 0; }
    flairize::Settings settingsFor(long i) const;

    Setup& setup_;
    const Job& job_;
    const flairize::HostServices host_;   // one thread, or the frame's share where memory caps the frames at once
    const std::size_t tokens_;   // a frame decoding and one encoding beside the renders
    std::vector<std::unique_ptr<Item>> items_;
    tbb::enumerable_thread_specific<Scalers> scalers_;
    Packet packet_ = newPacket();          // read from the input
    Packet encodedPacket_ = newPacket();   // from the encoder
    bool inputEnded_ = false, decoderEnded_ = false;
    long decodedFrames_ = 0, next_ = 0, encodedFrames_ = 0;   // decoded: the frames kept, damaged ones included
    long damagedFrames_ = 0;
    std::string firstDamage_;
    std::int64_t lastPts_ = AV_NOPTS_VALUE;
    ProgressLine progress_;
};

Pipeline::Pipeline(Setup& setup)
    : setup_(setup), job_(setup.job), host_(hostops::threadedServices(setup.frameThreads)), tokens_(setup.tokens),
      scalers_(setup.frameThreads) {
    decodedFrames_ = setup_.firstFrame;   // frames are numbered in the whole clip
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
        AVFrame* f = item.decoded.get();
        const int r = avcodec_receive_frame(setup_.dec.get(), f);
        if (r >= 0) {
            const std::int64_t t = f->best_effort_timestamp;
            if (t != AV_NOPTS_VALUE && t >= setup_.to) {   // frames come in time order: the rest are after --to
                av_frame_unref(f);
                decoderEnded_ = true;
                break;
            }
            // Errors before the first frame kept are the stream's start (or the part cut away).
            std::string error = takeDecoderError();
            if (!inRange(t)) {
                av_frame_unref(f);
                continue;
            }
            if (decodedFrames_ == setup_.firstFrame && !(f->decode_error_flags || (f->flags & AV_FRAME_FLAG_CORRUPT))) error.clear();
            if (!error.empty() || f->decode_error_flags || (f->flags & AV_FRAME_FLAG_CORRUPT)) {
                av_frame_unref(f);
                damaged(error.empty() ? "the decoder found errors in it" : error);
                continue;
            }
            item.index = decodedFrames_++;
            return &item;
        }
        if (r == AVERROR_EOF) {
            decoderEnded_ = true;
            break;
        }
        if (r != AVERROR(EAGAIN)) damaged(avError(r));
        else readPacket(item);
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
    if (got < 0) {   // the rest of the input cannot be read: the frames decoded so far are what there is
        damaged(avError(got));
        inputEnded_ = true;
        avcodec_send_packet(setup_.dec.get(), nullptr);
        return;
    }
    const int stream = packet_->stream_index;
    if (stream == setup_.videoStream) {
        const std::int64_t t = packet_->pts;
        const int sent = avcodec_send_packet(setup_.dec.get(), packet_.get());
        av_packet_unref(packet_.get());
        if (sent < 0 && inRange(t))   // never EAGAIN: the decoder's frames were all taken first
            damaged(avError(sent));
    } else if (setup_.streams->wants(stream)) {
        if (trimmed()) {   // the other streams' packets of the part kept, from its start
            const AVRational base = setup_.in->streams[stream]->time_base;
            const std::int64_t start = av_rescale_q(setup_.inVideo->start_time != AV_NOPTS_VALUE ? setup_.inVideo->start_time : 0,
                                                    setup_.inVideo->time_base, base);
            const std::int64_t from = start + av_rescale_q(job_.from, AV_TIME_BASE_Q, base);
            const std::int64_t to = job_.to >= 0 ? start + av_rescale_q(job_.to, AV_TIME_BASE_Q, base) : INT64_MAX;
            const std::int64_t t = packet_->pts;
            if (t != AV_NOPTS_VALUE && (t < from || t >= to)) {
                av_packet_unref(packet_.get());
                return;
            }
            const std::int64_t shift = av_rescale_q(job_.from, AV_TIME_BASE_Q, base);
            if (packet_->pts != AV_NOPTS_VALUE) packet_->pts -= shift;
            if (packet_->dts != AV_NOPTS_VALUE) packet_->dts -= shift;
        }
        Packet copy = newPacket();
        av_packet_move_ref(copy.get(), packet_.get());
        item.audio.push_back(std::move(copy));
    } else {
        av_packet_unref(packet_.get());
    }
}

// A frame that cannot be decoded: the clip is refused, or with --keep-going
// the frame is left out (it keeps its place in the timing) and said at the end.
void Pipeline::damaged(const std::string& reason) {
    const std::string what = "frame " + std::to_string(decodedFrames_) + ": damaged (" + reason + ")";
    if (!job_.keepGoing) fail(2, job_.input + ": " + what);
    if (firstDamage_.empty()) firstDamage_ = what;
    ++damagedFrames_;
    ++decodedFrames_;
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
    if (job_.progress >= 0) {   // --progress: one for the whole clip
        r.progress = std::uint32_t(job_.progress);
        return flairize::settingsOf(r);
    }
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
    picture.extended_data = picture.data;   // its own planes, as a frame of its own has them
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
    if (pts != AV_NOPTS_VALUE && job_.from > 0) pts -= av_rescale_q(job_.from, AV_TIME_BASE_Q, setup_.inVideo->time_base);
    if (pts == AV_NOPTS_VALUE || (lastPts_ != AV_NOPTS_VALUE && pts <= lastPts_))
        pts = lastPts_ == AV_NOPTS_VALUE ? 0 : lastPts_ + 1;
    lastPts_ = f->pts = pts;
    f->pict_type = AV_PICTURE_TYPE_NONE;
    const int sent = avcodec_send_frame(setup_.enc.get(), f);
    if (sent < 0) fail(1, job_.output + ": the encoder failed: " + avError(sent));
    drainEncoder();
    progress_.show(++encodedFrames_, setup_.endFrame - setup_.firstFrame, false);
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
    if (w < 0) fail(writeStatus(), job_.output + ": " + avError(w));
    if (setup_.out->pb->error < 0) fail(writeStatus(), job_.output + ": " + avError(setup_.out->pb->error));
}

void Pipeline::finish() {
    int e;
    if ((e = avcodec_send_frame(setup_.enc.get(), nullptr)) < 0)
        fail(1, job_.output + ": the encoder failed: " + avError(e));
    drainEncoder();
    setup_.streams->finish([this](AVPacket* p) { mux(p); });
    if ((e = av_write_trailer(setup_.out.get())) < 0) fail(writeStatus(), job_.output + ": " + avError(e));
    avio_flush(setup_.out->pb);
    if (setup_.out->pb->error < 0) fail(writeStatus(), job_.output + ": " + avError(setup_.out->pb->error));
    if (encodedFrames_ == 0) fail(2, job_.input + (firstDamage_.empty() ? ": no frame could be decoded" : ": " + firstDamage_));
    // A part short of its frames would leave a gap in the joined clip.
    if (job_.parts && decodedFrames_ != setup_.endFrame)
        fail(2, job_.input + ": part " + std::to_string(job_.part) + "/" + std::to_string(job_.parts) + " decoded " +
                    std::to_string(decodedFrames_ - setup_.firstFrame) + " frames, not the " +
                    std::to_string(setup_.endFrame - setup_.firstFrame) + " counted");
    std::string error;
    if (!setup_.file.commit(error)) fail(2, job_.output + ": " + error);
    progress_.show(encodedFrames_, setup_.endFrame - setup_.firstFrame, true);
    if (damagedFrames_)
        notices::say("%s: %s; wrote %ld of %ld frames\n", job_.input.c_str(), firstDamage_.c_str(),
                     encodedFrames_, decodedFrames_ - setup_.firstFrame);
    else if (!job_.parts && setup_.frames && encodedFrames_ != setup_.frames)
        notices::say("%s: %ld frames were %s but %ld decoded\n", job_.input.c_str(), setup_.frames,
                     setup_.counted ? "counted" : "given", encodedFrames_);
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
    av_log_set_callback(keepDecoderErrors);
    takeDecoderError();
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
