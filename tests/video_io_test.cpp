// flairize video's input and output: the output file's rules, limits checked
// before decoding, the memory the codecs hold, trimming, pipes, damage.
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <functional>
#include <sstream>

#include "tests/command_support.h"

#include "tests/sanitized.h"
#if defined(NDEBUG) && !defined(FLAIRIZE_SANITIZED)
#define VIDEO_IO_MEASURES_MEMORY 1
#endif

namespace {

using namespace testcli;

std::string folder(const std::string& name) {
    const std::string d = dir() + "/" + name;
    mkdir(d.c_str(), 0755);
    return d;
}

// flairize with `args` (through the shell), its status and its peak memory in bytes.
struct Measured {
    int status;
    std::string err;
    std::uint64_t peak;
};
Measured measured(const std::string& args) {
    const std::string err = dir() + "/measured.err";
    const std::string line = "exec " + std::string(FLAIRIZE_BIN) + " " + args + " >/dev/null 2>" + err;
    const pid_t pid = fork();
    if (pid == 0) {
        execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    struct rusage usage {};
    wait4(pid, &status, 0, &usage);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(err), std::uint64_t(usage.ru_maxrss) * 1024};
}

long framesIn(const std::string& video) {
    const std::string count = dir() + "/frame-count";
    sh("ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=nb_read_frames -of csv=p=0 " + video +
       " >" + count);
    return std::atol(slurp(count).c_str());
}

std::string rawFrames(const std::string& video, const char* layout = "bgr24") {
    const std::string raw = dir() + "/frames.raw";
    EXPECT_EQ(sh(ff + "-i " + video + " -f rawvideo -pix_fmt " + layout + " " + raw), 0) << video;
    return slurp(raw);
}

// A small clip of `frames` frames at 10 a second, lossless; `inputs` more
// inputs (audio), `extra` more output options.
std::string clip(const std::string& path, int width, int height, int frames, const std::string& extra = "",
                 const std::string& inputs = "") {
    EXPECT_EQ(sh(ff + "-f lavfi -i testsrc=size=" + std::to_string(width) + "x" + std::to_string(height) + ":rate=10 " +
                 inputs + " -frames:v " + std::to_string(frames) + " -c:v ffv1 " + extra + " " + path),
              0);
    return path;
}

void put(const std::string& path, const std::string& bytes, unsigned mode) {
    std::remove(path.c_str());
    std::ofstream(path, std::ios::binary) << bytes;
    chmod(path.c_str(), mode);
}

TEST(VideoIo, OutputFileFollowsTheCommandsRules) {
    NEEDS_FFMPEG();
    const std::string d = folder("vio-out"), src = clip(d + "/src.mkv", 32, 24, 5);
    put(d + "/ro.mkv", "old", 0444);
    put(d + "/real.mkv", "old", 0644);
    ASSERT_EQ(symlink("real.mkv", (d + "/link.mkv").c_str()), 0);
    put(d + "/kept.mkv", "old", 0640);
    struct Case {
        const char* what;
        std::string args, prefix;
        int status;
        std::string message;
        std::function<void()> after;
    };
    const Case cases[] = {
        {"read-only target", "video " + src + " " + d + "/ro.mkv", "", 2, "ro.mkv: is read-only",
         [&] { EXPECT_EQ(slurp(d + "/ro.mkv"), "old"); }},
        {"symlink written through", "video " + src + " " + d + "/link.mkv", "", 0, "",
         [&] {
             struct stat st {};
             ASSERT_EQ(lstat((d + "/link.mkv").c_str(), &st), 0);
             EXPECT_TRUE(S_ISLNK(st.st_mode)) << "the link was replaced";
             EXPECT_EQ(framesIn(d + "/real.mkv"), 5);
         }},
        {"replaced file keeps its mode", "video " + src + " " + d + "/kept.mkv", "umask 077; ", 0, "",
         [&] { EXPECT_EQ(modeOf(d + "/kept.mkv"), 0640u); }},
        {"new file takes the umask", "video " + src + " " + d + "/new.mkv", "umask 077; ", 0, "",
         [&] { EXPECT_EQ(modeOf(d + "/new.mkv"), 0600u); }},
        {"missing folder", "video " + src + " " + d + "/none/x.mkv", "", 2, "does not exist", nullptr},
    };
    for (const Case& c : cases) {
        const CommandRun r = command(c.args, c.prefix);
        EXPECT_EQ(r.status, c.status) << c.what << ": " << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), c.message.empty() ? 0 : 1) << c.what << ": " << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.what << ": " << r.err;
        if (c.after) c.after();
    }
    for (const char* name : {"ro.mkv", "real.mkv", "kept.mkv", "new.mkv"}) EXPECT_FALSE(temporaryOf(d, name)) << name;
}

