// flairize video's encoder choices and streams, read back with ffprobe: pixel
// formats players take, the encoder controls, colour tags, rotation,
// subtitles, metadata and the audio the container refuses.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/command_support.h"

using namespace testcli;

namespace {

// ffprobe's answer for `entries` of `file`, as key=value lines.
std::string probe(const std::string& file, const std::string& entries, const std::string& select = "") {
    const std::string answer = dir() + "/probe.txt";
    sh("ffprobe -v error " + select + " -show_entries " + entries + " -of default=nw=1 " + file + " >" + answer);
    return slurp(answer);
}

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::string folder(const std::string& name) {
    const std::string d = dir() + "/streams-" + name;
    mkdir(d.c_str(), 0755);
    return d;
}

}  // namespace

// Each extension's default encoder writes a pixel format players take; odd
// sides in 4:2:0 are padded by repeating the last column and row.
TEST(VideoStreams, PixelFormatsPlayersTake) {
    NEEDS_FFMPEG();
    const std::string d = folder("pixels");
    struct Case {
        const char *size, *out, *options, *codec, *layout, *width, *height;
    };
    const Case cases[] = {
        {"160x90", "even.webm", "", "vp9", "yuv420p", "160", "90"},
        {"160x90", "even.mp4", "", "h264", "yuv420p", "160", "90"},
        {"161x91", "odd.mp4", "", "h264", "yuv420p", "162", "92"},
        {"161x91", "odd.webm", "", "vp9", "yuv420p", "162", "92"},
        {"161x91", "odd444.mp4", "--pix-fmt yuv444p", "h264", "yuv444p", "161", "91"},
        {"161x91", "odd.mkv", "", "ffv1", "bgr0", "161", "91"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.out);
        const std::string src = d + "/src" + c.size + ".mkv", out = d + "/" + c.out;
        if (!exists(src)) {
            ASSERT_EQ(sh(ff + "-f lavfi -i testsrc=size=" + c.size + ":rate=10 -frames:v 5 -c:v ffv1 " + src), 0);
        }
        const CommandRun r = command("video " + src + " " + out + " --effect solarize " + c.options);
        ASSERT_EQ(r.status, 0) << r.err;
        const std::string p = probe(out, "stream=codec_name,pix_fmt,width,height");
        EXPECT_TRUE(has(p, std::string("codec_name=") + c.codec)) << p;
        EXPECT_TRUE(has(p, std::string("pix_fmt=") + c.layout + "\n")) << p;
        EXPECT_TRUE(has(p, std::string("width=") + c.width + "\n")) << p;
        EXPECT_TRUE(has(p, std::string("height=") + c.height + "\n")) << p;
    }

    // Losslessly coded luma shows the padding: the added column and row repeat the last ones.
    const std::string lossless = d + "/padded.mp4", luma = d + "/padded.y";
    ASSERT_EQ(command("video " + d + "/src161x91.mkv " + lossless + " --effect solarize --crf 0").status, 0);
    ASSERT_EQ(sh(ff + "-i " + lossless + " -frames:v 1 -f rawvideo -pix_fmt gray " + luma), 0);
    const std::string y = slurp(luma);
    ASSERT_EQ(y.size(), 162u * 92u);
    int columnsDiffer = 0;
    for (int row = 0; row < 92; ++row) columnsDiffer += y[row * 162 + 161] != y[row * 162 + 160];
    EXPECT_EQ(columnsDiffer, 0);
    EXPECT_EQ(y.substr(91 * 162, 162), y.substr(90 * 162, 162));
    EXPECT_NE(y.substr(90 * 162, 162), y.substr(89 * 162, 162)) << "the picture itself has no repeated rows";
}

