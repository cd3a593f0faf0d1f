// flairize video's encoder: the pixel format it is given, the coded size, and
// the controls (--crf, --preset, --bitrate, --pix-fmt, --gop,
// --encoder-option) checked against the encoder and passed to it.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <string>

#include "standalone/video.h"

namespace video {

// Refuses, as a usage error naming the option and the reason, a control the
// encoder does not have or a value outside what it takes. Runs before the
// input is read.
void checkControls(const AVCodec* codec, const EncoderControls& controls);

// The encoder's pixel format: --pix-fmt; else yuv420p (yuva420p with alpha
// where the encoder takes it) for the codecs players decode (H.264, HEVC, VP8,
// VP9, AV1); else the engine's own layout, or the nearest layout that keeps
// every bit of it (FFV1 takes bgr0 and bgra); else FFmpeg's least lossy choice.
AVPixelFormat encoderPixelFormat(const AVCodec* codec, AVPixelFormat engine, const EncoderControls& controls);

// The coded size for a picture of width x height: a pixel format with
// subsampled chroma (4:2:0, 4:2:2) needs whole chroma samples, so an odd side
// grows by one pixel, which padEdges fills.
void codedSize(AVPixelFormat format, int& width, int& height);

// Fills the padding of a frame whose picture is width x height: the last
// column and the last row repeated. Nothing to do where the sizes agree.
void padEdges(AVFrame* frame, int width, int height);

// Opens the encoder with the controls, then `caps` (the memory budget's limits
// on the encoder's frames, may be null); an option the encoder left unused, or
// a value it refuses, is refused naming it.
void openEncoderWith(AVCodecContext* encoder, const AVCodec* codec, const EncoderControls& controls,
                     const std::string& output, const AVDictionary* caps = nullptr);

}  // namespace video
