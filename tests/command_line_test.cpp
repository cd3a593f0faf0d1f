#include <gtest/gtest.h>

#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "engine/flairize.h"
#include "standalone/cli.h"
#include "standalone/help.h"
#include "standalone/picture_io.h"
#include "tests/command_support.h"
#include "tests/picture_support.h"

using namespace testpic;
using namespace testcli;

TEST(CommandLine, OptionsAsAUserTypesThem) {
    const std::pair<const char*, int> names[] = {{"find-edges", 6}, {"FIND EDGES", 6}, {"lens-flare", 8}, {"bubbles", 36},
                                                 {"colorpencil", 35}, {"37", 37}, {"38", -1}, {"-1", -1}, {"", -1}};
    for (const auto& n : names) EXPECT_EQ(cli::findEffect(n.first), n.second) << n.first;

    // Colour forms: red first, any case, "#" optional; a settings block shows the COLORREF.
    const std::string flr = dir() + "/c.flr";
    for (const char* form : {"1a2b3c", "#1A2B3C", "1A2b3C"}) {
        ASSERT_EQ(command(std::string("settings ") + flr + " --colour '" + form + "'").status, 0);
        const std::string block = slurp(flr);
        ASSERT_EQ(block.size(), 20u);
        EXPECT_EQ(block.substr(16), std::string("\x1a\x2b\x3c\x00", 4)) << form;
    }
}

// Every effect of the catalogue is described for the front ends, and each
// shown slider's option sets that slider through the command.
TEST(CommandLine, CatalogueDescribesEveryEffect) {
    const std::vector<std::string> categories = {"Artistic", "Blur", "Distort", "Stylize", "Texture"};
    const std::vector<std::string> known = cli::sliderOptions();
    std::vector<std::string> slugs;
    for (unsigned e = 0; e < flairize::effectCount(); ++e) {
        SCOPED_TRACE(flairize::effectName(e));
        const std::string slug = flairize::effectSlug(e), description = flairize::effectDescription(e);
        EXPECT_EQ(flairize::effectOffered(e), flairize::effectName(e)[0] != '*');   // as the dialog lists it
        EXPECT_EQ(slug.find_first_not_of("abcdefghijklmnopqrstuvwxyz-"), std::string::npos);
        EXPECT_EQ(cli::findEffect(slug.c_str()), int(e));
        slugs.push_back(slug);
        EXPECT_TRUE(description.size() > 20 && description.back() == '.') << description;
        EXPECT_NE(std::find(categories.begin(), categories.end(), flairize::effectCategory(e)), categories.end());
        std::string args = "settings " + dir() + "/o.flr --effect " + slug;
        std::vector<std::string> options;
        for (int k = 0; k < 3; ++k) {
            const std::string option = flairize::sliderOption(e, k), meaning = flairize::sliderMeaning(e, k);
            if (!flairize::sliderLabelId(e, k)) {
                EXPECT_TRUE(option.empty() && meaning.empty()) << k;
                continue;
            }
            EXPECT_FALSE(meaning.empty()) << k;
            EXPECT_LE(flairize::sliderMinimum(e, k), flairize::sliderDefault(e, k));
            EXPECT_LE(flairize::sliderDefault(e, k), flairize::sliderMaximum(e, k));
            EXPECT_EQ(std::count(options.begin(), options.end(), option), 0) << option;
            EXPECT_NE(std::find(known.begin(), known.end(), option), known.end()) << option;
            options.push_back(option);
            args += " --" + option + " " + std::to_string(11 * (k + 1));
        }
        // The options given set their own sliders, with no warning.
        const CommandRun r = command(args);
        ASSERT_EQ(r.status, 0) << args << r.err;
        // (a placeholder, which renders a blank picture, is said to be one)
        const bool blank = description == "Not offered: renders no picture of its own.";
        EXPECT_EQ(r.err, blank ? "flairize: warning: " + slug + " is a placeholder and renders a blank picture\n" : "")
            << args;
        const std::string block = slurp(dir() + "/o.flr");
        ASSERT_EQ(block.size(), std::size_t(kSettingsBlockSize));
        const SettingsRecord record = flairize::decodeSettingsBlock(reinterpret_cast<const std::uint8_t*>(block.data()));
        const std::uint16_t values[3] = {record.param1, record.param2, record.param3};
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(values[k], flairize::sliderLabelId(e, k) ? 11 * (k + 1) : flairize::sliderDefault(e, k)) << k;
    }
    std::sort(slugs.begin(), slugs.end());
    EXPECT_EQ(std::adjacent_find(slugs.begin(), slugs.end()), slugs.end());
}

