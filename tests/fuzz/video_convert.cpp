// flairize video on damaged files: the input becomes a video file and is
// converted to Matroska in a temporary folder, with an effect and settings
// from the input's first bytes. The conversion either writes its output or
// leaves nothing behind and says why; it never crashes.
#include <unistd.h>

#include <filesystem>
#include <string>

#include "standalone/video.h"
#include "tests/fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const struct TempDir {
        std::filesystem::path path = std::filesystem::temp_directory_path() /
                                     ("flairize-fuzz-video-" + std::to_string(getpid()));
        TempDir() { std::filesystem::create_directories(path); }
        ~TempDir() { std::filesystem::remove_all(path); }
    } temp;
    if (size > 65536) return 0;   // small files only: each run stays fast
    FuzzInput in{data, size};
    video::Job job;
    job.record = in.take<SettingsRecord>();
    job.record.effect = std::uint16_t(job.record.effect % 40);   // a few outside the table
    job.speed = in.take<std::int8_t>();
    job.threads = 1 + in.take<std::uint8_t>() % 2;
    job.input = (temp.path / "in").string();
    job.output = (temp.path / "out.mkv").string();
    std::FILE* file = std::fopen(job.input.c_str(), "wb");
    FUZZ_CHECK(file && std::fwrite(in.data, 1, in.size, file) == in.size && std::fclose(file) == 0);

    const video::Outcome outcome = video::convert(job);
    FUZZ_CHECK(outcome.status >= 0 && outcome.status <= 2);
    FUZZ_CHECK((outcome.status == 0) == outcome.message.empty());
    FUZZ_CHECK((outcome.status == 0) == std::filesystem::exists(job.output));
    std::size_t files = 0;   // no temporary output is left behind
    for (const auto& entry : std::filesystem::directory_iterator(temp.path)) files += entry.path() != job.input;
    FUZZ_CHECK(files == (outcome.status == 0 ? 1u : 0u));
    std::filesystem::remove(job.output);
    return 0;
}
