// flairize join: the parts of a clip that `flairize video --part` rendered,
// one after the other by stream copy, with the original's other streams.
#include "standalone/video.h"

#if !FLAIRIZE_VIDEO

namespace video {

Outcome join(const JoinJob& job) {
    return {2, job.output + ": this flairize was built without FFmpeg's libraries, so it reads and writes no video"};
}

}  // namespace video

#else

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <new>
#include <optional>

#include "platform/strings.h"
#include "resources/string_ids.h"
#include "standalone/messages.h"
#include "standalone/output_file.h"
#include "standalone/video_streams.h"
#include "standalone/video_support.h"

namespace video {
namespace {

struct InputClose {
    void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
using Input = std::unique_ptr<AVFormatContext, InputClose>;

struct OutputClose {
    void operator()(AVFormatContext* c) const {
        if (c->pb) {
            av_freep(&c->pb->buffer);
            avio_context_free(&c->pb);
        }
        avformat_free_context(c);
    }
};
using Output = std::unique_ptr<AVFormatContext, OutputClose>;

Input openFile(const std::string& path) {
    AVFormatContext* raw = nullptr;
    int e = avformat_open_input(&raw, path.c_str(), nullptr, nullptr);
    if (e < 0) fail(2, path + ": " + avError(e));
    Input in(raw);
    if ((e = avformat_find_stream_info(raw, nullptr)) < 0) fail(2, path + ": " + avError(e));
    return in;
}

// One part, as its tags describe it: part `index` of `count`, frames [first, end) of `frames`.
struct Part {
    std::string path;
    Input in;
    int index = 0, count = 0;
    long first = 0, end = 0, frames = 0;
    long packets = 0;
};

Part readPart(const std::string& path) {
    Part p;
    p.path = path;
    p.in = openFile(path);
    const AVDictionaryEntry* part = av_dict_get(p.in->metadata, "FLAIRIZE_PART", nullptr, 0);
    const AVDictionaryEntry* range = av_dict_get(p.in->metadata, "FLAIRIZE_FRAMES", nullptr, 0);
    char tail = 0;
    if (!part || !range || std::sscanf(part->value, "%d/%d%c", &p.index, &p.count, &tail) != 2 ||
        std::sscanf(range->value, "%ld %ld %ld%c", &p.first, &p.end, &p.frames, &tail) != 3 || p.count < 1 ||
        p.index < 0 || p.index >= p.count || p.first < 0 || p.first >= p.end || p.end > p.frames)
        fail(2, path + ": not a part that flairize video --part wrote");
    if (p.in->nb_streams != 1 || p.in->streams[0]->codecpar->codec_type != AVMEDIA_TYPE_VIDEO)
        fail(2, path + ": a part holds one video stream and nothing else");
    return p;
}

std::string sizeOf(const AVCodecParameters* c) { return std::to_string(c->width) + " x " + std::to_string(c->height); }

// The parts in order, or the reason they do not make one clip.
void checkParts(std::vector<Part>& parts) {
    std::sort(parts.begin(), parts.end(), [](const Part& a, const Part& b) { return a.index < b.index; });
    const Part& head = parts.front();
    const AVCodecParameters* h = head.in->streams[0]->codecpar;
    for (std::size_t k = 0; k < parts.size(); ++k) {
        const Part& p = parts[k];
        const AVCodecParameters* c = p.in->streams[0]->codecpar;
        const std::string which = p.path + " (part " + std::to_string(p.index) + "/" + std::to_string(p.count) + ")";
        if (p.count != head.count)
            fail(2, which + " and " + head.path + " (part " + std::to_string(head.index) + "/" +
                        std::to_string(head.count) + ") split the clip differently");
        if (p.frames != head.frames)
            fail(2, which + " is of a clip of " + std::to_string(p.frames) + " frames, " + head.path + " of " +
                        std::to_string(head.frames));
        if (k > 0 && p.index == parts[k - 1].index)
            fail(2, p.path + " and " + parts[k - 1].path + " are both part " + std::to_string(p.index) + "/" +
                        std::to_string(p.count));
        if (c->codec_id != h->codec_id)
            fail(2, which + " is " + avcodec_get_name(c->codec_id) + " video, " + head.path + " " +
                        avcodec_get_name(h->codec_id));
        if (c->width != h->width || c->height != h->height)
            fail(2, which + " is " + sizeOf(c) + ", " + head.path + " " + sizeOf(h));
        if (c->format != h->format || c->extradata_size != h->extradata_size ||
            (c->extradata_size && std::memcmp(c->extradata, h->extradata, std::size_t(c->extradata_size))) ||
            av_cmp_q(p.in->streams[0]->time_base, head.in->streams[0]->time_base))
            fail(2, which + " was encoded with other settings than " + head.path);
        if (p.first != long(std::int64_t(p.index) * p.frames / p.count) ||
            p.end != long(std::int64_t(p.index + 1) * p.frames / p.count))
            fail(2, which + ": its frames are not that part's");
    }
    const int count = head.count;
    std::string missing;
    for (int i = 0, k = 0; i < count; ++i) {
        if (k < int(parts.size()) && parts[std::size_t(k)].index == i) {
            ++k;
            continue;
        }
        missing += (missing.empty() ? "" : ", ") + std::to_string(i);
    }
    if (!missing.empty())
        fail(2, "part" + std::string(missing.find(',') == std::string::npos ? " " : "s ") + missing + " of " +
                    std::to_string(count) + " missing (" + std::to_string(parts.size()) + " given)");
}

Outcome run(const JoinJob& job) {
    if (job.parts.empty()) fail(2, "join: no parts");
    std::vector<Part> parts;
    for (const std::string& path : job.parts) parts.push_back(readPart(path));
    checkParts(parts);
    Input original = openFile(job.original);
    const int originalVideo = av_find_best_stream(original.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (originalVideo < 0) fail(2, job.original + ": no video stream");

    const AVOutputFormat* format = av_guess_format(nullptr, job.output.c_str(), nullptr);
    if (!format || (format->flags & AVFMT_NOFILE))
        fail(2, job.output + ": unknown video file type (use .mkv, .mp4, .mov or another video extension FFmpeg writes)");
    const AVStream* first = parts.front().in->streams[0];
    if (avformat_query_codec(format, first->codecpar->codec_id, FF_COMPLIANCE_NORMAL) == 0)
        fail(2, job.output + ": the " + format->name + " container does not take " +
                    avcodec_get_name(first->codecpar->codec_id) + " video");
    std::string error;
    if (!output::check(job.output, error)) fail(2, job.output + ": " + error);
    output::File file;
    if (!file.open(job.output, error)) fail(2, job.output + ": " + error);

    // The output as the single run writes it: the video, then the original's
    // other streams as the container takes them, else its audio transcoded.
    Output out;
    AVStream* video = nullptr;
    std::optional<Streams> streams;
    auto openOutput = [&](Streams::Plan plan) {
        streams.reset();
        out.reset();
        AVFormatContext* raw = nullptr;
        int e = avformat_alloc_output_context2(&raw, format, nullptr, job.output.c_str());
        if (e < 0) fail(2, job.output + ": " + avError(e));
        out.reset(raw);
        keepContainerMetadata(original.get(), out.get());
        video = avformat_new_stream(out.get(), nullptr);
        if (!video || avcodec_parameters_copy(video->codecpar, first->codecpar) < 0) throw std::bad_alloc();
        video->codecpar->codec_tag = 0;
        video->time_base = first->time_base;
        video->avg_frame_rate = first->avg_frame_rate;
        video->sample_aspect_ratio = first->sample_aspect_ratio;
        keepVideoMetadata(original->streams[originalVideo], video);
        streams.emplace(original.get(), originalVideo, out.get(), plan, job.output);
        if (::ftruncate(file.fd(), 0) != 0 || ::lseek(file.fd(), 0, SEEK_SET) != 0)
            fail(2, job.output + ": " + std::strerror(errno));
        out->pb = descriptorStream(file.fd(), true, true);
        out->flags |= AVFMT_FLAG_CUSTOM_IO;
        e = avformat_write_header(out.get(), nullptr);
        if (e >= 0) return true;
        if (plan != Streams::Plan::AsTheyAre || !streams->copiesAny()) fail(2, job.output + ": " + avError(e));
        return false;
    };
    if (!openOutput(Streams::Plan::AsTheyAre)) openOutput(Streams::Plan::AudioTranscodedOnly);

    auto mux = [&](AVPacket* p) {
        const int w = av_interleaved_write_frame(out.get(), p);
        if (w < 0 || out->pb->error < 0) fail(2, job.output + ": " + avError(w < 0 ? w : out->pb->error));
    };
    // The parts' video and the original's other packets, merged by time.
    // A part's first packets may carry no decoding time (Matroska stores
    // presentation times only, and a codec with B-frames decodes its first
    // frames before they show): after the first part those times are spread
    // evenly between the last packet written and the first that has one.
    Packet v = newPacket(), o = newPacket();
    std::deque<Packet> ahead;   // read, not yet handed on
    std::int64_t lastDts = AV_NOPTS_VALUE;
    std::size_t at = 0;
    auto readVideo = [&](Packet& into) {
        while (at < parts.size()) {
            Part& p = parts[at];
            const int e = av_read_frame(p.in.get(), into.get());
            if (e == AVERROR_EOF) {
                if (p.packets != p.end - p.first)
                    fail(2, p.path + ": holds " + std::to_string(p.packets) + " frames, not the " +
                                std::to_string(p.end - p.first) + " of its part (cut short?)");
                ++at;
                return false;
            }
            if (e < 0) fail(2, p.path + ": " + avError(e));
            if (p.packets++ == 0 && !(into->flags & AV_PKT_FLAG_KEY)) fail(2, p.path + ": does not start with a keyframe");
            av_packet_rescale_ts(into.get(), p.in->streams[0]->time_base, video->time_base);
            into->stream_index = video->index;
            into->pos = -1;
            return true;
        }
        return false;
    };
    auto nextVideo = [&]() {
        while (ahead.empty()) {
            if (at >= parts.size()) return false;
            Packet p = newPacket();
            if (!readVideo(p)) continue;
            const bool untimed = p->dts == AV_NOPTS_VALUE && lastDts != AV_NOPTS_VALUE;
            ahead.push_back(std::move(p));
            if (!untimed) break;
            const std::size_t partAt = at;
            Packet timed = newPacket();
            bool found = false;
            while (at == partAt && (found = readVideo(timed)) && timed->dts == AV_NOPTS_VALUE) {
                ahead.push_back(std::move(timed));
                timed = newPacket();
            }
            const std::int64_t until = found && at == partAt ? timed->dts : ahead.back()->pts;
            const std::int64_t gaps = std::int64_t(ahead.size()) + (found && at == partAt ? 1 : 0);
            for (std::size_t k = 0; k < ahead.size(); ++k)
                ahead[k]->dts = lastDts + (until - lastDts) * std::int64_t(k + 1) / gaps;
            if (found && at == partAt) ahead.push_back(std::move(timed));
        }
        av_packet_unref(v.get());
        av_packet_move_ref(v.get(), ahead.front().get());
        ahead.pop_front();
        if (v->dts != AV_NOPTS_VALUE) lastDts = v->dts;
        return true;
    };
    // The original is read to its end, its video packets counted as `video`
    // counts them: a clip of another length is not the one the parts came from.
    bool otherEnded = false;
    long originalFrames = 0;
    auto nextOther = [&]() {
        while (!otherEnded) {
            const int e = av_read_frame(original.get(), o.get());
            if (e == AVERROR_EOF) break;
            if (e < 0) fail(2, job.original + ": " + avError(e));
            if (o->stream_index == originalVideo && !(o->flags & AV_PKT_FLAG_DISCARD)) ++originalFrames;
            if (streams->wants(o->stream_index)) return true;
            av_packet_unref(o.get());
        }
        otherEnded = true;
        return false;
    };
    auto timeOf = [](const AVPacket* p) { return p->dts != AV_NOPTS_VALUE ? p->dts : p->pts; };
    bool haveVideo = nextVideo(), haveOther = nextOther();
    while (haveVideo || haveOther) {
        const bool videoFirst =
            haveVideo && (!haveOther || timeOf(o.get()) == AV_NOPTS_VALUE ||
                          av_compare_ts(timeOf(v.get()), video->time_base, timeOf(o.get()),
                                        original->streams[o->stream_index]->time_base) <= 0);
        if (videoFirst) {
            mux(v.get());
            haveVideo = nextVideo();
        } else {
            streams->write(o.get(), mux);
            av_packet_unref(o.get());
            haveOther = nextOther();
        }
    }
    if (originalFrames != parts.front().frames)
        fail(2, job.original + ": has " + std::to_string(originalFrames) + " frames, the parts' clip " +
                    std::to_string(parts.front().frames) + " (--audio-from names the clip the parts were rendered from)");
    streams->finish(mux);
    int e = av_write_trailer(out.get());
    if (e < 0) fail(2, job.output + ": " + avError(e));
    avio_flush(out->pb);
    if (out->pb->error < 0) fail(2, job.output + ": " + avError(out->pb->error));
    if (!file.commit(error)) fail(2, job.output + ": " + error);
    if (notices::verbose) notices::say("joined %zu parts, %ld frames, into %s\n", parts.size(), parts.front().frames, job.output.c_str());
    return {};
}

}  // namespace

Outcome join(const JoinJob& job) {
    av_log_set_level(AV_LOG_FATAL);
    try {
        return run(job);
    } catch (const Error& e) {
        return {e.status, e.message};
    } catch (const std::bad_alloc&) {
        return {1, job.output + ": " + plat::loadString(ids::kNoMemory)};
    } catch (const std::exception& e) {
        return {1, job.output + ": " + e.what()};
    }
}

}  // namespace video

#endif