TEST(CommandLine, HelpNamesAndWarnings) {
    const std::string in = picture("h.bmp", 9, 6, 24), out = dir() + "/h.bmp";
    struct Case { std::string args; int status; bool onStdout; std::string text; };
    const Case cases[] = {
        {"--help", 0, true, "Commands:"},
        {"render -h", 0, true, "--progress P"},
        {"help sequence", 0, true, "OUTPATTERN"},
        {"--version", 0, true, "flairize "},
        {"rendr", 2, false, "did you mean \"render\"?"},
        {"render " + in + " " + out + " --effect posterise", 2, false, "did you mean \"posterize\"?"},
        {"render " + in + " " + out + " --colur 1", 2, false, "did you mean \"--colour\"?"},
        {"timing --frames 2 --speed -125", 2, false, "-124 to 127"},
        {"render " + in + " " + out + " --progress 101%", 2, false, "--progress"},
        {"render " + in + " " + out + " --effect posterize --p2 4", 0, false, "warning: --p2 has no effect on posterize"},
        {"render " + in + " " + out + " --effect mosaic --amount 4", 0, false, "warning: --amount has no effect on mosaic"},
    };
    for (const Case& c : cases) {
        const CommandRun r = command(c.args);
        EXPECT_EQ(r.status, c.status) << c.args;
        EXPECT_NE((c.onStdout ? r.out : r.err).find(c.text), std::string::npos) << c.args << " -> " << r.out << r.err;
    }

    // Sliders by label and progress as a fraction or percentage render what the plain forms render.
    const std::pair<std::string, std::string> same[] = {
        {"--effect posterize --colors 33", "--effect posterize --p1 33"},
        {"--effect shake --amount 200 --angle 64", "--effect shake --p2 200 --p1 64"},
        {"--effect solarize --progress 50%", "--effect solarize --progress 8192"},
        {"--effect solarize --progress 0.25", "--effect solarize --progress 4096"},
    };
    for (const auto& [a, b] : same) {
        ASSERT_EQ(command("render " + in + " " + dir() + "/a.bmp " + a).status, 0) << a;
        ASSERT_EQ(command("render " + in + " " + dir() + "/b.bmp " + b).status, 0) << b;
        EXPECT_EQ(slurp(dir() + "/a.bmp"), slurp(dir() + "/b.bmp")) << a;
    }
}

TEST(CommandLine, SettingsBlocksWriteAndLoad) {
    const std::string flr = dir() + "/s.flr";
    ASSERT_EQ(command("settings " + flr).status, 0);
    EXPECT_EQ(slurp(flr), std::string("\x19\0\0\0\0\0\0\0\0\0\0\0\x02\0\0\0\0\0\0\0", 20));
    // Choosing an effect loads its defaults; slider options override them.
    ASSERT_EQ(command("settings " + flr + " --effect crosshair --p2 9 --direction 'Reverse Cycle'").status, 0);
    EXPECT_EQ(slurp(flr), std::string("\x22\0\0\0\0\0\xff\0\x09\0\0\0\x03\0\0\0\0\0\0\0", 20));

    // A render from the block equals a render from the same options.
    const std::string in = picture("s.bmp", 9, 6, 24);
    ASSERT_EQ(command("settings " + flr + " --effect posterize --p1 33").status, 0);
    ASSERT_EQ(command("render " + in + " " + dir() + "/s1.bmp --settings " + flr).status, 0);
    ASSERT_EQ(command("render " + in + " " + dir() + "/s2.bmp --effect posterize --p1 33").status, 0);
    EXPECT_EQ(slurp(dir() + "/s1.bmp"), slurp(dir() + "/s2.bmp"));

    // A block that ends early is damaged.
    std::ofstream(dir() + "/short.flr", std::ios::binary) << std::string("\x0b\0\0\0", 4);
    const CommandRun r = command("render " + in + " " + dir() + "/never.bmp --settings " + dir() + "/short.flr");
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("short.flr: This project file is damaged, cannot load"), std::string::npos) << r.err;
    EXPECT_FALSE(exists(dir() + "/never.bmp"));
}

