#include "standalone/cli.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <vector>

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/flairize.h"
#include "platform/global_memory.h"
#include "hostops/host_ops.h"
#include "platform/strings.h"
#include "hostops/threads.h"
#include "resources/string_ids.h"
#include "standalone/edit.h"
#include "standalone/help.h"
#include "standalone/output_file.h"
#include "standalone/picture_io.h"
#include "standalone/sheet.h"
#include "standalone/video.h"

namespace cli {
namespace {

struct UsageError {
    std::string message;
};
struct Failure {
    std::string message;
};

[[noreturn]] void usage(const std::string& message) { throw UsageError{message}; }

long parseNumber(const std::string& option, const char* text, long lo, long hi) {
    errno = 0;
    char* end = nullptr;
    const long v = std::strtol(text, &end, 10);
    if (!*text || *end || errno || v < lo || v > hi)
        usage(option + ": expected a whole number from " + std::to_string(lo) + " to " + std::to_string(hi) +
              ", got \"" + text + "\"");
    return v;
}

// Progress as steps 0..16384, a fraction with a point (0.5) or a percentage (50%),
// the last two rounded to the nearest step.
long parseProgress(const std::string& text) {
    const bool percent = !text.empty() && text.back() == '%';
    const std::string number = percent ? text.substr(0, text.size() - 1) : text;
    if (!percent && number.find('.') == std::string::npos) return parseNumber("--progress", text.c_str(), 0, 16384);
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(number.c_str(), &end);
    const double top = percent ? 100.0 : 1.0;
    if (number.empty() || *end || errno || !(v >= 0.0 && v <= top))
        usage("--progress: expected 0..16384, a fraction 0.0..1.0 or a percentage 0%..100%, got \"" + text + "\"");
    return long(std::floor(v / top * 16384.0 + 0.5));
}

std::uint32_t parseColour(const char* text) {
    const char* hex = text[0] == '#' ? text + 1 : text;
    if (std::strlen(hex) != 6) usage(std::string("--colour: expected RRGGBB in hex, got \"") + text + "\"");
    for (const char* p = hex; *p; ++p)
        if (!std::isxdigit(static_cast<unsigned char>(*p)))
            usage(std::string("--colour: expected RRGGBB in hex, got \"") + text + "\"");
    const unsigned long rgb = std::strtoul(hex, nullptr, 16);
    const std::uint32_t red = (rgb >> 16) & 0xFF, green = (rgb >> 8) & 0xFF, blue = rgb & 0xFF;
    return red | (green << 8) | (blue << 16);   // COLORREF: red in the lowest byte
}

std::uint32_t parseDirection(const char* text) {
    for (unsigned d = 0; d < 4; ++d)
        if (strcasecmp(text, plat::loadString(ids::kFirstDirection + d).c_str()) == 0) return d;
    usage(std::string("--direction: expected Backward, Cycle, Forward or \"Reverse Cycle\", got \"") + text + "\"");
}

std::string normaliseName(const char* text) {
    std::string s;
    for (const char* p = text; *p && *p != '['; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if (c == ' ' || c == '-' || c == '_' || c == '*') continue;
        s.push_back(static_cast<char>(std::tolower(c)));
    }
    return s;
}

// Options shared by the commands; which ones a command accepts is checked there.
struct Options {
    std::vector<std::string> positional;
    int effect = -1;
    long progress = 16384;
    long params[3] = {-1, -1, -1};
    long colour = -1;
    long direction = -1;
    long frames = -1;
    long speed = 0;
    long threads = 0;   // all cores
    long columns = 6;
    std::map<std::string, long> named;   // sliders by option ("amount") as given
    std::vector<std::string> given;      // the options given, for the warnings
    long quality = 0;   // the format's default
    std::string settings;
    std::string codec;
    std::string site;
    bool filterOnly = false;
    bool tsv = false;
    bool keepOrientation = false;   // --no-auto-orient
    pictures::Limits limits;   // the environment's, then the options'
};

// FLAIRIZE_MAX_PIXELS and FLAIRIZE_MAX_MEMORY, then --max-pixels and --max-memory.
void setMaxPixels(pictures::Limits& limits, const std::string& where, const char* text) {
    errno = 0;
    char* end = nullptr;
    const unsigned long long v = std::strtoull(text, &end, 10);
    if (!*text || *end || errno || v < 1 || !std::isdigit(static_cast<unsigned char>(*text)))
        usage(where + ": expected a number of pixels, got \"" + text + "\"");
    limits.maxPixels = v;
}
void setMaxMemory(pictures::Limits& limits, const std::string& where, const char* text) {
    if (!pictures::parseSize(text, limits.maxMemory))
        usage(where + ": expected a size such as 512M or 4G, got \"" + text + "\"");
}

Options parse(int argc, char** argv, const std::vector<std::string>& allowed) {
    Options o;
    if (const char* v = std::getenv("FLAIRIZE_MAX_PIXELS")) setMaxPixels(o.limits, "FLAIRIZE_MAX_PIXELS", v);
    if (const char* v = std::getenv("FLAIRIZE_MAX_MEMORY")) setMaxMemory(o.limits, "FLAIRIZE_MAX_MEMORY", v);
    auto allowedOption = [&](const std::string& name) {
        for (const auto& a : allowed)
            if (a == name) return true;
        return false;
    };
    for (int i = 0; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg.size() < 2 || arg[0] != '-' || arg[1] != '-') {
            if (arg.size() > 1 && arg[0] == '-') usage("unknown option \"" + arg + "\"");
            o.positional.push_back(arg);
            continue;
        }
        std::string value;
        bool inlineValue = false;
        const std::size_t eq = arg.find('=');
        if (eq != std::string::npos) {
            value = arg.substr(eq + 1);
            arg = arg.substr(0, eq);
            inlineValue = true;
        }
        if (!allowedOption(arg)) {
            const std::string guess = nearest(arg, allowed);
            usage("unknown option \"" + arg + "\" for this command" +
                  (guess.empty() ? std::string() : "; did you mean \"" + guess + "\"?"));
        }
        o.given.push_back(arg);
        if (arg == "--filter-only" || arg == "--tsv" || arg == "--no-auto-orient") {
            if (inlineValue) usage(arg + " takes no value");
            (arg == "--tsv" ? o.tsv : arg == "--no-auto-orient" ? o.keepOrientation : o.filterOnly) = true;
            continue;
        }
        if (!inlineValue) {
            if (i + 1 >= argc) usage(arg + ": missing value");
            value = argv[++i];
        }
        const char* v = value.c_str();
        if (arg == "--effect") {
            o.effect = findEffect(v);
            if (o.effect < 0) {
                std::vector<std::string> names;
                for (unsigned e = 0; e < flairize::effectCount(); ++e) names.push_back(flairize::effectSlug(e));
                const std::string guess = nearest(normaliseName(v), names);
                usage("--effect: no effect named \"" + value + "\"" +
                      (guess.empty() ? " (see flairize list)" : "; did you mean \"" + guess + "\"?"));
            }
        } else if (arg == "--progress") {
            o.progress = parseProgress(value);
        } else if (arg == "--p1" || arg == "--p2" || arg == "--p3") {
            o.params[arg[3] - '1'] = parseNumber(arg, v, 0, 255);
        } else if (arg == "--colour" || arg == "--color") {
            o.colour = parseColour(v);
        } else if (arg == "--direction") {
            o.direction = parseDirection(v);
        } else if (arg == "--frames") {
            o.frames = parseNumber(arg, v, 1, 1000000);
        } else if (arg == "--speed") {
            // Below -124 the speed curve has no value at the start of the stretch.
            o.speed = parseNumber(arg, v, -124, 127);
        } else if (arg == "--settings") {
            o.settings = value;
        } else if (arg == "--threads") {
            o.threads = parseNumber(arg, v, 1, 1024);
        } else if (arg == "--codec") {
            o.codec = value;
        } else if (arg == "--site") {
            o.site = value;
        } else if (arg == "--quality") {
            o.quality = parseNumber(arg, v, 1, 100);
        } else if (arg == "--max-pixels") {
            setMaxPixels(o.limits, arg, v);
        } else if (arg == "--max-memory") {
            setMaxMemory(o.limits, arg, v);
        } else if (arg == "--columns") {
            o.columns = parseNumber(arg, v, 1, 64);
        } else {   // a slider by its option
            o.named[arg.substr(2)] = parseNumber(arg, v, 0, 255);
        }
    }
    return o;
}

// The options that choose the effect and its settings: the fixed ones, then
// every slider option of the catalogue.
std::vector<std::string> effectOptions() {
    std::vector<std::string> options = {"--effect", "--p1", "--p2", "--p3", "--colour", "--color", "--settings"};
    for (const std::string& option : sliderOptions()) options.push_back("--" + option);
    return options;
}

std::vector<std::string> with(std::vector<std::string> base, std::initializer_list<const char*> more) {
    for (const char* m : more) base.emplace_back(m);
    return base;
}

// The record a new use of the effect gets, then the settings file, then the options.
SettingsRecord buildRecord(const Options& o) {
    SettingsRecord r = flairize::newSettingsRecord();
    if (!o.settings.empty()) {
        const int fd = ::open(o.settings.c_str(), O_RDONLY);
        if (fd < 0) throw UsageError{o.settings + ": " + std::strerror(errno)};
        std::uint8_t block[kSettingsBlockSize];
        const ssize_t n = ::read(fd, block, sizeof block);
        ::close(fd);
        if (n != ssize_t(sizeof block)) throw UsageError{o.settings + ": " + plat::loadString(ids::kProjectDamaged)};
        r = flairize::decodeSettingsBlock(block);
        if (r.effect >= flairize::effectCount())
            throw UsageError{o.settings + ": effect index " + std::to_string(r.effect) + " is outside 0.." +
                             std::to_string(flairize::effectCount() - 1)};
    }
    if (o.effect >= 0) flairize::chooseEffect(r, std::uint16_t(o.effect));   // as the editor does
    std::uint16_t* params[3] = {&r.param1, &r.param2, &r.param3};
    for (int k = 0; k < 3; ++k)
        if (o.params[k] >= 0) *params[k] = std::uint16_t(o.params[k]);
    // Options the chosen effect does not read are said so, not silently dropped.
    const std::string name = flairize::effectSlug(r.effect);
    std::string sliders;
    for (int k = 0; k < 3; ++k)
        if (flairize::sliderLabelId(r.effect, k)) sliders += (sliders.empty() ? "" : ", ") + flairize::sliderLabel(r.effect, k);
    auto warn = [&](const std::string& what, std::string why = "") {
        if (why.empty()) why = "its sliders: " + (sliders.empty() ? std::string("none") : sliders);
        std::fprintf(stderr, "flairize: warning: %s has no effect on %s (%s)\n", what.c_str(), name.c_str(), why.c_str());
    };
    for (const auto& [option, value] : o.named) {
        int k = 0;
        while (k < 3 && option != flairize::sliderOption(r.effect, k)) ++k;
        if (k < 3)
            *params[k] = std::uint16_t(value);
        else
            warn("--" + option);
    }
    for (int k = 0; k < 3; ++k)
        if (o.params[k] >= 0 && !flairize::sliderLabelId(r.effect, k)) warn("--p" + std::to_string(k + 1));
    if (o.colour >= 0 && !flairize::effectUsesColour(r.effect)) warn("--colour", "it paints with no colour");
    if (o.colour >= 0) r.colour = std::uint32_t(o.colour);
    if (o.direction >= 0) r.direction = (r.direction & ~3u) | std::uint32_t(o.direction);
    return r;
}

struct Picture {
    HGLOBAL h = nullptr;
    ~Picture() { plat::globalFree(h); }
};

// Reads IN within the limits: a refusal is a usage error (exit 2), want of
// memory a failure (exit 1) with the one out-of-memory message. The picture is
// turned upright unless --no-auto-orient; `metadata` (may be null) gets what
// the file says besides its pixels, for the outputs.
void readInput(const std::string& path, Picture& pic, const Options& o, pictures::Metadata* metadata = nullptr) {
    std::string error;
    pictures::ReadFailure why = pictures::ReadFailure::None;
    pictures::ReadOptions options;
    options.autoOrient = !o.keepOrientation;
    options.metadata = metadata;
    pic.h = pictures::read(path, error, o.limits, &why, options);
    if (why == pictures::ReadFailure::OutOfMemory) throw Failure{path + ": " + plat::loadString(ids::kNoMemory)};
    if (!pic.h) throw UsageError{path + ": " + error};
}

// Renders at once that the memory limit allows, at most `wanted` (and at least one).
unsigned rendersThatFit(const pictures::Limits& limits, HGLOBAL source, unsigned wanted) {
    BITMAPINFOHEADER h;
    std::memcpy(&h, plat::globalLock(source), sizeof h);
    plat::globalUnlock(source);
    pictures::Limits l = limits;
    const std::uint64_t height = std::uint64_t(h.biHeight < 0 ? -std::int64_t(h.biHeight) : h.biHeight);
    while (l.inFlight = wanted, wanted > 1 && l.need(std::uint64_t(h.biWidth), height, h.biBitCount) > l.maxMemory)
        --wanted;
    return wanted;
}

// Refuses an output before the render: its format and whether it can be written.
void checkOutputName(const std::string& path, long quality = 0) {
    const pictures::Format format = pictures::formatOf(path);
    if (format == pictures::Format::Unknown)
        throw UsageError{path + ": unknown picture format (use " + pictures::kKnownExtensions + ")"};
    std::string error;
    if (!output::check(path, error)) throw UsageError{path + ": " + error};
    if (quality && !pictures::takesQuality(format))
        std::fprintf(stderr, "flairize: warning: --quality applies to JPEG and WebP only; %s is written without it\n",
                     path.c_str());
}

void writeOutput(const std::string& path, HGLOBAL picture, long quality = 0,
                 const pictures::Metadata* metadata = nullptr) {
    std::string error;
    pictures::WriteOptions options;
    options.quality = int(quality);
    options.metadata = metadata;
    pictures::WriteFailure why = pictures::WriteFailure::None;
    if (pictures::write(path, picture, error, options, &why)) return;
    if (why == pictures::WriteFailure::OutOfMemory) throw Failure{path + ": " + plat::loadString(ids::kNoMemory)};
    throw UsageError{path + ": " + error};
}

// A render's picture, or the failure that names the input and the reason.
HGLOBAL pictureOf(const flairize::Result& r, const std::string& input) {
    switch (r.status) {
    case flairize::Status::Ok: return r.picture;
    case flairize::Status::Refused:
        throw Failure{input + ": the picture cannot be rendered (8-, 24- or 32-bit, uncompressed, up to 65535 pixels a side)"};
    default:   // out of memory in the engine or in a host operation: one message for all
        plat::globalFree(r.picture);
        throw Failure{input + ": " + plat::loadString(ids::kNoMemory)};
    }
}

// A progress bar on stderr, shown only on a terminal.
struct ProgressBar {
    bool enabled = isatty(STDERR_FILENO) != 0;
    void show(double fraction, const std::string& label) const {
        if (!enabled) return;
        const int width = 30, filled = static_cast<int>(fraction * width);
        std::fprintf(stderr, "\r%s [%.*s%*s] %3d%%", label.c_str(), filled, "##############################",
                     width - filled, "", static_cast<int>(fraction * 100));
        std::fflush(stderr);
    }
    void done() const {
        if (enabled) std::fprintf(stderr, "\n");
    }
};

// Rows may finish on several threads at once; one of them draws at a time.
struct RowProgress {
    const ProgressBar* bar;
    long total = 1;
    std::string label;
    std::atomic<long> rows{0};
    std::atomic_flag drawing = ATOMIC_FLAG_INIT;
};
void onRowTick(void* user) {
    auto* p = static_cast<RowProgress*>(user);
    const long done = ++p->rows;
    if (done % 64 == 0 && !p->drawing.test_and_set()) {
        p->bar->show(double(done % p->total) / double(p->total), p->label);
        p->drawing.clear();
    }
}

int cmdRender(int argc, char** argv) {
    Options o = parse(argc, argv,
                      with(effectOptions(), {"--progress", "--filter-only", "--threads", "--quality", "--max-pixels",
                                            "--max-memory", "--no-auto-orient"}));
    if (o.positional.size() != 2) usage("render needs IN and OUT");
    SettingsRecord record = buildRecord(o);
    record.progress = std::uint32_t(o.progress);
    checkOutputName(o.positional[1], o.quality);
    Picture source;
    pictures::Metadata metadata;
    readInput(o.positional[0], source, o, &metadata);

    // Long renders (large pictures) show their rows going by.
    ProgressBar bar;
    BITMAPINFOHEADER h;
    std::memcpy(&h, plat::globalLock(source.h), sizeof h);
    plat::globalUnlock(source.h);
    RowProgress rows{&bar, h.biHeight > 0 ? h.biHeight : 1, "rendering"};
    bar.enabled = bar.enabled && std::int64_t(h.biWidth) * h.biHeight >= 4000000;
    const flairize::HostServices host =
        hostops::threadedServices(unsigned(o.threads), bar.enabled ? onRowTick : nullptr, &rows);
    const flairize::Result r = flairize::render(host, source.h, flairize::settingsOf(record),
                                                o.filterOnly ? flairize::Mix::None : flairize::Mix::Always);
    bar.done();
    Picture result;
    result.h = pictureOf(r, o.positional[0]);
    writeOutput(o.positional[1], result.h, o.quality, &metadata);
    return 0;
}

// Expands OUTPATTERN for frame i: one %d conversion (flags and width allowed).
std::string frameName(const std::string& pattern, long i) {
    std::string out;
    bool used = false;
    for (std::size_t k = 0; k < pattern.size(); ++k) {
        if (pattern[k] != '%') {
            out.push_back(pattern[k]);
            continue;
        }
        if (k + 1 < pattern.size() && pattern[k + 1] == '%') {
            out.push_back('%');
            ++k;
            continue;
        }
        std::size_t j = k + 1;
        while (j < pattern.size() && (pattern[j] == '0' || pattern[j] == '-')) ++j;
        while (j < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[j]))) ++j;
        if (j >= pattern.size() || pattern[j] != 'd' || used || j - k > 6)
            usage("OUTPATTERN \"" + pattern + "\": expected one frame number such as %04d");
        const std::string conversion = pattern.substr(k, j - k + 1);
        std::string number(std::size_t(std::snprintf(nullptr, 0, conversion.c_str(), static_cast<int>(i))), '\0');
        std::snprintf(number.data(), number.size() + 1, conversion.c_str(), static_cast<int>(i));
        out += number;
        used = true;
        k = j;
    }
    if (!used) usage("OUTPATTERN \"" + pattern + "\": expected one frame number such as %04d");
    return out;
}

