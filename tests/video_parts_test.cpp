// A clip or a batch split into parts: `video --part I/N` renders frames at
// their place in the whole clip, `join` puts the parts together by stream copy
// (or refuses parts that do not fit), `render --part` takes every N-th picture.
#include <algorithm>
#include <string>
#include <vector>

#include "tests/command_support.h"

namespace {

using namespace testcli;

std::string folder(const std::string& name) {
    const std::string d = dir() + "/" + name;
    sh("rm -rf '" + d + "' && mkdir -p '" + d + "'");
    return d;
}

// One MD5 a decoded frame (or audio packet) of the stream chosen, in order.
std::string hashes(const std::string& video, const std::string& stream = "0:v") {
    const std::string out = dir() + "/hashes";
    const std::string copy = stream == "0:a" ? " -c copy" : "";
    sh(ff + "-i " + video + " -map " + stream + copy + " -f framemd5 - 2>/dev/null | grep -v '^#' | awk '{print $NF}' >" +
       out);
    return slurp(out);
}

long lines(const std::string& text) { return long(std::count(text.begin(), text.end(), '\n')); }

const char* const kEffect = " --effect solarize --direction Cycle --speed 30 -q";

}  // namespace

// Parts of a clip whose frames are not all keyframes (H.264 with B-frames, so
// every part but the first starts by seeking), split unevenly: joined, they
// are the single run's frames and audio; each holds its share of the frames.
TEST(VideoParts, JoinedPartsAreTheSingleRun) {
    NEEDS_FFMPEG();
    const std::string d = folder("parts-join");
    ASSERT_EQ(sh(ff + "-f lavfi -i testsrc=size=64x48:rate=10 -f lavfi -i sine=sample_rate=8000 -t 2.3 -c:v libx264 "
                      "-g 6 -bf 2 -c:a flac " + d + "/in.mkv"), 0);
    ASSERT_EQ(command("video " + d + "/in.mkv " + d + "/single.mkv" + kEffect).status, 0);
    const std::string single = hashes(d + "/single.mkv");
    ASSERT_EQ(lines(single), 23);
    // 23 frames in 3: [0, 7), [7, 15), [15, 23); the parts given out of order.
    const long share[] = {7, 8, 8};
    std::string parts;
    for (int i : {2, 0, 1}) {
        const std::string part = d + "/p" + std::to_string(i) + ".mkv";
        const CommandRun r = command("video " + d + "/in.mkv " + part + " --part " + std::to_string(i) +
                                     "/3 --count-file " + d + "/frames" + kEffect);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(lines(hashes(part)), share[i]) << part;
        EXPECT_EQ(hashes(part, "0:a"), "") << part << ": a part holds the video alone";
        parts += " " + part;
    }
    const CommandRun r = command("join" + parts + " " + d + "/joined.mkv --audio-from " + d + "/in.mkv");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(hashes(d + "/joined.mkv"), single);
    EXPECT_EQ(hashes(d + "/joined.mkv", "0:a"), hashes(d + "/single.mkv", "0:a"));
    EXPECT_NE(hashes(d + "/joined.mkv", "0:a"), "");
    // Rendered with each part's own timing (frames 0..7 of 7), the parts would differ.
    ASSERT_EQ(command("video " + d + "/p1.mkv " + d + "/alone.mkv" + kEffect).status, 0);
    EXPECT_NE(hashes(d + "/alone.mkv"), hashes(d + "/p1.mkv"));
}