// Each control reaches the encoder: x264 writes the settings it encoded with
// into the stream, and the keyframes follow --gop.
TEST(VideoStreams, EncoderControlsReachTheEncoder) {
    NEEDS_FFMPEG();
    const std::string d = folder("controls"), src = d + "/src.mkv";
    ASSERT_EQ(sh(ff + "-f lavfi -i testsrc=size=128x96:rate=25 -frames:v 25 -c:v ffv1 " + src), 0);
    struct Case {
        const char *options, *written;
    };
    const Case cases[] = {
        {"--crf 31", " crf=31.0 "},
        {"--bitrate 300k", " bitrate=300 "},
        {"--gop 5", " keyint=5 "},
        {"--preset ultrafast", " subme=0 "},
        {"--encoder-option refs=2", " ref=2 "},
        {"--encoder-option bf=0 --encoder-option=x264-params=scenecut=0", " bframes=0 "},
        {"--encoder-option bf=0 --encoder-option=x264-params=scenecut=0", " scenecut=0 "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.options);
        const std::string out = d + "/out.mp4";
        const CommandRun r = command("video " + src + " " + out + " " + c.options);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(has(slurp(out), c.written));
    }

    ASSERT_EQ(command("video " + src + " " + d + "/gop.mp4 --gop 5").status, 0);
    EXPECT_EQ(probe(d + "/gop.mp4", "packet=flags", "-select_streams v"),
              "flags=K_\nflags=__\nflags=__\nflags=__\nflags=__\n"
              "flags=K_\nflags=__\nflags=__\nflags=__\nflags=__\n"
              "flags=K_\nflags=__\nflags=__\nflags=__\nflags=__\n"
              "flags=K_\nflags=__\nflags=__\nflags=__\nflags=__\n"
              "flags=K_\nflags=__\nflags=__\nflags=__\nflags=__\n");

    // Constant quality changes the size, the other way from the number.
    ASSERT_EQ(command("video " + src + " " + d + "/fine.webm --crf 4").status, 0);
    ASSERT_EQ(command("video " + src + " " + d + "/coarse.webm --crf 60").status, 0);
    EXPECT_GT(slurp(d + "/fine.webm").size(), 2 * slurp(d + "/coarse.webm").size());

    // What an encoder does not take is refused with the reason, and nothing is written.
    struct Refusal {
        const char *out, *options, *reason;
    };
    const Refusal refusals[] = {
        {"x.mp4", "--preset slowx", "no preset \"slowx\""},
        {"x.mp4", "--crf 52", "0 to 51"},
        {"x.webm", "--crf 64", "0 to 63"},
        {"x.mkv", "--crf 20", "no constant-quality setting"},
        {"x.mp4", "--pix-fmt rgb48", "does not take rgb48"},
        {"x.mp4", "--pix-fmt nonesuch", "no pixel format \"nonesuch\""},
        {"x.mp4", "--encoder-option nosuch=1", "no option \"nosuch\""},
        {"x.mp4", "--encoder-option tune=nonesuch", "tune"},
        {"x.mp4", "--encoder-option novalue", "key=value"},
        {"x.mp4", "--bitrate 4X", "4X"},
    };
    for (const Refusal& c : refusals) {
        SCOPED_TRACE(c.options);
        const CommandRun r = command("video " + src + " " + d + "/" + c.out + " " + c.options);
        EXPECT_EQ(r.status, 2);
        EXPECT_TRUE(has(r.err, c.reason)) << r.err;
        EXPECT_FALSE(exists(d + "/" + c.out));
        EXPECT_FALSE(temporaryOf(d, c.out));
    }
}