int cmdSequence(int argc, char** argv) {
    Options o = parse(argc, argv,
                      with(effectOptions(), {"--frames", "--direction", "--speed", "--threads", "--quality",
                                            "--max-pixels", "--max-memory", "--no-auto-orient"}));
    if (o.positional.size() != 2) usage("sequence needs IN and OUTPATTERN");
    if (o.frames < 1) usage("sequence needs --frames N");
    const std::string pattern = o.positional[1];
    frameName(pattern, 0);
    checkOutputName(frameName(pattern, 0), o.quality);
    SettingsRecord record = buildRecord(o);
    Picture source;
    pictures::Metadata metadata;
    readInput(o.positional[0], source, o, &metadata);   // a picture that fits one render at a time
    // As many frames at once as there are threads, each rendered on one; fewer
    // frames than threads share the rest as slice threads. Frames are written
    // as they finish and checked in order: the first that fails stops the run,
    // and the frames after it that were already written are removed.
    const unsigned threads = o.threads > 0 ? unsigned(o.threads) : hostops::availableThreads();
    // (fewer when the memory limit holds fewer frames at once)
    const unsigned inFlight = rendersThatFit(o.limits, source.h, unsigned(std::min<long>(threads, o.frames)));
    const flairize::HostServices host = hostops::threadedServices(std::max(1u, threads / inFlight));
    struct Outcome {
        bool written = false;
        int status = 0;   // as main() returns: 1 failure, 2 refusal
        std::string message;
    };
    std::vector<Outcome> outcomes(std::size_t(o.frames));
    long failed = -1, shown = 0;
    ProgressBar bar;
    hostops::runInOrder(
        inFlight, o.frames,
        [&](long i) {
            SettingsRecord frameRecord = record;
            frameRecord.progress =
                flairize::frameProgress(flairize::sequencePosition(std::uint64_t(i), std::uint64_t(o.frames)),
                                        static_cast<std::int8_t>(o.speed), record.direction);
            Outcome& out = outcomes[std::size_t(i)];
            try {
                const flairize::Result r =
                    flairize::render(host, source.h, flairize::settingsOf(frameRecord), flairize::Mix::Always);
                Picture frame;
                frame.h = pictureOf(r, o.positional[0]);
                writeOutput(frameName(pattern, i), frame.h, o.quality, &metadata);
                out.written = true;
            } catch (const UsageError& e) {
                out.status = 2, out.message = e.message;
            } catch (const Failure& e) {
                out.status = 1, out.message = e.message;
            } catch (const std::bad_alloc&) {   // the frame fails like any other, in order
                out.status = 1, out.message = o.positional[0] + ": " + plat::loadString(ids::kNoMemory);
            }
        },
        [&](long i) {
            const Outcome& out = outcomes[std::size_t(i)];
            if (failed >= 0) {
                if (out.written) std::remove(frameName(pattern, i).c_str());
                return false;
            }
            if (out.status != 0) {
                failed = i;
                return false;
            }
            shown = i + 1;
            bar.show(double(shown) / double(o.frames), "frame " + std::to_string(shown) + "/" + std::to_string(o.frames));
            return true;
        });
    bar.done();
    if (failed >= 0) {
        const Outcome& out = outcomes[std::size_t(failed)];
        if (out.status == 2) throw UsageError{out.message};
        throw Failure{out.message};
    }
    return 0;
}