TEST(VideoIo, HangupLeavesNoTemporary) {
    NEEDS_FFMPEG();
    const std::string d = folder("vio-hup"), src = clip(d + "/src.mkv", 320, 240, 300), out = d + "/OUT.mkv";
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        execl(FLAIRIZE_BIN, "flairize", "video", src.c_str(), out.c_str(), "--effect", "glass", "--threads", "1",
              nullptr);
        _exit(127);
    }
    bool seen = false;
    int status = 0;
    for (int i = 0; i < 6000 && !seen && waitpid(pid, &status, WNOHANG) == 0; ++i) {
        seen = temporaryOf(d, "OUT.mkv");
        if (!seen) usleep(5000);
    }
    if (seen) {
        kill(pid, SIGHUP);
        waitpid(pid, &status, 0);
    }
    ASSERT_TRUE(seen) << "the output was never being written";
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGHUP) << status;
    EXPECT_FALSE(temporaryOf(d, "OUT.mkv"));
    EXPECT_FALSE(exists(out));
}

// A video over the limits is refused from its header, before a frame is decoded.
TEST(VideoIo, OversizedVideoRefusedBeforeDecoding) {
    NEEDS_FFMPEG();
    const std::string d = folder("vio-big");
    ASSERT_EQ(sh(ff + "-f lavfi -i color=c=gray:s=9000x9000:d=0.1 -frames:v 1 -c:v ffv1 " + d + "/big.mkv"), 0);
    const struct {
        const char* option;
        const char* message;
    } cases[] = {
        {"--max-pixels 100", "big.mkv: picture too large (9000 \u00d7 9000, limit 100 pixels)\n"},
        {"--max-memory 64M", "big.mkv: picture too large (9000 \u00d7 9000, limit 64 MiB of memory; it needs "},
    };
    for (const auto& c : cases) {
        const Measured r = measured("video " + d + "/big.mkv " + d + "/out.mkv " + c.option);
        EXPECT_EQ(r.status, 2) << c.option;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        EXPECT_FALSE(exists(d + "/out.mkv"));
#ifdef VIDEO_IO_MEASURES_MEMORY
        // One decoded 9000 x 9000 frame alone would take 160 MB or more.
        EXPECT_LT(r.peak, 100u << 20) << c.option << ": the frame was decoded before the refusal";
#endif
    }
}

// The memory limit counts the decoder's and encoder's own frames: x264's
// look-ahead and threads are capped to fit, FFV1's worst-case packet refused.
TEST(VideoIo, MemoryLimitCountsTheCodecsFrames) {
    NEEDS_FFMPEG();
    const std::string d = folder("vio-budget"), src = d + "/src.mp4";
    ASSERT_EQ(sh(ff +
                 "-f lavfi -i testsrc=size=2000x2000:rate=25 -frames:v 12 -c:v libx264 -preset ultrafast "
                 "-pix_fmt yuv420p " +
                 src),
              0);
    const Measured x264 = measured("video " + src + " " + d + "/out.mp4 --max-memory 256M --threads 1");
    EXPECT_EQ(x264.status, 0) << x264.err;
    EXPECT_EQ(framesIn(d + "/out.mp4"), 12);
#ifdef VIDEO_IO_MEASURES_MEMORY
    // The limit covers the pictures; the program and its libraries take some 50 MB besides.
    EXPECT_LT(x264.peak, (256u + 80u) << 20) << "x264's frames were not held to the limit";
#endif
    const Measured ffv1 = measured("video " + src + " " + d + "/out.mkv --max-memory 256M --threads 1");
    EXPECT_EQ(ffv1.status, 2);
    EXPECT_NE(ffv1.err.find("src.mp4: picture too large (2000 \u00d7 2000, limit 256 MiB of memory; it needs "),
              std::string::npos)
        << ffv1.err;
    EXPECT_FALSE(exists(d + "/out.mkv"));
}

