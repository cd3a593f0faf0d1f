// flairize video: every frame of a video file through the effect, frame i of
// N at the progress the frame timing gives it, audio copied alongside.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "engine/settings_record.h"
#include "standalone/picture_io.h"

namespace video {

// The encoder's settings as ffmpeg's options name them; those left unset are
// the encoder's own defaults.
struct EncoderControls {
    std::string crf;           // constant quality, e.g. "23"; empty: unset
    std::string preset;        // the encoder's speed preset, e.g. "slow"
    std::int64_t bitrate = 0;  // bits a second; 0: unset
    std::string pixelFormat;   // e.g. "yuv420p"; empty: the one every player takes
    int gop = 0;               // frames from one keyframe to the next at most; 0: unset
    std::vector<std::pair<std::string, std::string>> options;   // --encoder-option key=value, in order
};

struct Job {
    std::string input, output;
    std::string codec;         // encoder name; empty: the one the output's extension implies
    SettingsRecord record;     // effect, sliders, colour and direction
    std::int8_t speed = 0;     // the speed curve, as for a sequence
    unsigned threads = 0;      // frames rendered at once; 0: all cores
    pictures::Limits limits;   // the frame size, and the frames in flight within the memory limit
    EncoderControls encoding;  // --crf, --preset, --bitrate, --pix-fmt, --gop, --encoder-option
    unsigned codecThreads = 0; // the decoder's and encoder's own threads; 0: FFmpeg's choice for the machine
    std::string format;        // "mkv" or "ts": the container; empty: OUT's extension (Matroska for "-")
    std::int64_t from = 0;     // the part of the clip kept, in microseconds from its start; to < 0: to the end
    std::int64_t to = -1;
    long frames = 0;           // the frame count the timing uses; 0: the frames counted (not possible on a pipe)
    long progress = -1;        // one progress for every frame; -1: the frame timing
    bool keepGoing = false;    // damaged frames are left out instead of refusing the clip
    int part = 0, parts = 0;   // --part I/N: frames [I x M / N, (I + 1) x M / N) of the clip's M; parts 0: all
    std::string countFile;     // --count-file: the clip's frame times, shared by its parts
};

struct Outcome {
    int status = 0;            // 0 done, 1 a render or the encoder failed, 2 bad input, usage or unwritable output
    std::string message;       // one line naming the file and the problem
};

// Writes job.output, or nothing at all: the file is written under a temporary
// name beside it and renamed when complete ("-": standard input and output,
// streamed). Never throws.
Outcome convert(const Job& job);

// flairize join: the parts that `--part` wrote, in order, as one video by
// stream copy, with the other streams (audio, subtitles) of the original.
struct JoinJob {
    std::vector<std::string> parts;
    std::string output;
    std::string original;      // --audio-from: the clip the parts were rendered from
};
Outcome join(const JoinJob& job);

}  // namespace video
