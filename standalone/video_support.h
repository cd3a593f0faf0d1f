// What flairize video's files share: the refusal they throw and FFmpeg's
// error texts. Compiled only where FFmpeg's libraries are.
#pragma once

extern "C" {
#include <libavutil/error.h>
}

#include <cerrno>
#include <new>
#include <string>

namespace video {

// A refusal or a failure, caught where the job ends: status as in Outcome.
struct Error {
    int status;
    std::string message;
};
[[noreturn]] inline void fail(int status, const std::string& message) { throw Error{status, message}; }

// FFmpeg's reason for a failure; want of memory is no reason to name but the
// command's one out-of-memory failure.
inline std::string avError(int code) {
    if (code == AVERROR(ENOMEM)) throw std::bad_alloc();
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

}  // namespace video