// The container's metadata and the video stream's (language, rotation) are kept.
TEST(VideoStreams, RotationAndMetadataKept) {
    NEEDS_FFMPEG();
    const std::string d = folder("rotation"), plain = d + "/plain.mp4", src = d + "/rotated.mp4";
    ASSERT_EQ(sh(ff + "-f lavfi -i testsrc=size=96x64:rate=10 -frames:v 5 -c:v libx264 " + plain), 0);
    ASSERT_EQ(sh(ff + "-i " + plain + " -c copy -metadata:s:v:0 rotate=90 -metadata:s:v:0 language=swe " +
                 "-metadata title=\"Harbour at dawn\" -metadata creation_time=2021-05-04T03:02:01Z " + src),
              0);
    ASSERT_TRUE(has(probe(src, "stream_side_data=rotation"), "rotation=90")) << "ffmpeg wrote no rotation";
    // QuickTime files read back no language, whatever writes them.
    for (const char* out : {"out.mp4", "out.mov"}) {
        SCOPED_TRACE(out);
        const bool language = std::string(out) == "out.mp4";
        const CommandRun r = command("video " + src + " " + d + "/" + out + " --effect solarize");
        ASSERT_EQ(r.status, 0) << r.err;
        const std::string p =
            probe(d + "/" + out, "stream_side_data=rotation:stream_tags=language:format_tags=title,creation_time");
        EXPECT_TRUE(has(p, "rotation=90\n")) << p;
        if (language) {
            EXPECT_TRUE(has(p, "TAG:language=swe\n")) << p;
        }
        EXPECT_TRUE(has(p, "TAG:title=Harbour at dawn\n")) << p;
        EXPECT_TRUE(has(p, "TAG:creation_time=2021-05-04T03:02:01")) << p;
    }
}

// Subtitles come through with their language and title (where the container
// holds a title), copied or transcoded to the text format it takes.
TEST(VideoStreams, SubtitlesKept) {
    NEEDS_FFMPEG();
    const std::string d = folder("subtitles"), srt = d + "/words.srt";
    std::ofstream(srt) << "1\n00:00:00,000 --> 00:00:00,800\nHello there\n\n2\n00:00:01,000 --> 00:00:01,500\nAgain\n";
    const std::string video = "-f lavfi -i testsrc=size=96x64:rate=10:duration=2 -i " + srt +
                              " -map 0 -map 1 -c:v libx264 -metadata:s:s:0 language=ger -metadata:s:s:0 "
                              "title=\"Deutsch\" ";
    ASSERT_EQ(sh(ff + video + "-c:s srt " + d + "/src.mkv"), 0);
    ASSERT_EQ(sh(ff + video + "-c:s mov_text " + d + "/src.mp4"), 0);
    struct Case {
        const char *in, *out, *codec;
        bool title;
    };
    const Case cases[] = {
        // MP4 holds no track title.
        {"src.mkv", "out.mkv", "subrip", true},  {"src.mkv", "out.mp4", "mov_text", false},
        {"src.mp4", "out.mkv", "subrip", false}, {"src.mp4", "out.mp4", "mov_text", false},
        {"src.mkv", "out.webm", "webvtt", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.in) + " to " + c.out);
        const std::string out = d + "/" + c.out;
        const CommandRun r = command("video " + d + "/" + c.in + " " + out);
        ASSERT_EQ(r.status, 0) << r.err;
        const std::string p = probe(out, "stream=codec_name:stream_tags=language,title", "-select_streams s");
        EXPECT_TRUE(has(p, std::string("codec_name=") + c.codec + "\n")) << p;
        EXPECT_TRUE(has(p, "TAG:language=ger\n")) << p;
        if (c.title) {
            EXPECT_TRUE(has(p, "TAG:title=Deutsch\n")) << p;
        }
        // Both events, at their times.
        const std::string events = probe(out, "packet=pts_time,duration_time", "-select_streams s");
        EXPECT_TRUE(has(events, "pts_time=0.000")) << events;
        EXPECT_TRUE(has(events, "pts_time=1.000")) << events;
        EXPECT_TRUE(has(events, "duration_time=0.500")) << events;
    }
}