// FFmpeg's own want of memory is the command's one out-of-memory failure.
TEST(VideoIo, FfmpegOutOfMemoryIsTheOneMessage) {
    NEEDS_FFMPEG();
#ifdef FLAIRIZE_SANITIZED
    GTEST_SKIP() << "address space limits do not work under the sanitizers";
#endif
    const std::string d = folder("vio-oom"), src = clip(d + "/src.mkv", 1500, 1500, 4);
    int failures = 0;
    for (int kib = 200000; kib <= 900000; kib += 50000) {
        // Below some limit the program's libraries do not even load: no run of it to judge.
        if (command("--version", "ulimit -v " + std::to_string(kib) + "; ").status != 0) continue;
        const CommandRun r =
            command("video " + src + " " + d + "/out.mkv --threads 1", "ulimit -v " + std::to_string(kib) + "; ");
        if (r.status == 0) continue;
        ++failures;
        EXPECT_EQ(r.status, 1) << kib << ": " << r.err;
        EXPECT_EQ(r.err, "flairize: " + src + ": Not enough memory to complete operation\n") << kib;
        EXPECT_FALSE(temporaryOf(d, "out.mkv")) << kib;
    }
    EXPECT_GE(failures, 2);
}

// --threads never changes the bytes written; --codec-threads sets the encoder's.
TEST(VideoIo, CodecThreadsApartFromRenderThreads) {
    NEEDS_FFMPEG();
    const std::string d = folder("vio-threads"), src = clip(d + "/src.mkv", 160, 120, 20);
    for (const char* threads : {"1", "3"})
        ASSERT_EQ(
            command("video " + src + " " + d + "/t" + threads + ".mp4 --effect solarize --threads " + threads).status,
            0);
    const std::string one = slurp(d + "/t1.mp4");
    EXPECT_FALSE(one.empty());
    EXPECT_TRUE(one == slurp(d + "/t3.mp4")) << "--threads changed the bytes written";
    // x264 records its settings in the stream.
    for (const char* codecThreads : {"1", "2"}) {
        const std::string out = d + "/c" + std::string(codecThreads) + ".mp4";
        const CommandRun r = command("video " + src + " " + out + " --effect solarize --codec-threads " + codecThreads);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_NE(slurp(out).find(std::string(" threads=") + codecThreads + " "), std::string::npos) << codecThreads;
    }
    EXPECT_EQ(command("video " + src + " " + d + "/x.mp4 --codec-threads 0").status, 2);
}

// Where memory leaves room for fewer frames at once than --threads asks for,
// each frame converts and renders in bands on the threads left over: the bytes
// are still those of one thread. The caps span the point where three frames at
// once stop fitting, with the codecs' own frames still uncapped (x264's
// look-ahead of 40 frames is in its settings).
TEST(VideoIo, MemoryCappedFramesRenderInBands) {
    NEEDS_FFMPEG();
    const std::string d = folder("vio-bands");
    // Noise, so that a row that differs at a band's edge shows in the bytes.
    const std::string src = clip(d + "/src.mkv", 320, 240, 12, "-vf noise=alls=60:allf=t -pix_fmt yuv420p");
    const std::string options = " --effect solarize --codec-threads 1 --threads ";
    ASSERT_EQ(command("video " + src + " " + d + "/whole.mp4" + options + "1").status, 0);
    const std::string whole = slurp(d + "/whole.mp4");
    ASSERT_NE(whole.find(" rc_lookahead=40 "), std::string::npos);
    for (const char* cap : {"13M", "14M", "16M"}) {
        SCOPED_TRACE(cap);
        for (const char* threads : {"1", "3"}) {
            const std::string out = d + "/" + cap + "-" + threads + ".mp4";
            const CommandRun r = command("video " + src + " " + out + options + threads + " --max-memory " + cap);
            ASSERT_EQ(r.status, 0) << r.err;
            EXPECT_TRUE(slurp(out) == whole) << "--threads " << threads << " changed the bytes written";
        }
    }
}