TEST(CommandLine, SequenceAndTimingFollowSetupFrame) {
    const CommandRun t = command("timing --frames 5 --speed 25 --direction Cycle");
    ASSERT_EQ(t.status, 0);
    EXPECT_EQ(t.out, "0 0 0\n1 4096 2048\n2 8192 8192\n3 12288 14336\n4 16384 0\n");
    const CommandRun back = command("timing --frames 3 --direction backward");
    EXPECT_EQ(back.out, "0 0 16384\n1 8192 8192\n2 16384 0\n");

    const std::string in = picture("seq.bmp", 8, 5, 24);
    ASSERT_EQ(command("sequence " + in + " " + dir() + "/f%03d.bmp --frames 3 --effect solarize --speed 25").status, 0);
    const std::uint32_t positions[] = {0, 8192, 16384};
    for (int i = 0; i < 3; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "/f%03d.bmp", i);
        const std::string progress = std::to_string(flairize::speedCurve(positions[i], 25));
        ASSERT_EQ(command("render " + in + " " + dir() + "/one.bmp --effect solarize --progress " + progress).status, 0);
        EXPECT_EQ(slurp(dir() + name), slurp(dir() + "/one.bmp")) << i;
    }
    EXPECT_FALSE(exists(dir() + "/f003.bmp"));
    EXPECT_EQ(command("sequence " + in + " " + dir() + "/nopattern.bmp --frames 2 --effect 11").status, 2);
    ASSERT_EQ(command("sequence " + in + " " + dir() + "/long%070d.bmp --frames 2 --effect 11").status, 0);
    EXPECT_TRUE(exists(dir() + "/long" + std::string(69, '0') + "1.bmp"));

    // Several frames at once give the frames of one thread; a frame that cannot
    // be written stops the run there, keeping the frames before it and none after.
    const std::string big = picture("seqbig.bmp", 67, 45, 24);
    ASSERT_EQ(command("sequence " + big + " " + dir() + "/one%02d.bmp --frames 9 --effect frazzle --threads 1").status, 0);
    ASSERT_EQ(command("sequence " + big + " " + dir() + "/three%02d.bmp --frames 9 --effect frazzle --threads 3").status, 0);
    for (int i = 0; i < 9; ++i) {
        char a[32], b[32];
        std::snprintf(a, sizeof a, "/one%02d.bmp", i);
        std::snprintf(b, sizeof b, "/three%02d.bmp", i);
        EXPECT_EQ(slurp(dir() + a), slurp(dir() + b)) << i;
        EXPECT_FALSE(slurp(dir() + a).empty()) << i;
    }
    ASSERT_EQ(mkdir((dir() + "/cut05.bmp").c_str(), 0755), 0);
    const CommandRun cut = command("sequence " + big + " " + dir() + "/cut%02d.bmp --frames 12 --effect 11 --threads 3");
    EXPECT_EQ(cut.status, 2);
    EXPECT_NE(cut.err.find("cut05.bmp: is a folder"), std::string::npos) << cut.err;
    for (int i = 0; i < 12; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "/cut%02d.bmp", i);
        if (i != 5) {
            EXPECT_EQ(exists(dir() + name), i < 5) << i;
        }
    }
}

