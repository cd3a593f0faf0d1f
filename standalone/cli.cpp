#include "standalone/cli.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/flairize.h"
#include "platform/global_memory.h"
#include "platform/host_ops.h"
#include "platform/strings.h"
#include "platform/threads.h"
#include "resources/string_ids.h"
#include "standalone/picture_io.h"
#include "standalone/video.h"

namespace cli {
namespace {

const char* const kUsage =
    "usage: flairize <command> [options]\n"
    "\n"
    "commands:\n"
    "  render IN OUT [effect options] [--progress N] [--filter-only] [--threads N]\n"
    "                       render one frame (BMP or PNG in and out)\n"
    "  sequence IN OUTPATTERN --frames N [--direction D] [--speed S] [--threads N] [effect options]\n"
    "                       render N frames across the effect's stretch, e.g. out/frame%04d.png\n"
    "  video IN OUT [--direction D] [--speed S] [--threads N] [--codec NAME] [effect options]\n"
    "                       render every frame of a video across the effect's stretch, audio copied\n"
    "  timing --frames N [--speed S] [--direction D]\n"
    "                       print \"frame position progress\" for N frames\n"
    "  settings OUT.flr [effect options] [--direction D]\n"
    "                       write a 20-byte settings block\n"
    "  list [--tsv]         list the effects\n"
    "\n"
    "effect options:\n"
    "  --effect NAME|INDEX  effect by name (\"find-edges\") or index (default Weave)\n"
    "  --p1 N --p2 N --p3 N slider values 0..255 (default: the effect's defaults)\n"
    "  --colour RRGGBB      effect colour, hex, red first (default 000000)\n"
    "  --settings FILE.flr  take effect, sliders, colour and direction from a settings block\n"
    "\n"
    "directions: Backward, Cycle, Forward, \"Reverse Cycle\"\n"
    "--threads N: threads a render uses (default: all cores; 1: one thread); the pictures are the same\n";

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
    std::string settings;
    std::string codec;
    bool filterOnly = false;
    bool tsv = false;
};

Options parse(int argc, char** argv, const std::vector<std::string>& allowed) {
    Options o;
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
        if (!allowedOption(arg)) usage("unknown option \"" + arg + "\" for this command");
        if (arg == "--filter-only" || arg == "--tsv") {
            if (inlineValue) usage(arg + " takes no value");
            (arg == "--tsv" ? o.tsv : o.filterOnly) = true;
            continue;
        }
        if (!inlineValue) {
            if (i + 1 >= argc) usage(arg + ": missing value");
            value = argv[++i];
        }
        const char* v = value.c_str();
        if (arg == "--effect") {
            o.effect = findEffect(v);
            if (o.effect < 0) usage("--effect: no effect named \"" + value + "\" (see flairize list)");
        } else if (arg == "--progress") {
            o.progress = parseNumber(arg, v, 0, 16384);
        } else if (arg == "--p1" || arg == "--p2" || arg == "--p3") {
            o.params[arg[3] - '1'] = parseNumber(arg, v, 0, 255);
        } else if (arg == "--colour" || arg == "--color") {
            o.colour = parseColour(v);
        } else if (arg == "--direction") {
            o.direction = parseDirection(v);
        } else if (arg == "--frames") {
            o.frames = parseNumber(arg, v, 1, 1000000);
        } else if (arg == "--speed") {
            o.speed = parseNumber(arg, v, -128, 127);
        } else if (arg == "--settings") {
            o.settings = value;
        } else if (arg == "--threads") {
            o.threads = parseNumber(arg, v, 1, 1024);
        } else if (arg == "--codec") {
            o.codec = value;
        }
    }
    return o;
}

const std::vector<std::string> kEffectOptions = {"--effect", "--p1", "--p2", "--p3", "--colour", "--color",
                                                 "--settings"};

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
    if (o.params[0] >= 0) r.param1 = std::uint16_t(o.params[0]);
    if (o.params[1] >= 0) r.param2 = std::uint16_t(o.params[1]);
    if (o.params[2] >= 0) r.param3 = std::uint16_t(o.params[2]);
    if (o.colour >= 0) r.colour = std::uint32_t(o.colour);
    if (o.direction >= 0) r.direction = (r.direction & ~3u) | std::uint32_t(o.direction);
    return r;
}

struct Picture {
    HGLOBAL h = nullptr;
    ~Picture() { plat::globalFree(h); }
};

void readInput(const std::string& path, Picture& pic) {
    std::string error;
    pic.h = pictures::read(path, error);
    if (!pic.h) throw UsageError{path + ": " + error};
}

void checkOutputName(const std::string& path) {
    if (!pictures::hasExtension(path, ".bmp") && !pictures::hasExtension(path, ".png"))
        throw UsageError{path + ": unknown picture format (use .bmp or .png)"};
}

void writeOutput(const std::string& path, HGLOBAL picture) {
    std::string error;
    if (!pictures::write(path, picture, error)) throw Failure{path + ": " + error};
}

