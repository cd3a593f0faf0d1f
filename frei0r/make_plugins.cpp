// Makes the frei0r plug-ins from the one module: a copy named
// flairize-<effect>.so for every offered effect, and no other flairize-*.so.
//   make_plugins MODULE DIR
#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <system_error>

#include "engine/flairize.h"

namespace fs = std::filesystem;

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: make_plugins MODULE DIR\n");
        return 2;
    }
    const fs::path module = argv[1], dir = argv[2];
    std::error_code error;
    fs::create_directories(dir, error);
    std::set<std::string> names;
    for (unsigned i = 0; i < flairize::effectCount(); ++i)
        if (flairize::effectOffered(i)) names.insert("flairize-" + flairize::effectSlug(i) + ".so");
    for (const auto& entry : fs::directory_iterator(dir, error)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind("flairize-", 0) == 0 && !names.count(name)) fs::remove(entry.path(), error);
    }
    for (const std::string& name : names) {
        // A copy, not a link: hosts load each plug-in as a library of its own.
        const fs::path target = dir / name, temporary = dir / (name + ".new");
        if (!fs::copy_file(module, temporary, fs::copy_options::overwrite_existing, error)) break;
        fs::rename(temporary, target, error);
        if (error) break;
    }
    if (error) {
        std::fprintf(stderr, "make_plugins: %s\n", error.message().c_str());
        return 1;
    }
    std::printf("%zu frei0r plug-ins in %s\n", names.size(), dir.c_str());
    return 0;
}