int cmdVideo(int argc, char** argv) {
    Options o = parse(argc, argv,
                      with(effectOptions(), {"--direction", "--speed", "--threads", "--codec", "--max-pixels", "--max-memory"}));
    if (o.positional.size() != 2) usage("video needs IN and OUT");
    const video::Outcome r = video::convert({o.positional[0], o.positional[1], o.codec, buildRecord(o),
                                             static_cast<std::int8_t>(o.speed), unsigned(o.threads), o.limits});
    if (r.status == 2) throw UsageError{r.message};
    if (r.status != 0) throw Failure{r.message};
    return 0;
}

int cmdEdit(int argc, char** argv) {
    Options o = parse(argc, argv, {"--site"});
    if (o.positional.size() > 1) usage("edit takes at most one PICTURE");
    const edit::Outcome r = edit::serve({o.positional.empty() ? "" : o.positional[0], o.site});
    if (r.status == 2) throw UsageError{r.message};
    if (r.status != 0) throw Failure{r.message};
    return 0;
}

int cmdTiming(int argc, char** argv) {
    Options o = parse(argc, argv, {"--frames", "--speed", "--direction"});
    if (!o.positional.empty()) usage("timing takes no file names");
    if (o.frames < 1) usage("timing needs --frames N");
    const std::uint32_t direction = o.direction >= 0 ? std::uint32_t(o.direction) : kDirectionForward;
    std::string out;
    for (long i = 0; i < o.frames; ++i) {
        const std::uint32_t position = flairize::sequencePosition(std::uint64_t(i), std::uint64_t(o.frames));
        const std::uint32_t progress = flairize::frameProgress(position, static_cast<std::int8_t>(o.speed), direction);
        out += std::to_string(i) + " " + std::to_string(position) + " " + std::to_string(progress) + "\n";
    }
    std::fputs(out.c_str(), stdout);
    return 0;
}

