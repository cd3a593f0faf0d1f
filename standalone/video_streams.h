// flairize video's other streams: audio, subtitles, data and attachments
// copied where the output container takes them as they are, audio and text
// subtitles transcoded where it does not, with their metadata; and the
// container's and the video stream's own metadata.
#pragma once

extern "C" {
#include <libavformat/avformat.h>
}

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace video {

// The container's metadata (title, creation time, ...) and the video stream's
// (language, title, handler, disposition, rotation) onto the output.
void keepContainerMetadata(const AVFormatContext* in, AVFormatContext* out);
void keepVideoMetadata(const AVStream* in, AVStream* out);

class Streams {
   public:
    // How the other streams are written: as the container takes them (audio it
    // refuses transcoded), or, after the container refused its header so, with
    // every audio stream transcoded and nothing else.
    // None: the video alone (a part of a clip, whose audio is joined later).
    enum class Plan { AsTheyAre, AudioTranscodedOnly, None };

    // Adds an output stream for each input stream other than `video` that the
    // plan keeps; those left out are named on stderr.
    Streams(const AVFormatContext* in, int video, AVFormatContext* out, Plan plan, const std::string& output);
    ~Streams();
    Streams(const Streams&) = delete;
    Streams& operator=(const Streams&) = delete;

    bool any() const { return kept_ > 0; }
    bool copiesAny() const { return copied_ > 0; }
    // Whether the packets of input stream `stream` are written.
    bool wants(int stream) const;

    using Mux = std::function<void(AVPacket*)>;
    // Writes one packet of a kept stream, copied or transcoded, through mux.
    void write(AVPacket* packet, const Mux& mux);
    // The transcoders' last packets; after the last write, before the trailer.
    void finish(const Mux& mux);

    struct Transcoder;

   private:
    const AVFormatContext* in_;
    AVFormatContext* out_;
    std::string output_;
    std::vector<int> map_;                                  // input stream -> output stream; -1: left out
    std::vector<std::unique_ptr<Transcoder>> transcoders_;  // by input stream; null: copied
    int kept_ = 0, copied_ = 0;
};

}  // namespace video
