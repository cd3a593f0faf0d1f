// The GEGL module's operations through the gegl command: for every offered
// effect, flairize:<slug> on a 32-bit RGBA picture gives the pixels the
// flairize command renders from the same picture, byte for byte.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>

#include "tests/command_support.h"

namespace {

using namespace testcli;

bool geglCommandPresent() { return std::system("command -v gegl >/dev/null 2>&1") == 0; }

// A module built with AddressSanitizer needs its run-time loaded first in the gegl command.
#if defined(__SANITIZE_ADDRESS__)
const char* const kGeglPrefix =
    "LD_PRELOAD=\"$(gcc -print-file-name=libasan.so) $(gcc -print-file-name=libubsan.so)\" "
    "ASAN_OPTIONS=detect_leaks=0 ";
#else
const char* const kGeglPrefix = "";
#endif

// Settings other than the defaults for a few effects: the gegl command's
// properties and the flairize command's options for the same render.
struct Settings {
    const char* geglProperties;
    const char* commandOptions;
};
const std::map<std::string, Settings> kSettings = {
    {"pointillize",
     {"number=40 randomness=200 colour=#3366cc progress=9000",
      "--number 40 --randomness 200 --colour 3366cc --progress 9000"}},
    {"find-edges", {"colour=#f0a010", "--colour f0a010"}},
    {"mosaic", {"progress=5000", "--progress 5000"}},
    {"posterize", {"colors=3 progress=12000", "--colors 3 --progress 12000"}},
    {"sampler", {"size=255 colour=#ffffff progress=1", "--size 255 --colour ffffff --progress 1"}},
};

// The pixels of a picture file as the flairize command reads them.
std::vector<std::uint8_t> pixelsOf(const std::string& path) {
    std::string error;
    Owned picture(pictures::read(path, error));
    EXPECT_NE(picture.h, nullptr) << path << ": " << error;
    if (!picture.h) return {};
    View view(picture);
    EXPECT_EQ(view.header().biBitCount, 32) << path << " is not read as a 32-bit picture";
    std::vector<std::uint8_t> bytes = view.bytes();
    return std::vector<std::uint8_t>(bytes.begin() + view.header().biSize, bytes.end());
}

TEST(GeglOperations, EveryEffectEqualsTheCommandsRender) {
#ifndef FLAIRIZE_GEGL_PATH
    GTEST_SKIP() << "the GEGL module is not built (gegl-0.4 not found)";
#else
    if (!geglCommandPresent()) GTEST_SKIP() << "the gegl command is not installed (Debian package gegl)";
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a module built with ThreadSanitizer does not load into the gegl command";
#endif
    // Varied colours and alpha, alpha 0 among them, odd sizes.
    const std::string source = dir() + "/gegl-source.png";
    {
        Owned picture(make(37, 23, 32, pattern));
        std::string error;
        ASSERT_TRUE(pictures::write(source, picture, error)) << error;
    }
    const std::vector<std::uint8_t> sourcePixels = pixelsOf(source);
    unsigned tested = 0, changed = 0;
    for (unsigned effect = 0; effect < flairize::effectCount(); ++effect) {
        if (!flairize::effectOffered(effect)) continue;
        const std::string slug = flairize::effectSlug(effect);
        SCOPED_TRACE(slug);
        const auto given = kSettings.find(slug);
        const std::string properties = given == kSettings.end() ? "" : given->second.geglProperties;
        const std::string options = given == kSettings.end() ? "" : given->second.commandOptions;

        const std::string viaGegl = dir() + "/gegl-" + slug + ".png", viaCommand = dir() + "/command-" + slug + ".png";
        const std::string gegl = std::string(kGeglPrefix) + "GEGL_PATH='" FLAIRIZE_GEGL_PATH "' gegl -i '" + source +
                                 "' -o '" + viaGegl + "' -- flairize:" + slug + " " + properties + " >'" + dir() +
                                 "/gegl.log' 2>&1";
        ASSERT_EQ(std::system(gegl.c_str()), 0) << gegl << "\n" << slurp(dir() + "/gegl.log");
        const std::string log = slurp(dir() + "/gegl.log");
        EXPECT_EQ(log.find("flairize"), std::string::npos) << "GEGL complained:\n" << log;
        const CommandRun run = command("render '" + source + "' '" + viaCommand + "' --effect " + slug + " " + options);
        ASSERT_EQ(run.status, 0) << run.err;

        const std::vector<std::uint8_t> expected = pixelsOf(viaCommand), got = pixelsOf(viaGegl);
        ASSERT_EQ(got.size(), expected.size());
        std::size_t differing = 0, first = got.size();
        for (std::size_t i = 0; i < got.size(); ++i)
            if (got[i] != expected[i]) differing++, first = std::min(first, i);
        EXPECT_EQ(differing, 0u) << "bytes differ, the first at byte " << first << " of " << got.size();
        changed += expected != sourcePixels;
        ++tested;
    }
    EXPECT_GT(tested, 0u);
    EXPECT_GT(changed, tested / 2) << "most renders should change the picture";
#endif
}

}  // namespace