// Parts that do not make one clip, and --part given wrongly: refused with the reason.
TEST(VideoParts, RefusesPartsThatDoNotFit) {
    NEEDS_FFMPEG();
    const std::string d = folder("parts-refuse");
    ASSERT_EQ(sh(ff + "-f lavfi -i testsrc=size=32x24:rate=10 -t 1.2 -c:v ffv1 " + d + "/in.mkv"), 0);
    ASSERT_EQ(sh(ff + "-f lavfi -i testsrc=size=40x24:rate=10 -t 1.2 -c:v ffv1 " + d + "/wide.mkv"), 0);
    ASSERT_EQ(sh(ff + "-f lavfi -i testsrc=size=32x24:rate=10 -t 1 -c:v ffv1 " + d + "/ten.mkv"), 0);
    const std::string in = d + "/in.mkv";
    auto part = [&](const std::string& source, int i, int n, const std::string& out, const std::string& more = "") {
        const CommandRun r = command("video " + source + " " + d + "/" + out + " --part " + std::to_string(i) + "/" +
                                     std::to_string(n) + kEffect + more);
        EXPECT_EQ(r.status, 0) << out << ": " << r.err;
    };
    part(in, 0, 3, "a0.mkv");
    part(in, 1, 3, "a1.mkv");
    part(in, 2, 3, "a2.mkv");
    part(in, 1, 2, "half1.mkv");
    part(d + "/wide.mkv", 1, 3, "wide1.mkv");
    part(in, 1, 3, "x264.mkv", " --codec libx264");
    part(in, 1, 3, "rgb.mkv", " --pix-fmt yuv444p");
    ASSERT_EQ(sh("head -c $(($(stat -c %s " + d + "/a2.mkv) / 2)) " + d + "/a2.mkv >" + d + "/short.mkv"), 0);
    ASSERT_EQ(command("video " + in + " " + d + "/whole.mkv" + kEffect).status, 0);
    const std::string a0 = d + "/a0.mkv", a2 = d + "/a2.mkv", out = " " + d + "/out.mkv --audio-from " + in;
    struct Case {
        const char* what;
        std::string args;
        std::string message;
    };
    const Case cases[] = {
        {"a part missing", "join " + a0 + " " + a2 + out, "part 1 of 3 missing (2 given)"},
        {"two missing", "join " + a2 + out, "parts 0, 1 of 3 missing"},
        {"a part twice", "join " + a0 + " " + d + "/a1.mkv " + d + "/a1.mkv " + a2 + out, "are both part 1/3"},
        {"another split", "join " + a0 + " " + d + "/half1.mkv " + a2 + out, "split the clip differently"},
        {"another size", "join " + a0 + " " + d + "/wide1.mkv " + a2 + out, "is 40 x 24, " + a0 + " 32 x 24"},
        {"another codec", "join " + a0 + " " + d + "/x264.mkv " + a2 + out, "is h264 video, " + a0 + " ffv1"},
        {"other settings", "join " + a0 + " " + d + "/rgb.mkv " + a2 + out, "encoded with other settings"},
        {"a part cut short", "join " + a0 + " " + d + "/a1.mkv " + d + "/short.mkv" + out, "short.mkv: holds 1 frames, not the 4 of its part"},
        {"not a part", "join " + d + "/whole.mkv" + out, "not a part that flairize video --part wrote"},
        {"no original", "join " + a0 + " " + d + "/out.mkv", "needs --audio-from IN"},
        {"another original", "join " + a0 + " " + d + "/a1.mkv " + a2 + " " + d + "/out.mkv --audio-from " + d + "/ten.mkv",
         "ten.mkv: has 10 frames, the parts' clip 12"},
        {"part past the end", "video " + in + " " + d + "/p.mkv --part 3/3", "expected I/N with 0 <= I < N"},
        {"no count of parts", "video " + in + " " + d + "/p.mkv --part 1/0", "expected I/N"},
        {"not numbers", "video " + in + " " + d + "/p.mkv --part a/b", "expected I/N"},
        {"an empty part", "video " + in + " " + d + "/p.mkv --part 5/20", "no frames in it (the clip has 12)"},
        {"part and trim", "video " + in + " " + d + "/p.mkv --part 0/2 --from 0.5", "--from and --to cannot go with it"},
        {"part and frames", "video " + in + " " + d + "/p.mkv --part 0/2 --frames 9", "--frames cannot go with it"},
        {"part from a pipe", "video - " + d + "/p.mkv --part 0/2 --progress 1", "not pipes"},
        {"count file alone", "video " + in + " " + d + "/p.mkv --count-file " + d + "/c", "goes with --part"},
        {"render part alone", "render " + in + " " + d + "/p.png --part 0/2", "go with --output-dir"},
    };
    for (const Case& c : cases) {
        const CommandRun r = command(c.args);
        EXPECT_EQ(r.status, 2) << c.what << ": " << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.what << ": " << r.err;
        EXPECT_FALSE(exists(d + "/out.mkv")) << c.what;
        EXPECT_FALSE(exists(d + "/p.mkv")) << c.what;
    }
    // A count file is the clip's own: one made for another input is refused, not used.
    ASSERT_EQ(command("video " + in + " " + d + "/c0.mkv --part 0/2 --count-file " + d + "/count" + kEffect).status, 0);
    const CommandRun other = command("video " + d + "/wide.mkv " + d + "/c1.mkv --part 1/2 --count-file " + d +
                                     "/count" + kEffect);
    EXPECT_EQ(other.status, 2) << other.err;
    EXPECT_NE(other.err.find("the frame times of another input"), std::string::npos) << other.err;
}

// render --part I/N: every N-th picture of the sorted list, wherever the
// inputs were listed; the parts together are the whole batch, each once.
TEST(VideoParts, BatchParts) {
    const std::string d = folder("parts-batch");
    std::vector<std::string> names;
    for (const char* name : {"e", "b", "d", "a", "c", "f", "g"}) {
        picture("parts-batch/" + std::string(name) + ".png", 20 + int(names.size()), 12, 24);
        names.push_back(d + "/" + name + ".png");
    }
    std::string listed;
    for (const std::string& n : names) listed += " " + n;
    ASSERT_EQ(command("render" + listed + " --output-dir " + d + "/all --effect mosaic -q").status, 0);
    const char* const expected[3] = {"a d g", "b e", "c f"};   // sorted: a b c d e f g
    for (int i = 0; i < 3; ++i) {
        const std::string out = d + "/part" + std::to_string(i);
        const CommandRun r = command("render" + listed + " --output-dir " + out + " --effect mosaic -q --part " +
                                     std::to_string(i) + "/3");
        ASSERT_EQ(r.status, 0) << r.err;
        sh("ls " + out + " | sed 's/-mosaic.png//' | tr '\\n' ' ' | sed 's/ $//' >" + d + "/listed");
        EXPECT_EQ(slurp(d + "/listed"), expected[i]) << "part " << i;
        for (char c : std::string(expected[i])) {
            if (c == ' ') continue;
            EXPECT_EQ(slurp(out + "/" + c + "-mosaic.png"), slurp(d + "/all/" + c + "-mosaic.png")) << c;
        }
    }
}