int cmdSettings(int argc, char** argv) {
    Options o = parse(argc, argv, with(effectOptions(), {"--direction"}));
    if (o.positional.size() != 1) usage("settings needs OUT.flr");
    const SettingsRecord record = buildRecord(o);
    const std::string path = o.positional[0];
    std::uint8_t block[kSettingsBlockSize];
    flairize::encodeSettingsBlock(record, block);
    output::File file;
    std::string error;
    if (!file.open(path, error)) throw UsageError{path + ": " + error};
    if (::write(file.fd(), block, sizeof block) != ssize_t(sizeof block) || !file.commit(error))
        throw UsageError{path + ": cannot write the settings block"};
    return 0;
}

int cmdList(int argc, char** argv) {
    Options o = parse(argc, argv, {"--tsv"});
    if (!o.positional.empty()) usage("list takes no file names");
    std::string out;
    if (!o.tsv) out += "index  name to type    effect                 notes\n";
    for (unsigned i = 0; i < flairize::effectCount(); ++i) {
        const std::string name = flairize::effectName(i);
        const bool offered = flairize::effectOffered(i);
        const unsigned flags = (flairize::effectFadesIn(i) ? 1u : 0u) | (flairize::effectUsesColour(i) ? 2u : 0u);
        if (o.tsv) {
            out += std::to_string(i) + "\t" + name + "\t" + (offered ? "1" : "0") + "\t" + std::to_string(flags);
            for (int k = 0; k < 3; ++k) out += "\t" + flairize::sliderLabel(i, k);
            for (int k = 0; k < 3; ++k) out += "\t" + std::to_string(flairize::sliderDefault(i, k));
            out += "\n";
            continue;
        }
        std::string notes = flairize::effectCategory(i);
        if (!offered) notes += "; hidden";
        if (flairize::effectFadesIn(i)) notes += "; fades in";
        if (flairize::effectUsesColour(i)) notes += "; paints with --colour";
        char line[200];
        std::snprintf(line, sizeof line, "%5u  %-15s %-22s %s\n", i, flairize::effectSlug(i).c_str(), name.c_str(),
                      notes.c_str());
        out += line;
        out += wrapped(flairize::effectDescription(i), 7, 0);
        for (int k = 0; k < 3; ++k) {
            if (!flairize::sliderLabelId(i, k)) continue;
            const std::string unit = flairize::sliderUnit(i, k);
            out += wrapped(std::string("--") + flairize::sliderOption(i, k) + " (--p" + std::to_string(k + 1) + ") " +
                               std::to_string(flairize::sliderMinimum(i, k)) + ".." +
                               std::to_string(flairize::sliderMaximum(i, k)) +
                               (unit.empty() ? "" : " in steps of " + unit) + ", default " +
                               std::to_string(flairize::sliderDefault(i, k)) + ": " + flairize::sliderMeaning(i, k),
                           7, 2);
        }
    }
    std::fputs(out.c_str(), stdout);
    return 0;
}