// --from and --to keep part of the clip, its frames timed as a clip of their
// own; --progress renders every frame at one progress.
TEST(VideoIo, TrimmedClipAndFixedProgress) {
    NEEDS_FFMPEG();
    const std::string d = folder("vio-trim");
    const std::string src =
        clip(d + "/src.mkv", 67, 45, 20, "-c:a flac", "-f lavfi -i sine=sample_rate=8000:duration=2");
    ASSERT_EQ(sh(ff + "-i " + src + " -pix_fmt rgb24 " + d + "/src%d.png"), 0);  // src1.png is frame 0
    struct Case {
        const char* what;
        std::string options;
        int first, count;
        long progress;  // -1: the frame timing over `count` frames
    };
    const Case cases[] = {
        {"seconds", "--from 0.5 --to 1.2", 5, 7, -1},
        {"minutes and seconds", "--from 0:00.5 --to 00:00:01.2", 5, 7, -1},
        {"to only", "--to 0.3", 0, 3, -1},
        {"from only", "--from 1.6", 16, 4, -1},
        {"fixed progress", "--progress 5000", 0, 20, 5000},
        {"trimmed at a fixed progress", "--from 1.5 --progress 50%", 15, 5, 8192},
    };
    const std::string effect = " --effect solarize";
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string out = d + "/out.mkv";
        const CommandRun r = command("video " + src + " " + out + effect + " --direction Forward " + c.options);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err, "");
        std::vector<long> progress(std::size_t(c.count), c.progress);
        if (c.progress < 0) {
            std::istringstream timing(
                command("timing --frames " + std::to_string(c.count) + " --direction Forward").out);
            long frame, position, p;
            while (timing >> frame >> position >> p) progress[std::size_t(frame)] = p;
        }
        std::string expected;
        for (int i = 0; i < c.count; ++i) {
            const std::string in = d + "/src" + std::to_string(c.first + i + 1) + ".png", r1 = d + "/r.png";
            ASSERT_EQ(
                command("render " + in + " " + r1 + effect + " --progress " + std::to_string(progress[std::size_t(i)]))
                    .status,
                0);
            expected += rawFrames(r1);
        }
        EXPECT_TRUE(rawFrames(out) == expected) << "the frames differ from flairize render's";
    }
    for (const char* bad : {"--from 1:75", "--from -1", "--to 1.x", "--from 1 --to 0.5"}) {
        const CommandRun r = command("video " + src + " " + d + "/never.mkv " + bad);
        EXPECT_EQ(r.status, 2) << bad;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
    const CommandRun empty = command("video " + src + " " + d + "/never.mkv --from 5");
    EXPECT_EQ(empty.status, 2);
    EXPECT_NE(empty.err.find("no frames in the part chosen"), std::string::npos) << empty.err;
    EXPECT_FALSE(exists(d + "/never.mkv"));
}

// "-" reads standard input and writes standard output, streamed.
TEST(VideoIo, StandardInputAndOutput) {
    NEEDS_FFMPEG();
    const std::string d = folder("vio-pipe"), src = clip(d + "/src.mkv", 67, 45, 20);
    ASSERT_EQ(command("video " + src + " " + d + "/file.mkv --codec ffv1 --effect solarize").status, 0);
    const std::string expected = rawFrames(d + "/file.mkv");

    const CommandRun piped = command("video - - --frames 20 --codec ffv1 --effect solarize", "cat " + src + " | ");
    ASSERT_EQ(piped.status, 0) << piped.err;
    put(d + "/piped.mkv", piped.out, 0644);
    EXPECT_TRUE(rawFrames(d + "/piped.mkv") == expected) << "the piped frames differ";

    const CommandRun ts =
        command("video - " + d + "/out.ts --format ts --codec libx264 --progress 16384 --effect solarize",
                "cat " + src + " | ");
    ASSERT_EQ(ts.status, 0) << ts.err;
    sh("ffprobe -v error -show_entries format=format_name -of csv=p=0 " + d + "/out.ts >" + d + "/format");
    EXPECT_EQ(slurp(d + "/format"), "mpegts\n");
    EXPECT_EQ(framesIn(d + "/out.ts"), 20);

    const CommandRun uncounted = command("video - " + d + "/never.mkv", "cat " + src + " | ");
    EXPECT_EQ(uncounted.status, 2);
    EXPECT_NE(uncounted.err.find("give --frames N"), std::string::npos) << uncounted.err;
    EXPECT_FALSE(exists(d + "/never.mkv"));
    EXPECT_EQ(command("video " + src + " " + d + "/never.mkv --format avi").status, 2);

    // A reader that goes away fails the run (exit 1, as for a picture), said once.
    const std::string big = clip(d + "/big.mkv", 320, 240, 20);
    sh("(" + std::string(FLAIRIZE_BIN) + " video " + big + " - --codec ffv1 2>" + d +
       "/pipe.err; echo $? >" + d + "/pipe.status) | head -c 1 >/dev/null");
    EXPECT_EQ(slurp(d + "/pipe.status"), "1\n");
    const std::string err = slurp(d + "/pipe.err");
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_NE(err.find("-: "), std::string::npos) << err;
}