// A render's picture, or the failure that names the input and the reason.
HGLOBAL pictureOf(const flairize::Result& r, const std::string& input) {
    switch (r.status) {
    case flairize::Status::Ok: return r.picture;
    case flairize::Status::Refused:
        throw Failure{input + ": the picture cannot be rendered (8-, 24- or 32-bit, uncompressed, up to 65535 pixels a side)"};
    default:
        plat::globalFree(r.picture);
        throw Failure{input + ": " + plat::loadString(r.messageId ? r.messageId : ids::kNoMemory)};
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
    Options o = parse(argc, argv, with(kEffectOptions, {"--progress", "--filter-only", "--threads"}));
    if (o.positional.size() != 2) usage("render needs IN and OUT");
    SettingsRecord record = buildRecord(o);
    record.progress = std::uint32_t(o.progress);
    checkOutputName(o.positional[1]);
    Picture source;
    readInput(o.positional[0], source);

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
    writeOutput(o.positional[1], result.h);
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
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, pattern.substr(k, j - k + 1).c_str(), static_cast<int>(i));
        out += buffer;
        used = true;
        k = j;
    }
    if (!used) usage("OUTPATTERN \"" + pattern + "\": expected one frame number such as %04d");
    return out;
}

int cmdSequence(int argc, char** argv) {
    Options o = parse(argc, argv, with(kEffectOptions, {"--frames", "--direction", "--speed", "--threads"}));
    if (o.positional.size() != 2) usage("sequence needs IN and OUTPATTERN");
    if (o.frames < 1) usage("sequence needs --frames N");
    const std::string pattern = o.positional[1];
    frameName(pattern, 0);
    checkOutputName(frameName(pattern, 0));
    SettingsRecord record = buildRecord(o);
    Picture source;
    readInput(o.positional[0], source);
    // As many frames at once as there are threads, each rendered on one; fewer
    // frames than threads share the rest as slice threads. Frames are written
    // as they finish and checked in order: the first that fails stops the run,
    // and the frames after it that were already written are removed.
    const unsigned threads = o.threads > 0 ? unsigned(o.threads) : hostops::availableThreads();
    const unsigned inFlight = unsigned(std::min<long>(threads, o.frames));
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
                writeOutput(frameName(pattern, i), frame.h);
                out.written = true;
            } catch (const UsageError& e) {
                out.status = 2, out.message = e.message;
            } catch (const Failure& e) {
                out.status = 1, out.message = e.message;
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
    Options o = parse(argc, argv, with(kEffectOptions, {"--direction", "--speed", "--threads", "--codec"}));
    if (o.positional.size() != 2) usage("video needs IN and OUT");
    const video::Outcome r = video::convert(
        {o.positional[0], o.positional[1], o.codec, buildRecord(o), static_cast<std::int8_t>(o.speed), unsigned(o.threads)});
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
    Options o = parse(argc, argv, with(kEffectOptions, {"--direction"}));
    if (o.positional.size() != 1) usage("settings needs OUT.flr");
    const SettingsRecord record = buildRecord(o);
    const std::string path = o.positional[0];
    std::string temp = path + ".XXXXXX";
    const int fd = mkstemp(temp.data());
    if (fd < 0) throw Failure{path + ": " + std::strerror(errno)};
    std::uint8_t block[kSettingsBlockSize];
    flairize::encodeSettingsBlock(record, block);
    bool ok = ::write(fd, block, sizeof block) == ssize_t(sizeof block);
    fchmod(fd, 0644);
    ok = ::close(fd) == 0 && ok;
    if (!ok || std::rename(temp.c_str(), path.c_str()) != 0) {
        ::unlink(temp.c_str());
        throw Failure{path + ": cannot write the settings block"};
    }
    return 0;
}

int cmdList(int argc, char** argv) {
    Options o = parse(argc, argv, {"--tsv"});
    if (!o.positional.empty()) usage("list takes no file names");
    std::string out;
    if (!o.tsv)
        out += "index  name                    offered  flags  sliders (defaults)\n";
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
        char line[160];
        std::string sliders;
        for (int k = 0; k < 3; ++k)
            if (flairize::sliderLabelId(i, k))
                sliders += (sliders.empty() ? "" : ", ") + flairize::sliderLabel(i, k) + " (" +
                           std::to_string(flairize::sliderDefault(i, k)) + ")";
        std::snprintf(line, sizeof line, "%5u  %-22s  %-7s  %5u  %s\n", i, name.c_str(), offered ? "yes" : "no", flags,
                      sliders.empty() ? "-" : sliders.c_str());
        out += line;
    }
    std::fputs(out.c_str(), stdout);
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
    if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h") || !std::strcmp(argv[1], "help")) {
        std::fputs(kUsage, argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    const std::string command = argv[1];
    try {
        if (command == "render") return cmdRender(argc - 2, argv + 2);
        if (command == "sequence") return cmdSequence(argc - 2, argv + 2);
        if (command == "video") return cmdVideo(argc - 2, argv + 2);
        if (command == "timing") return cmdTiming(argc - 2, argv + 2);
        if (command == "settings") return cmdSettings(argc - 2, argv + 2);
        if (command == "list") return cmdList(argc - 2, argv + 2);
        usage("unknown command \"" + command + "\"");
    } catch (const UsageError& e) {
        std::fprintf(stderr, "flairize: %s\n", e.message.c_str());
        return 2;
    } catch (const Failure& e) {
        std::fprintf(stderr, "flairize: %s\n", e.message.c_str());
        return 1;
    }
}

}  // namespace cli