int cmdSheet(int argc, char** argv) {
    Options o = parse(argc, argv, {"--columns", "--threads", "--max-pixels", "--max-memory", "--no-auto-orient"});
    if (o.positional.size() != 2) usage("sheet needs IN and OUT");
    checkOutputName(o.positional[1]);
    Picture source;
    std::vector<unsigned> effects;
    for (unsigned i = 0; i < flairize::effectCount(); ++i)
        if (flairize::effectOffered(i)) effects.push_back(i);
    // Every effect's picture is kept for the sheet, which is as large again.
    o.limits.inFlight = unsigned(effects.size());
    readInput(o.positional[0], source, o);
    // The effects render side by side, each on one thread.
    const unsigned threads = o.threads > 0 ? unsigned(o.threads) : hostops::availableThreads();
    const flairize::HostServices host = hostops::services();
    std::vector<Picture> rendered(effects.size());
    std::vector<std::string> failures(effects.size());
    hostops::runInOrder(
        threads, long(effects.size()),
        [&](long k) {
            SettingsRecord record = flairize::newSettingsRecord();
            flairize::chooseEffect(record, std::uint16_t(effects[std::size_t(k)]));
            record.progress = 16384;
            const flairize::Result r =
                flairize::render(host, source.h, flairize::settingsOf(record), flairize::Mix::Always);
            try {
                rendered[std::size_t(k)].h = pictureOf(r, o.positional[0]);
            } catch (const Failure& e) {
                failures[std::size_t(k)] = e.message;
            }
        },
        [&](long k) { return failures[std::size_t(k)].empty(); });
    for (const std::string& f : failures)
        if (!f.empty()) throw Failure{f};
    std::vector<SheetTile> tiles{{"Original", source.h}};
    for (std::size_t k = 0; k < effects.size(); ++k) tiles.push_back({flairize::effectName(effects[k]), rendered[k].h});
    Picture sheet;
    sheet.h = contactSheet(tiles, int(o.columns));
    if (!sheet.h) throw Failure{o.positional[1] + ": " + plat::loadString(ids::kNoMemory)};
    writeOutput(o.positional[1], sheet.h);
    return 0;
}

}  // namespace