// Audio the container does not take is transcoded, not dropped: AAC for MP4,
// Opus for WebM, with its language and its length.
TEST(VideoStreams, AudioTheContainerRefusesIsTranscoded) {
    NEEDS_FFMPEG();
    const std::string d = folder("audio"), src = d + "/src.mov";
    ASSERT_EQ(sh(ff +
                 "-f lavfi -i testsrc=size=96x64:rate=10:duration=2 -f lavfi -i sine=frequency=440:duration=2:"
                 "sample_rate=44100 -c:v libx264 -c:a pcm_s16le -metadata:s:a:0 language=fra " +
                 src),
              0);
    struct Case {
        const char *out, *codec;
    };
    const Case cases[] = {{"out.mp4", "aac"}, {"out.webm", "opus"}, {"out.mov", "pcm_s16le"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.out);
        const std::string out = d + "/" + c.out;
        const CommandRun r = command("video " + src + " " + out);
        ASSERT_EQ(r.status, 0) << r.err;
        const std::string p = probe(out, "stream=codec_name:stream_tags=language", "-select_streams a");
        EXPECT_TRUE(has(p, std::string("codec_name=") + c.codec + "\n")) << p;
        EXPECT_TRUE(has(p, "TAG:language=fra\n")) << p;
        // The whole two seconds, decoded.
        ASSERT_EQ(sh(ff + "-i " + out + " -map 0:a -f s16le -ac 1 -ar 8000 " + d + "/decoded.raw"), 0);
        const double seconds = double(slurp(d + "/decoded.raw").size()) / 2 / 8000;
        EXPECT_NEAR(seconds, 2.0, 0.05);
    }
}

// The colour tags say what the frames are: HDR input becomes 8-bit SDR
// BT.709, said once on stderr; SDR tags pass through.
TEST(VideoStreams, ColourTagsMatchTheFrames) {
    NEEDS_FFMPEG();
    const std::string d = folder("colour");
    const std::string hdr =
        "-f lavfi -i testsrc2=size=96x64:rate=10 -frames:v 5 -pix_fmt yuv420p10le "
        "-color_primaries bt2020 -colorspace bt2020nc -c:v ffv1 ";
    ASSERT_EQ(sh(ff + hdr + "-color_trc smpte2084 " + d + "/pq.mkv"), 0);
    ASSERT_EQ(sh(ff + hdr + "-color_trc arib-std-b67 " + d + "/hlg.mkv"), 0);
    ASSERT_EQ(sh(ff +
                 "-f lavfi -i testsrc2=size=96x64:rate=10 -frames:v 5 -pix_fmt yuv420p -color_primaries bt709 "
                 "-color_trc bt709 -colorspace bt709 -c:v ffv1 " +
                 d + "/sdr.mkv"),
              0);
    struct Case {
        const char *in, *out, *note, *tags;
    };
    const Case cases[] = {
        {"pq.mkv", "pq.mp4", "HDR (PQ) input written as 8-bit SDR, BT.709",
         "pix_fmt=yuv420p\ncolor_range=tv\ncolor_space=bt709\ncolor_transfer=bt709\ncolor_primaries=bt709\n"},
        {"hlg.mkv", "hlg.webm", "HDR (HLG) input written as 8-bit SDR, BT.709",
         "pix_fmt=yuv420p\ncolor_range=tv\ncolor_space=bt709\ncolor_transfer=bt709\ncolor_primaries=bt709\n"},
        {"pq.mkv", "pq-rgb.mkv", "HDR (PQ) input written as 8-bit SDR, BT.709",
         "pix_fmt=bgr0\ncolor_range=unknown\ncolor_space=unknown\ncolor_transfer=bt709\ncolor_primaries=bt709\n"},
        {"sdr.mkv", "sdr.mp4", nullptr,
         "pix_fmt=yuv420p\ncolor_range=tv\ncolor_space=bt709\ncolor_transfer=bt709\ncolor_primaries=bt709\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.out);
        const std::string out = d + "/" + c.out;
        const CommandRun r = command("video " + d + "/" + c.in + " " + out + " --effect solarize");
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err, c.note ? std::string("flairize: note: ") + d + "/" + c.in + ": " + c.note + "\n" : "");
        EXPECT_EQ(probe(out, "stream=pix_fmt,color_range,color_space,color_transfer,color_primaries"), c.tags);
    }
    // --quiet keeps the note to itself, and nothing else changes.
    const CommandRun quiet = command("video " + d + "/pq.mkv " + d + "/quiet.mp4 --effect solarize --quiet");
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(quiet.err, "");
}