TEST(CommandLine, BadInputIsRefusedClearly) {
    const std::string in = picture("bad.bmp", 4, 4, 24);
    std::ofstream(dir() + "/junk.bmp") << "BM not really";
    struct Case { std::string args; int status; std::string message; };
    const Case cases[] = {
        {"render " + dir() + "/junk.bmp " + dir() + "/o.bmp --effect 11", 2, "junk.bmp: "},
        {"render " + dir() + "/absent.bmp " + dir() + "/o.bmp --effect 11", 2, "absent.bmp: No such file"},
        {"render " + in + " " + dir() + "/o.bmp --effect 11 --progress 16385", 2, "--progress"},
        {"render " + in + " " + dir() + "/o.bmp --effect 11 --colour 12345g", 2, "--colour"},
        {"render " + in + " " + dir() + "/o.bmp --effect 11 --bogus", 2, "--bogus"},
        {"render " + in + " " + dir() + "/o.gif --effect 11", 2, "o.gif: unknown picture format"},
        {"render " + in, 2, "render needs IN and OUT"},
        {"frobnicate", 2, "unknown command"},
        {"timing --frames 0", 2, "--frames"},
        {"timing --frames 3 --direction sideways", 2, "--direction"},
    };
    for (const Case& c : cases) {
        const CommandRun r = command(c.args);
        EXPECT_EQ(r.status, c.status) << c.args;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.args << " -> " << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
    EXPECT_FALSE(exists(dir() + "/o.bmp"));
    EXPECT_FALSE(exists(dir() + "/o.gif"));
}

TEST(CommandLine, OutputFilesAndExits) {
    const std::string in = picture("io.bmp", 6, 4, 24), d = dir() + "/io";
    ASSERT_EQ(mkdir(d.c_str(), 0755), 0);
    auto put = [](const std::string& path, const char* text, unsigned mode) {
        std::ofstream(path) << text;
        chmod(path.c_str(), mode);
    };
    auto isPng = [](const std::string& path) { return slurp(path).rfind("\x89PNG", 0) == 0; };
    struct Case {
        std::string what, args, prefix;
        int status;
        std::string message;
        std::function<void(const CommandRun&)> after;
    };
    const Case cases[] = {
        {"read-only target", "render " + in + " " + d + "/ro.png", "", 2, "ro.png: is read-only",
         [&](const CommandRun&) { EXPECT_EQ(slurp(d + "/ro.png"), "old"); }},
        {"symlink target", "render " + in + " " + d + "/link.png", "", 0, "",
         [&](const CommandRun&) {
             struct stat st {};
             EXPECT_TRUE(lstat((d + "/link.png").c_str(), &st) == 0 && S_ISLNK(st.st_mode));
             EXPECT_TRUE(isPng(d + "/real.png"));
         }},
        {"new file", "render " + in + " " + d + "/new.png", "umask 027; ", 0, "",
         [&](const CommandRun&) { EXPECT_EQ(modeOf(d + "/new.png"), 0640u); }},
        {"replaced file", "render " + in + " " + d + "/kept.png", "umask 077; ", 0, "",
         [&](const CommandRun&) {
             EXPECT_EQ(modeOf(d + "/kept.png"), 0604u);
             EXPECT_TRUE(isPng(d + "/kept.png"));
         }},
        {"folder input", "render " + d + " " + d + "/x.png", "", 2, "io: is a folder", nullptr},
        {"missing folder", "render " + in + " " + d + "/none/o.png", "", 2, "none/o.png: the folder", nullptr},
        {"JPEG from standard input, PNG to standard output", "render - - --effect 11 <" + d + "/in.jpg", "", 0, "",
         [&](const CommandRun& r) { EXPECT_EQ(r.out, slurp(d + "/ref.png")); }},
        {"--quality where it does not apply", "render " + in + " " + d + "/q.tif --quality 50", "", 0,
         "warning: --quality", [&](const CommandRun&) { EXPECT_TRUE(exists(d + "/q.tif")); }},
        {"--quality out of range", "render " + in + " " + d + "/q.jpg --quality 0", "", 2, "--quality", nullptr},
    };
    put(d + "/ro.png", "old", 0444);
    put(d + "/real.png", "old", 0644);
    ASSERT_EQ(symlink("real.png", (d + "/link.png").c_str()), 0);
    put(d + "/kept.png", "old", 0604);
    ASSERT_EQ(command("render " + in + " " + d + "/in.jpg --effect 11").status, 0);
    ASSERT_EQ(command("render " + d + "/in.jpg " + d + "/ref.png --effect 11").status, 0);
    for (const Case& c : cases) {
        const CommandRun r = command(c.args, c.prefix);
        EXPECT_EQ(r.status, c.status) << c.what << ": " << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), c.message.empty() ? 0 : 1) << c.what << ": " << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.what << ": " << r.err;
        if (c.after) c.after(r);
    }
    for (const char* name : {"ro.png", "real.png", "new.png", "kept.png", "q.tif"}) EXPECT_FALSE(temporaryOf(d, name)) << name;
}