// A damaged frame is refused, saying which; --keep-going writes the rest.
TEST(VideoIo, DamagedClip) {
    NEEDS_FFMPEG();
    const std::string d = folder("vio-damage");
    const std::string src = clip(d + "/damaged.mkv", 64, 48, 60, "-level 3 -slicecrc 1");
    sh("ffprobe -v error -select_streams v -show_entries packet=pos,size -of csv=p=0 " + src + " | sed -n 45p >" + d +
       "/packet");
    long size = 0, pos = 0;
    char comma = 0;
    std::istringstream(slurp(d + "/packet")) >> size >> comma >> pos;
    ASSERT_GT(size, 200);
    {
        std::fstream f(src, std::ios::in | std::ios::out | std::ios::binary);
        f.seekp(pos + size / 3);
        f << std::string(100, 'U');
    }
    const CommandRun refused = command("video " + src + " " + d + "/out.mkv");
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.err.find("damaged.mkv: frame 44: damaged ("), std::string::npos) << refused.err;
    EXPECT_EQ(std::count(refused.err.begin(), refused.err.end(), '\n'), 1) << refused.err;
    EXPECT_FALSE(exists(d + "/out.mkv"));

    const CommandRun kept = command("video " + src + " " + d + "/out.mkv --keep-going");
    EXPECT_EQ(kept.status, 0) << kept.err;
    EXPECT_NE(kept.err.find("frame 44: damaged ("), std::string::npos) << kept.err;
    EXPECT_NE(kept.err.find("; wrote 59 of 60 frames\n"), std::string::npos) << kept.err;
    EXPECT_EQ(framesIn(d + "/out.mkv"), 59);
}

// Animated GIF and PNG play as videos; animated WebP is refused with the reason.
TEST(VideoIo, AnimatedPicturesAsInput) {
    NEEDS_FFMPEG();
    const std::string d = folder("vio-anim");
    const std::string make = ff + "-f lavfi -i testsrc=size=64x48:rate=5 -frames:v 4 ";
    ASSERT_EQ(sh(make + d + "/a.gif"), 0);
    ASSERT_EQ(sh(make + "-plays 0 " + d + "/a.apng"), 0);
    for (const char* name : {"a.gif", "a.apng"}) {
        const CommandRun r = command("video " + d + "/" + name + " " + d + "/" + name + ".mkv --effect solarize");
        EXPECT_EQ(r.status, 0) << name << ": " << r.err;
        EXPECT_EQ(framesIn(d + "/" + name + ".mkv"), 4) << name;
    }
    if (sh(make + "-c:v libwebp_anim -loop 0 " + d + "/a.webp") != 0) return;  // no WebP encoder to make one
    const CommandRun webp = command("video " + d + "/a.webp " + d + "/never.mkv");
    EXPECT_EQ(webp.status, 2);
    EXPECT_NE(webp.err.find("a.webp: an animated WebP"), std::string::npos) << webp.err;
    EXPECT_FALSE(exists(d + "/never.mkv"));
}

}  // namespace
