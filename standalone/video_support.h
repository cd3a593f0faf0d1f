// What flairize video's files share: the refusal they throw, FFmpeg's error
// texts and owners of FFmpeg's codec contexts, frames and packets. Compiled only where FFmpeg's libraries are.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avio.h>
#include <libavutil/error.h>
}

#include <cerrno>
#include <memory>
#include <new>
#include <string>

namespace video {

// A refusal or a failure, caught where the job ends: status as in Outcome.
struct Error {
    int status;
    std::string message;
};
[[noreturn]] inline void fail(int status, const std::string& message) { throw Error{status, message}; }

// An FFmpeg byte stream on a file descriptor, for reading or writing, with or
// without seeking; a want of memory throws std::bad_alloc.
AVIOContext* descriptorStream(int fd, bool write, bool seekable);

// FFmpeg's reason for a failure; want of memory is no reason to name but the
// command's one out-of-memory failure.
inline std::string avError(int code) {
    if (code == AVERROR(ENOMEM)) throw std::bad_alloc();
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

struct CodecFree {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameFree {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketFree {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
using Codec = std::unique_ptr<AVCodecContext, CodecFree>;
using Frame = std::unique_ptr<AVFrame, FrameFree>;
using Packet = std::unique_ptr<AVPacket, PacketFree>;

inline Codec newCodec(const AVCodec* codec) {
    Codec c(avcodec_alloc_context3(codec));
    if (!c) throw std::bad_alloc();
    return c;
}
inline Frame newFrame() {
    Frame f(av_frame_alloc());
    if (!f) throw std::bad_alloc();
    return f;
}
inline Packet newPacket() {
    Packet p(av_packet_alloc());
    if (!p) throw std::bad_alloc();
    return p;
}

}  // namespace video