// Every frame of `flairize video` equals `flairize render` of its source frame
// at the progress `flairize timing` gives it, on one thread and on three.
TEST(CommandLine, VideoFramesAreRendersAtTheirTiming) {
#if !FLAIRIZE_VIDEO
    GTEST_SKIP() << "flairize was built without FFmpeg's libav* libraries";
#endif
    if (std::system("ffmpeg -version >/dev/null 2>&1 && ffprobe -version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "the ffmpeg and ffprobe commands are not installed";
    const std::string ff = "ffmpeg -v error -y ";
    auto sh = [](const std::string& cmd) { return std::system(cmd.c_str()); };
    struct Case {
        const char *name, *source, *layout, *effect, *timing;
        int bytes;
        bool audio;
    };
    const Case cases[] = {
        {"rgb", "testsrc=size=67x45:rate=10", "bgr24", "--effect solarize", "--speed 25 --direction Cycle", 3, true},
        {"alpha", "testsrc=size=67x45:rate=10,format=rgba,geq=r='r(X,Y)':g='g(X,Y)':b='b(X,Y)':a='X*4'", "bgra",
         "--effect find-edges --colour 20c040", "--speed -50 --direction Backward", 4, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string d = dir() + "/video-" + c.name, src = d + "/src.mkv";
        mkdir(d.c_str(), 0755);
        ASSERT_EQ(sh(ff + "-f lavfi -i \"" + c.source + "\"" + (c.audio ? " -f lavfi -i sine=sample_rate=8000 -c:a flac" : "") +
                     " -frames:v 7 -t 0.7 -c:v ffv1 " + src),
                  0);
        for (const char* threads : {"1", "3"}) {
            const std::string out = d + "/out" + threads;
            const CommandRun r = command("video " + src + " " + out + ".mkv " + c.effect + " " + c.timing + " --threads " + threads);
            ASSERT_EQ(r.status, 0) << r.err;
            ASSERT_EQ(sh(ff + "-i " + out + ".mkv -f rawvideo -pix_fmt " + c.layout + " " + out + ".raw"), 0);
        }
        const std::string frames = slurp(d + "/out1.raw");
        EXPECT_TRUE(frames == slurp(d + "/out3.raw")) << "the frames differ between 1 and 3 threads";

        // The same frames one by one through flairize render.
        ASSERT_EQ(sh(ff + "-i " + src + " -pix_fmt " + (c.bytes == 4 ? "rgba " : "rgb24 ") + d + "/src%d.png"), 0);
        std::istringstream timing(command(std::string("timing --frames 7 ") + c.timing).out);
        long frame = 0, position = 0, progress = 0;
        int rendered = 0;
        while (timing >> frame >> position >> progress) {
            const std::string n = std::to_string(frame + 1);
            ASSERT_EQ(command("render " + d + "/src" + n + ".png " + d + "/r" + n + ".png " + c.effect +
                              " --progress " + std::to_string(progress))
                          .status,
                      0);
            ++rendered;
        }
        ASSERT_EQ(rendered, 7);
        ASSERT_EQ(sh(ff + "-i " + d + "/r%d.png -f rawvideo -pix_fmt " + c.layout + " " + d + "/expected.raw"), 0);
        EXPECT_EQ(frames.size(), std::size_t(7 * 67 * 45 * c.bytes));
        EXPECT_TRUE(frames == slurp(d + "/expected.raw")) << "the frames differ from flairize render's";

        sh("ffprobe -v error -select_streams a -show_entries stream=codec_name -of csv=p=0 " + d + "/out1.mkv >" + d +
           "/audio");
        EXPECT_EQ(slurp(d + "/audio"), c.audio ? "flac\n" : "");
    }

    // A clip cut by an edit list: its frames are counted, not the samples the MP4 header lists.
    const std::string cut = dir() + "/cut.mp4";
    if (sh(ff + "-f lavfi -i testsrc=size=64x48:rate=10 -t 2 -c:v libx264 -g 10 " + dir() + "/uncut.mp4") == 0 &&
        sh(ff + "-ss 0.35 -i " + dir() + "/uncut.mp4 -c copy " + cut) == 0) {
        const CommandRun r = command("video " + cut + " " + dir() + "/cut.mkv --effect solarize");
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.err, "") << "the frame count was not the number of frames";
    }

    // A file that is not a video is refused and leaves nothing behind, not even the temporary.
    std::ofstream(dir() + "/novideo.mkv") << "not a video";
    const CommandRun bad = command("video " + dir() + "/novideo.mkv " + dir() + "/never.mkv");
    EXPECT_EQ(bad.status, 2);
    EXPECT_NE(bad.err.find("novideo.mkv: "), std::string::npos) << bad.err;
    EXPECT_EQ(std::count(bad.err.begin(), bad.err.end(), '\n'), 1) << bad.err;
    EXPECT_EQ(command("video " + dir() + "/video-rgb/src.mkv " + dir() + "/never.mkv --codec none-such").status, 2);

    // Out of memory at allocations spread over the frames (Glass allocates most,
    // three threads keep frames in flight): exit 1, one message, the partial output removed.
    int failures = 0;
    for (long n = 1, step = 1;; n += step, step += step / 2 + 1) {
        const CommandRun r = command("video " + dir() + "/video-rgb/src.mkv " + dir() + "/never.mkv --effect glass --threads 3",
                                     "FLAIRIZE_FAIL_ALLOCATION=" + std::to_string(n) + " ");
        if (r.status == 0) {
            std::remove((dir() + "/never.mkv").c_str());
            break;
        }
        ++failures;
        EXPECT_EQ(r.status, 1) << n;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_NE(r.err.find(": Not enough memory to complete operation\n"), std::string::npos) << r.err;
        EXPECT_EQ(sh("ls " + dir() + " | grep -q '^never'"), 256) << "a partial output is left after allocation " << n;
        ASSERT_LT(n, 2000);
    }
    EXPECT_GE(failures, 5);
    EXPECT_EQ(sh("ls " + dir() + " | grep -q '^never'"), 256) << "a partial output is left";
}

namespace {

void put32(std::string& s, std::size_t at, std::uint32_t v, bool bigEndian) {
    for (int i = 0; i < 4; ++i) s[at + std::size_t(i)] = char(v >> (bigEndian ? 24 - 8 * i : 8 * i));
}

// A PNG that declares width x height but holds a few bytes of picture data.
std::string pngBomb(std::uint32_t width, std::uint32_t height) {
    auto chunk = [](const char* type, const std::string& data) {
        std::string c(8, '\0');
        put32(c, 0, std::uint32_t(data.size()), true);
        c.replace(4, 4, type);
        c += data;
        std::string crc(4, '\0');
        put32(crc, 0, std::uint32_t(crc32(0, reinterpret_cast<const Bytef*>(c.data() + 4), uInt(c.size() - 4))), true);
        return c + crc;
    };
    std::string ihdr(13, '\0');
    put32(ihdr, 0, width, true);
    put32(ihdr, 4, height, true);
    ihdr[8] = 8, ihdr[9] = 2;   // 8-bit RGB
    const unsigned char kDeflatedZeros[] = {0x78, 0x9C, 0x63, 0x60, 0x18, 0x05, 0x00, 0x00};
    return std::string("\x89PNG\r\n\x1a\n", 8) + chunk("IHDR", ihdr) +
           chunk("IDAT", std::string(reinterpret_cast<const char*>(kDeflatedZeros), sizeof kDeflatedZeros)) +
           chunk("IEND", "");
}

// A BMP header that declares width x height 24-bit pixels, and nothing after it.
std::string bmpHeader(std::int32_t width, std::int32_t height) {
    std::string b(54, '\0');
    b[0] = 'B', b[1] = 'M';
    put32(b, 10, 54, false);
    put32(b, 14, 40, false);
    put32(b, 18, std::uint32_t(width), false);
    put32(b, 22, std::uint32_t(height), false);
    b[26] = 1, b[28] = 24;
    return b;
}

std::string written(const std::string& name, const std::string& bytes) {
    const std::string path = dir() + "/" + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

}  // namespace

// Inputs over a limit are refused from their first bytes or their header,
// before anything is decoded: exit 2, one line naming the file and the size.
TEST(CommandLine, LimitsRefuseLargeInputsAtOnce) {
    const std::string small = picture("limits-small.png", 20, 20, 24), smallBmp = picture("limits-small.bmp", 20, 20, 24);
    const std::string out = dir() + "/limits-out.png";
    const struct {
        std::string args, env, message;
    } cases[] = {
        {"/dev/zero", "", "/dev/zero: not a BMP, PNG, JPEG, WebP, TIFF or GIF picture"},
        {written("bomb.png", pngBomb(20000, 20000)), "",
         dir() + "/bomb.png: picture too large (20000 \u00d7 20000, limit 268435456 pixels)"},
        {written("huge.bmp", bmpHeader(60000, 60000)), "",
         dir() + "/huge.bmp: picture too large (60000 \u00d7 60000, limit 268435456 pixels)"},
        {small + " --max-pixels 100", "", small + ": picture too large (20 \u00d7 20, limit 100 pixels)"},
        {small, "FLAIRIZE_MAX_PIXELS=399 ", small + ": picture too large (20 \u00d7 20, limit 399 pixels)"},
        // 20 x 20 at 3 bytes: the source, an output and a working picture of 1200 bytes each
        {small + " --max-memory 3K", "",
         small + ": picture too large (20 \u00d7 20, limit 3 KiB of memory; it needs 3.5 KiB)"},
        {small, "FLAIRIZE_MAX_MEMORY=2K ",
         small + ": picture too large (20 \u00d7 20, limit 2 KiB of memory; it needs 3.5 KiB)"},
        {smallBmp + " --max-memory 2K", "", smallBmp + ": file too large (1.2 KiB, limit 1 KiB, half the memory limit)"},
        {"- <" + written("stream.png", pngBomb(100, 100) + std::string(3000, '\0')) + " --max-memory 4K", "",
         "-: file too large (over 2 KiB, half the memory limit)"},
        {small + " --max-memory lots", "", "--max-memory: expected a size such as 512M or 4G, got \"lots\""},
    };
    for (const auto& c : cases) {
        std::remove(out.c_str());
        const CommandRun r = command("render " + c.args + " " + out + " --effect solarize", c.env);
        EXPECT_EQ(r.status, 2) << c.args;
        EXPECT_EQ(r.err, "flairize: " + c.message + "\n") << c.args;
        EXPECT_FALSE(exists(out)) << c.args;
    }
    // Within its limits the same picture renders.
    EXPECT_EQ(command("render " + small + " " + out + " --max-pixels 400 --max-memory 5K").status, 0);
}

// The command run out of memory at each of its allocations in turn: exit 1,
// the one message, no output left.
TEST(CommandLine, OutOfMemoryIsOneMessage) {
    const std::string in = picture("oom.bmp", 12, 9, 24), out = dir() + "/oom-out.png";
    int failures = 0;
    for (const char* effect : {"solarize", "watercolor", "glass", "color-pencil", "bubbles"})
        for (const char* threads : {"1", "2"})
            for (long n = 1;; ++n) {
                std::remove(out.c_str());
                const CommandRun r = command("render " + in + " " + out + " --effect " + effect + " --threads " + threads,
                                             "FLAIRIZE_FAIL_ALLOCATION=" + std::to_string(n) + " ");
                if (r.status == 0) break;
                ++failures;
                EXPECT_EQ(r.status, 1) << effect << " " << n;
                EXPECT_EQ(r.err, "flairize: " + in + ": Not enough memory to complete operation\n") << effect << " " << n;
                EXPECT_FALSE(exists(out)) << effect << " " << n;
                ASSERT_LT(n, 40) << effect;
            }
    EXPECT_GE(failures, 20);
}
