// Running the flairize command from the tests: its exit status and output,
// a scratch folder, and small checks on the files it leaves.
#pragma once

#include <dirent.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "standalone/picture_io.h"
#include "tests/picture_support.h"

#ifndef FLAIRIZE_VIDEO
#define FLAIRIZE_VIDEO 0
#endif

// Skips a test where flairize has no video support, or where the ffmpeg and
// ffprobe commands that make and read its clips are missing.
#define NEEDS_FFMPEG()                                                                                 \
    do {                                                                                               \
        if (!FLAIRIZE_VIDEO) GTEST_SKIP() << "flairize was built without FFmpeg's libav* libraries";   \
        if (testcli::sh("ffmpeg -version >/dev/null 2>&1 && ffprobe -version >/dev/null 2>&1") != 0)   \
            GTEST_SKIP() << "the ffmpeg and ffprobe commands are not installed";                       \
    } while (0)

namespace testcli {

using namespace testpic;

// A shell command's exit status.
inline int sh(const std::string& cmd) { return std::system(cmd.c_str()); }
// ffmpeg as the video tests run it to make and read clips: quiet, overwriting.
inline const std::string ff = "ffmpeg -v error -y ";

struct CommandRun {
    int status;
    std::string out, err;
};

inline std::string dir() {
    static std::string d = [] {
        char t[] = "/tmp/flairize-cli-XXXXXX";
        return std::string(mkdtemp(t));
    }();
    return d;
}

inline std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline CommandRun command(const std::string& args, const std::string& shellPrefix = "") {
    const std::string out = dir() + "/stdout", err = dir() + "/stderr";
    const std::string cmd = shellPrefix + std::string(FLAIRIZE_BIN) + " " + args + " >" + out + " 2>" + err;
    const int raw = std::system(cmd.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(out), slurp(err)};
}

inline bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

inline unsigned modeOf(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

// Whether a folder holds a temporary of `name` ("name.XXXXXX").
inline bool temporaryOf(const std::string& folder, const std::string& name) {
    bool found = false;
    if (DIR* d = opendir(folder.c_str())) {
        while (dirent* e = readdir(d))
            found = found || std::string(e->d_name).rfind(name + ".", 0) == 0;
        closedir(d);
    }
    return found;
}

// Writes a test picture and returns its path.
inline std::string picture(const std::string& name, int w, int h, int bits) {
    Owned p(make(w, h, bits, pattern, bits == 8 ? palette256() : std::vector<Bgra>{}));
    std::string error;
    const std::string path = dir() + "/" + name;
    EXPECT_TRUE(pictures::write(path, p, error)) << error;
    return path;
}

}  // namespace testcli