int findEffect(const char* text) {
    if (*text && std::isdigit(static_cast<unsigned char>(*text))) {
        char* end = nullptr;
        const long v = std::strtol(text, &end, 10);
        return (*end || v < 0 || v >= long(flairize::effectCount())) ? -1 : int(v);
    }
    const std::string wanted = normaliseName(text);
    if (wanted.empty()) return -1;
    for (unsigned i = 0; i < flairize::effectCount(); ++i)
        if (normaliseName(flairize::effectName(i).c_str()) == wanted) return int(i);
    return -1;
}

int run(int argc, char** argv) {
    if (argc < 2) {
        std::fputs(mainHelp().c_str(), stderr);
        return 2;
    }
    const std::string command = argv[1];
    if (command == "--help" || command == "-h" || (command == "help" && argc == 2)) {
        std::fputs(mainHelp().c_str(), stdout);
        return 0;
    }
    if (command == "--version") {
        std::fputs(versionText().c_str(), stdout);
        return 0;
    }
    try {
        const CommandHelp* help = findCommand(command == "help" ? argv[2] : command);
        if (!help) {
            std::vector<std::string> names;
            for (const CommandHelp& c : commands()) names.emplace_back(c.name);
            const std::string word = command == "help" ? argv[2] : command;
            const std::string guess = nearest(word, names);
            usage("unknown command \"" + word + "\"" +
                  (guess.empty() ? "; see flairize --help" : "; did you mean \"" + guess + "\"?"));
        }
        bool wantsHelp = command == "help";
        for (int i = 2; i < argc; ++i) wantsHelp = wantsHelp || !std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h");
        if (wantsHelp) {
            std::fputs(commandHelp(*help).c_str(), stdout);
            return 0;
        }
        if (command == "render") return cmdRender(argc - 2, argv + 2);
        if (command == "sequence") return cmdSequence(argc - 2, argv + 2);
        if (command == "sheet") return cmdSheet(argc - 2, argv + 2);
        if (command == "video") return cmdVideo(argc - 2, argv + 2);
        if (command == "edit") return cmdEdit(argc - 2, argv + 2);
        if (command == "timing") return cmdTiming(argc - 2, argv + 2);
        if (command == "settings") return cmdSettings(argc - 2, argv + 2);
        return cmdList(argc - 2, argv + 2);
    } catch (const UsageError& e) {
        std::fprintf(stderr, "flairize: %s\n", e.message.c_str());
        return 2;
    } catch (const Failure& e) {
        std::fprintf(stderr, "flairize: %s\n", e.message.c_str());
        return 1;
    }
}

}  // namespace cli
