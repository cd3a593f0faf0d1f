// FLAIR.dll under Wine, compared with the Linux build (its renders are compared
// row by row with the conformance table by the conformance check). The test script sets
// FLAIRIZE_WINDOWS_BUILD (folder of FLAIR.dll, the stand-in host libraries and
// wine_host.exe) and FLAIRIZE_WINE (the Wine launcher); FLAIRIZE_WINDOWS_EDITOR=1
// also drives the editor dialog under a virtual display.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

#include "engine/flairize.h"
#include "standalone/picture_io.h"
#include "tests/picture_support.h"

using namespace testpic;

namespace {

struct WineRun {
    bool configured = false;
    std::string skipReason;
    std::string dir, log;
    int status = -1;
};

std::string env(const char* name) {
    const char* v = std::getenv(name);
    return v ? v : "";
}

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Runs wine_host.exe once for all tests of this file.
const WineRun& wineRun() {
    static WineRun run = [] {
        WineRun r;
        const std::string build = env("FLAIRIZE_WINDOWS_BUILD"), wine = env("FLAIRIZE_WINE");
        if (build.empty() || wine.empty()) {
            r.skipReason = "FLAIRIZE_WINDOWS_BUILD and FLAIRIZE_WINE are not set (scripts/test.sh sets them)";
            return r;
        }
        r.configured = true;
        char t[] = "/tmp/flairize-wine-XXXXXX";
        r.dir = mkdtemp(t);
        {   // the editor's fallback picture
            Owned pic(make(17, 11, 24, pattern));
            std::string error;
            pictures::write(r.dir + "/in24.bmp", pic, error);
        }
        {   // the editor previews the bundled sample picture
            std::string error;
            Owned sample(pictures::read(std::string(FLAIRIZE_SOURCE_DIR) + "/samples/sample.png", error));
            if (sample.h) pictures::write(r.dir + "/sample.bmp", sample, error);
        }
        const bool editor = env("FLAIRIZE_WINDOWS_EDITOR") == "1";
        const std::string winDir = "Z:" + r.dir;
        std::string cmd = "cd '" + build + "' && WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml=' WINEPREFIX='" +
                          build + "/wineprefix' timeout 900 " +
                          (editor ? "xvfb-run -a -s '-screen 0 1024x768x24' " : "") + wine +
                          " wine_host.exe '" + winDir + "'" + (editor ? " --editor" : "") + " > '" + r.dir +
                          "/log.txt' 2>'" + r.dir + "/wine-stderr.txt'";
        const int raw = std::system(cmd.c_str());
        r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        r.log = slurp(r.dir + "/log.txt");
        return r;
    }();
    return run;
}


void checkHostChecksPass(const WineRun& run) {
    std::istringstream lines(run.log);
    std::string line;
    int passed = 0;
    while (std::getline(lines, line)) {
        if (line.rfind("FAIL", 0) == 0) ADD_FAILURE() << line;
        passed += line.rfind("PASS", 0) == 0;
    }
    const bool editor = env("FLAIRIZE_WINDOWS_EDITOR") == "1";
    EXPECT_GE(passed, editor ? 30 : 9) << run.log;
    EXPECT_EQ(run.status, 0) << run.log;
}

void checkSetupFrameMatchesTheLinuxBuild(const WineRun& run) {
    const std::string data = slurp(run.dir + "/timing.bin");
    ASSERT_EQ(data.size(), 252u * 16385u * 4u);
    const auto* values = reinterpret_cast<const std::uint32_t*>(data.data());
    std::size_t i = 0, differences = 0;
    for (int speed = -124; speed <= 127; ++speed)
        for (std::uint32_t p = 0; p <= 16384; ++p, ++i)
            if (values[i] != flairize::speedCurve(p, std::int8_t(speed)) && differences++ < 10)
                ADD_FAILURE() << "speed " << speed << " position " << p << ": Windows " << values[i] << ", Linux "
                              << flairize::speedCurve(p, std::int8_t(speed));
    EXPECT_EQ(differences, 0u);
}

void checkEditorScreenshot(const WineRun& run) {
    if (env("FLAIRIZE_WINDOWS_EDITOR") != "1") return;   // the editor runs only under a virtual display
    std::string error;
    Owned shot(pictures::read(run.dir + "/editor.bmp", error));
    ASSERT_NE(shot.h, nullptr) << error;
    const std::string out = env("FLAIRIZE_WINDOWS_BUILD") + "/editor-screenshot.png";
    EXPECT_TRUE(pictures::write(out, shot, error)) << error;
    // The preview shows a picture, not an empty grey control.
    View v(shot);
    int distinct = 0;
    Bgra last{};
    for (int x = 0; x < v.width(); ++x) {
        const Bgra c = v.at(x, v.height() / 2);
        distinct += !(c == last);
        last = c;
    }
    EXPECT_GT(distinct, 20);
}

}  // namespace

// One run of the Wine host serves every check, so no two editors open at once.
TEST(WindowsPlugin, UnderWineAsOnLinux) {
    const WineRun& run = wineRun();
    if (!run.configured) GTEST_SKIP() << run.skipReason;
    ASSERT_NE(run.log.find("FLAIR.dll loads"), std::string::npos)
        << "exit " << run.status << "\n" << slurp(run.dir + "/wine-stderr.txt");
    {
        SCOPED_TRACE("host checks");
        checkHostChecksPass(run);
    }
    {
        SCOPED_TRACE("SetupFrame for every speed and position");
        checkSetupFrameMatchesTheLinuxBuild(run);
    }
    {
        SCOPED_TRACE("editor screenshot");
        checkEditorScreenshot(run);
    }
}
