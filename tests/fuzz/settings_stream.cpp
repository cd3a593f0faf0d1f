// The readers of a stored settings block: the plug-in's LoadData on a project
// file's stream and the engine's decodeSettingsBlock (the command's .flr files).
// A whole block loads into the same record both ways and saves back byte for
// byte; a short one is refused without a record. The record then renders, or
// is refused for an effect outside the table.
#include <unistd.h>

#include <sys/mman.h>

#include "engine/dib.h"
#include "engine/flairize.h"
#include "host/exports.h"
#include "hostops/threads.h"
#include "tests/fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int fd = memfd_create("settings", 0);
    FUZZ_CHECK(fd >= 0);
    FUZZ_CHECK(ftruncate(fd, 0) == 0 && pwrite(fd, data, size, 0) == ssize_t(size));
    lseek(fd, 0, SEEK_SET);
    SettingsRecord* loaded = nullptr;
    const std::uint32_t ok = LoadData(fd, &loaded, 0, 0, 0);
    FUZZ_CHECK(ok == (size >= kSettingsBlockSize ? 1u : 0u));
    FUZZ_CHECK((loaded != nullptr) == (ok == 1));
    if (!loaded) return 0;

    const SettingsRecord decoded = flairize::decodeSettingsBlock(data);
    FUZZ_CHECK(std::memcmp(&decoded, loaded, sizeof decoded) == 0);
    std::uint8_t block[kSettingsBlockSize];
    flairize::encodeSettingsBlock(decoded, block);
    FUZZ_CHECK(std::memcmp(block, data, sizeof block) == 0);
    FUZZ_CHECK(ftruncate(fd, 0) == 0);
    lseek(fd, 0, SEEK_SET);
    FUZZ_CHECK(SaveData(fd, loaded, 0) == 1);
    FUZZ_CHECK(pread(fd, block, sizeof block, 0) == ssize_t(sizeof block));
    FUZZ_CHECK(std::memcmp(block, data, sizeof block) == 0);
    // The record renders, or is refused for an effect outside the table.
    static const HGLOBAL picture = dib::create(3, 2, 24);
    const flairize::Result r =
        flairize::render(hostops::threadedServices(1), picture, flairize::settingsOf(*loaded), flairize::Mix::Always);
    FUZZ_CHECK((r.status == flairize::Status::Refused) == (loaded->effect >= flairize::effectCount()));
    plat::globalFree(r.picture);
    FreeData(0, loaded);
    return 0;
}
