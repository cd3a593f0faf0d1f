// flairize video's colours: the tags the output carries, equal to what its
// frames are, and HDR input (PQ or HLG) brought to the 8-bit SDR pictures
// the engine renders.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

#include <string>
#include <vector>

namespace video {

// "PQ" or "HLG" for a stream coded with either, else null.
const char* hdrTransferOf(const AVCodecParameters* input);

// The encoder's colour tags. YUV output keeps the input's tags where the input
// was YUV too, else BT.601 limited range; HDR input is written as BT.709 SDR,
// which is what its frames become.
void setColourTags(AVCodecContext* encoder, const AVCodecParameters* input, bool inputYuv);

// HDR frames to the engine's 8-bit BGR or BGRA: decoded to 16-bit RGB with
// the frame's matrix, to linear light, BT.2020 to BT.709 primaries, highlights
// above SDR white rolled off, and the BT.709 transfer. One per thread.
class SdrConverter {
   public:
    SdrConverter() = default;
    ~SdrConverter();
    SdrConverter(const SdrConverter&) = delete;
    SdrConverter& operator=(const SdrConverter&) = delete;

    // `to` is BGR24 or BGRA of `from`'s size; false when no conversion exists.
    bool convert(const AVFrame* from, AVFrame* to);

   private:
    SwsContext* context_ = nullptr;
    int key_[5] = {};
    AVFrame* wide_ = nullptr;  // 16-bit RGB(A)
};

}  // namespace video
