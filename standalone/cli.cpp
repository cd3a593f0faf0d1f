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

#include <dirent.h>
#include <fcntl.h>
#include <glob.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/flairize.h"
#include "platform/global_memory.h"
#include "hostops/host_ops.h"
#include "platform/strings.h"
#include "hostops/threads.h"
#include "resources/string_ids.h"
#include "standalone/colour_names.h"
#include "standalone/edit.h"
#include "standalone/help.h"
#include "standalone/messages.h"
#include "standalone/json_writer.h"
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

// The command's first file name as given (its input), for want of memory
// wherever it strikes: argv outlives the command, so naming it allocates nothing.
const char* g_firstFileName = nullptr;

// Text for standard output, flushed at once. A reader that stopped reading (a
// closed pipe: `flairize list | head -1`) ends the command quietly; any other
// failed write prints one line. False: exit 1.
bool printOut(const std::string& text) {
    if (std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0) return true;
    if (errno == EPIPE) return true;
    std::fprintf(stderr, "flairize: standard output: %s\n", std::strerror(errno));
    return false;
}

void warning(const std::string& text) {
    if (!notices::quiet) std::fprintf(stderr, "flairize: warning: %s\n", text.c_str());
}
void note(const std::string& text) {
    if (notices::verbose && !notices::quiet) std::fprintf(stderr, "flairize: %s\n", text.c_str());
}

std::string fileSize(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 ? pictures::sizeText(std::uint64_t(st.st_size)) : std::string("?");
}

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

// A time in the clip: seconds (12.5) or [[hh:]mm:]ss[.frac], as microseconds.
std::int64_t parseTime(const std::string& option, const std::string& text) {
    auto bad = [&]() { usage(option + ": expected seconds (12.5) or [[hh:]mm:]ss[.frac], got \"" + text + "\""); };
    std::int64_t whole = 0;
    int fields = 0;
    std::size_t k = 0;
    for (;;) {
        std::size_t digits = 0;
        std::int64_t field = 0;
        while (k < text.size() && std::isdigit(static_cast<unsigned char>(text[k])) && digits < 12)
            field = field * 10 + (text[k++] - '0'), ++digits;
        if (!digits || (fields && field >= 60)) bad();
        whole = whole * 60 + field, ++fields;
        if (k < text.size() && text[k] == ':' && fields < 3) {
            ++k;
            continue;
        }
        break;
    }
    std::int64_t micro = 0;
    if (k < text.size() && text[k] == '.') {
        std::int64_t scale = 100000;
        for (++k; k < text.size() && std::isdigit(static_cast<unsigned char>(text[k])); ++k, scale /= 10)
            micro += (text[k] - '0') * scale;
    }
    if (k != text.size()) bad();
    return whole * 1000000 + micro;
}

// RRGGBB or #RRGGBB in hex, #RGB, or a CSS colour name.
std::uint32_t parseColour(const char* text) {
    const char* hex = text[0] == '#' ? text + 1 : text;
    const std::size_t digits = std::strlen(hex);
    bool isHex = digits == 6 || (digits == 3 && hex != text);
    for (const char* p = hex; *p; ++p) isHex = isHex && std::isxdigit(static_cast<unsigned char>(*p));
    std::uint32_t named = 0;
    if (!isHex && !namedColour(text, named)) {
        const std::string guess = nearest(text, colourNames());
        usage(std::string("--colour: expected RRGGBB in hex or a colour name, got \"") + text + "\"" +
              (guess.empty() ? std::string() : "; did you mean \"" + guess + "\"?"));
    }
    unsigned long rgb = isHex ? std::strtoul(hex, nullptr, 16) : named;
    if (isHex && digits == 3)   // #RGB: each digit twice
        rgb = ((rgb >> 8) & 0xF) * 0x110000 + ((rgb >> 4) & 0xF) * 0x1100 + (rgb & 0xF) * 0x11;
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

// A bit rate as ffmpeg writes one: bits a second, or with k, M or G (thousands).
std::int64_t parseBitrate(const std::string& option, const std::string& text) {
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    double scale = 1;
    if (*end == 'k' || *end == 'K') scale = 1e3, ++end;
    else if (*end == 'M') scale = 1e6, ++end;
    else if (*end == 'G') scale = 1e9, ++end;
    const double bits = v * scale;
    if (text.empty() || !std::isdigit(static_cast<unsigned char>(text[0])) || *end || errno || !(bits >= 1) ||
        bits > 1e12)
        usage(option + ": expected bits a second such as 4M, 800k or 2500000, got \"" + text + "\"");
    return std::int64_t(bits + 0.5);
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
    bool json = false;
    bool noOverwrite = false;
    bool recursive = false;
    std::string outputDir;   // render: many pictures into this folder
    std::string suffix;
    bool suffixGiven = false;
    std::string format;      // render with --output-dir: the outputs' extension
    bool keepOrientation = false;   // --no-auto-orient
    pictures::Limits limits;   // the environment's, then the options'
    video::EncoderControls encoding;   // video's --crf, --preset, --bitrate, --pix-fmt, --gop, --encoder-option
    long codecThreads = 0;      // video: the codecs' own threads; 0: FFmpeg's choice
    std::int64_t from = 0, to = -1;   // video: the part kept, in microseconds
    bool keepGoing = false;
    long part = 0, parts = 0;   // --part I/N; parts 0: all
    std::string countFile;      // video --count-file
    std::string audioFrom;      // join --audio-from
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

Options parse(int argc, char** argv, const CommandHelp& command) {
    const std::vector<std::string> allowed = acceptedOptions(command);
    Options o;
    if (const char* v = std::getenv("FLAIRIZE_MAX_PIXELS")) setMaxPixels(o.limits, "FLAIRIZE_MAX_PIXELS", v);
    if (const char* v = std::getenv("FLAIRIZE_MAX_MEMORY")) setMaxMemory(o.limits, "FLAIRIZE_MAX_MEMORY", v);
    auto allowedOption = [&](const std::string& name) {
        for (const auto& a : allowed)
            if (a == name) return true;
        return false;
    };
    bool optionsEnded = false;
    for (int i = 0; i < argc; ++i) {
        std::string arg = argv[i];
        if (optionsEnded) {
            o.positional.push_back(arg);
            continue;
        }
        if (arg == "--") {   // what follows are file names
            optionsEnded = true;
            continue;
        }
        // The short forms of the options that have one.
        const std::pair<const char*, const char*> shortForms[] = {
            {"-n", "--no-overwrite"}, {"-q", "--quiet"}, {"-v", "--verbose"}};
        for (const auto& [shortForm, longForm] : shortForms)
            if (arg == shortForm && allowedOption(shortForm)) arg = longForm;
        if (arg.size() < 2 || arg[0] != '-' || arg[1] != '-') {
            if (arg.size() > 1 && arg[0] == '-') usage("unknown option \"" + arg + "\"");
            if (!g_firstFileName) g_firstFileName = argv[i];
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
        const std::pair<const char*, bool*> switches[] = {
            {"--filter-only", &o.filterOnly}, {"--tsv", &o.tsv},           {"--json", &o.json},
            {"--quiet", &notices::quiet},     {"--verbose", &notices::verbose}, {"--no-overwrite", &o.noOverwrite},
            {"--recursive", &o.recursive}, {"--keep-going", &o.keepGoing},
            {"--no-auto-orient", &o.keepOrientation}};
        bool* flag = nullptr;
        for (const auto& [name, target] : switches)
            if (arg == name) flag = target;
        if (flag) {
            if (inlineValue) usage(arg + " takes no value");
            *flag = true;
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
        } else if (arg == "--crf") {
            char* end = nullptr;
            std::strtod(v, &end);
            if (!*v || *end) usage(arg + ": expected a number such as 23, got \"" + value + "\"");
            o.encoding.crf = value;   // its range is the encoder's, checked there
        } else if (arg == "--preset") {
            o.encoding.preset = value;
        } else if (arg == "--bitrate") {
            o.encoding.bitrate = parseBitrate(arg, value);
        } else if (arg == "--pix-fmt") {
            o.encoding.pixelFormat = value;
        } else if (arg == "--gop") {
            o.encoding.gop = int(parseNumber(arg, v, 1, 100000));
        } else if (arg == "--encoder-option") {
            const std::size_t sep = value.find('=');
            if (sep == std::string::npos || sep == 0)
                usage(arg + ": expected key=value, such as tune=film, got \"" + value + "\"");
            o.encoding.options.emplace_back(value.substr(0, sep), value.substr(sep + 1));
        } else if (arg == "--codec-threads") {
            o.codecThreads = parseNumber(arg, v, 1, 1024);
        } else if (arg == "--from" || arg == "--to") {
            (arg == "--from" ? o.from : o.to) = parseTime(arg, value);
        } else if (arg == "--format" && std::string(command.name) == "video") {
            if (value != "mkv" && value != "ts") usage("--format: expected mkv or ts, got \"" + value + "\"");
            o.format = value;
        } else if (arg == "--part") {
            char* end = nullptr;
            errno = 0;
            const long index = std::strtol(v, &end, 10);
            const long n = *end == '/' && end > v && std::isdigit(static_cast<unsigned char>(*v)) ? std::strtol(end + 1, &end, 10) : -1;
            if (*end || errno || n < 1 || n > 100000 || index < 0 || index >= n)
                usage("--part: expected I/N with 0 <= I < N <= 100000, such as 2/8, got \"" + value + "\"");
            o.part = index, o.parts = n;
        } else if (arg == "--count-file") {
            if (value.empty()) usage("--count-file: expected a file name");
            o.countFile = value;
        } else if (arg == "--audio-from") {
            if (value.empty()) usage("--audio-from: expected the clip the parts were rendered from");
            o.audioFrom = value;
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
        } else if (arg == "--output-dir") {
            if (value.empty()) usage("--output-dir: expected a folder");
            o.outputDir = value;
        } else if (arg == "--suffix") {
            if (value.find('/') != std::string::npos) usage("--suffix: a name's ending cannot hold \"/\"");
            o.suffix = value, o.suffixGiven = true;
        } else if (arg == "--format") {
            o.format = value;
            for (char& c : o.format) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            if (o.format == "jpeg") o.format = "jpg";
            if (o.format == "tiff") o.format = "tif";
            if (pictures::formatOf("x." + o.format) == pictures::Format::Unknown)
                usage("--format: expected png, jpg, webp, tif or bmp, got \"" + value + "\"");
        } else {   // a slider by its option
            const std::vector<std::string> sliders = sliderOptions();
            if (std::find(sliders.begin(), sliders.end(), arg.substr(2)) == sliders.end())
                throw Failure{arg + ": this option is listed in the help but not handled"};
            o.named[arg.substr(2)] = parseNumber(arg, v, 0, 255);
        }
    }
    return o;
}

Options parse(int argc, char** argv, const char* command) { return parse(argc, argv, *findCommand(command)); }

// Whether an effect is a placeholder: one the editor does not offer whose
// render of a light grey picture is all black, as its rows write nothing.
bool isPlaceholder(unsigned effect) {
    if (effect >= flairize::effectCount() || flairize::effectOffered(effect)) return false;
    std::uint8_t source[4 * 4 * 3], output[4 * 4 * 3];
    std::memset(source, 0xC8, sizeof source);
    std::memset(output, 0x5A, sizeof output);
    const flairize::PictureView in{source, 12, 4, 4, 3}, out{output, 12, 4, 4, 3};
    SettingsRecord record = flairize::newSettingsRecord();
    flairize::chooseEffect(record, std::uint16_t(effect));
    record.progress = 16384;
    const flairize::Result r =
        flairize::renderInto(hostops::services(), in, flairize::settingsOf(record), flairize::Mix::None, out);
    if (r.status != flairize::Status::Ok) return false;
    for (const std::uint8_t byte : output)
        if (byte != 0) return false;
    return true;
}

std::string hexColour(std::uint32_t colorref) {
    char text[8];
    std::snprintf(text, sizeof text, "#%02x%02x%02x", colorref & 0xFF, (colorref >> 8) & 0xFF, (colorref >> 16) & 0xFF);
    return text;
}

// "mosaic (9), sliders 128 0 0, colour #000000, Forward, progress 16384"
std::string describe(const SettingsRecord& r) {
    return flairize::effectSlug(r.effect) + " (" + std::to_string(r.effect) + "), sliders " + std::to_string(r.param1) +
           " " + std::to_string(r.param2) + " " + std::to_string(r.param3) + ", colour " + hexColour(r.colour) + ", " +
           plat::loadString(ids::kFirstDirection + (r.direction & 3)) + ", progress " + std::to_string(r.progress);
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
        warning(what + " has no effect on " + name + " (" + why + ")");
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
    if (isPlaceholder(r.effect)) warning(name + " is a placeholder and renders a blank picture");
    return r;
}

struct Picture {
    HGLOBAL h = nullptr;
    ~Picture() { plat::globalFree(h); }
};

// --verbose: "read a.jpg (1920 x 1080, 24-bit, 612.3 KiB)"
void noteRead(const std::string& path, HGLOBAL picture) {
    if (!notices::verbose) return;
    BITMAPINFOHEADER h;
    std::memcpy(&h, plat::globalLock(picture), sizeof h);
    plat::globalUnlock(picture);
    note("read " + path + " (" + std::to_string(h.biWidth) + " x " + std::to_string(std::abs(h.biHeight)) + ", " +
         std::to_string(h.biBitCount) + "-bit" + (path == "-" ? std::string() : ", " + fileSize(path)) + ")");
}

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
    noteRead(path, pic.h);
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
void checkOutputName(const std::string& path, long quality = 0, bool noOverwrite = false) {
    const pictures::Format format = pictures::formatOf(path);
    if (format == pictures::Format::Unknown)
        throw UsageError{path + ": unknown picture format (use " + pictures::kKnownExtensions + ")"};
    std::string error;
    if (!output::check(path, error)) throw UsageError{path + ": " + error};
    if (noOverwrite && path != "-" && ::access(path.c_str(), F_OK) == 0)
        throw UsageError{path + ": exists already (--no-overwrite)"};
    if (quality && !pictures::takesQuality(format))
        warning("--quality applies to JPEG and WebP only; " + path + " is written without it");
}

void writeOutput(const std::string& path, HGLOBAL picture, long quality = 0,
                 const pictures::Metadata* metadata = nullptr) {
    std::string error;
    pictures::WriteOptions options;
    options.quality = int(quality);
    options.metadata = metadata;
    pictures::WriteFailure why = pictures::WriteFailure::None;
    if (!pictures::write(path, picture, error, options, &why)) {
        if (why == pictures::WriteFailure::OutOfMemory) throw Failure{path + ": " + plat::loadString(ids::kNoMemory)};
        // Standard output that fails (its reader went away) is a failed run, not a bad name.
        if (path == "-") throw Failure{path + ": " + error};
        throw UsageError{path + ": " + error};
    }
    if (path != "-") note("wrote " + path + " (" + fileSize(path) + ")");
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
    bool enabled = isatty(STDERR_FILENO) != 0 && !notices::quiet;
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

// ---- render with --output-dir: many pictures into one folder

struct BatchPicture {
    std::string input;
    std::string output;
    int status = 0;   // as main() returns: 1 failure, 2 refusal
    std::string message;
    bool retryAlone = false;   // refused for want of memory beside the others
};

bool isFolder(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The pictures (by extension) in folder `root`/`relative` and its subfolders,
// sorted by name; each with its path below root.
void picturesInFolder(const std::string& root, const std::string& relative,
                      std::vector<std::pair<std::string, std::string>>& found) {
    const std::string folder = relative.empty() ? root : root + "/" + relative;
    std::vector<std::string> names;
    if (DIR* d = ::opendir(folder.c_str())) {
        while (const dirent* e = ::readdir(d))
            if (e->d_name[0] != '.') names.emplace_back(e->d_name);
        ::closedir(d);
    } else {
        usage(folder + ": " + std::strerror(errno));
    }
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        const std::string below = relative.empty() ? name : relative + "/" + name;
        if (isFolder(root + "/" + below))
            picturesInFolder(root, below, found);
        else if (pictures::formatOf(name) != pictures::Format::Unknown)
            found.emplace_back(root + "/" + below, below);
    }
}

// mkdir -p
void makeFolders(const std::string& path) {
    for (std::size_t at = path.find('/', 1);; at = path.find('/', at + 1)) {
        const std::string part = path.substr(0, at);
        if (!part.empty() && ::mkdir(part.c_str(), 0777) != 0 && errno != EEXIST)
            throw UsageError{part + ": cannot make the folder (" + std::strerror(errno) + ")"};
        if (at == std::string::npos) break;
    }
    if (!isFolder(path)) throw UsageError{path + ": not a folder"};
}

// The inputs as given (quoted patterns expanded, folders walked with
// --recursive), each with its output name in the output folder.
std::vector<BatchPicture> batchPictures(const Options& o, const SettingsRecord& record) {
    std::vector<std::pair<std::string, std::string>> inputs;   // path, its name below the output folder
    for (const std::string& given : o.positional) {
        if (given == "-") usage("render: standard input cannot be one of many pictures");
        std::vector<std::string> paths{given};
        if (::access(given.c_str(), F_OK) != 0 && given.find_first_of("*?[") != std::string::npos) {
            glob_t matches{};
            const int found = ::glob(given.c_str(), 0, nullptr, &matches);
            paths.assign(matches.gl_pathv, matches.gl_pathv + (found == 0 ? matches.gl_pathc : 0));
            ::globfree(&matches);
            if (paths.empty()) usage(given + ": no file matches");
        }
        for (const std::string& path : paths) {
            if (!isFolder(path)) {
                const std::size_t slash = path.rfind('/');
                inputs.emplace_back(path, slash == std::string::npos ? path : path.substr(slash + 1));
                continue;
            }
            if (!o.recursive) usage(path + ": is a folder (--recursive renders the pictures in it)");
            picturesInFolder(path, "", inputs);
        }
    }
    if (inputs.empty()) usage("render: no pictures to render");
    const std::string suffix = o.suffixGiven ? o.suffix : "-" + flairize::effectSlug(record.effect);
    std::vector<BatchPicture> batch;
    std::map<std::string, std::size_t> byOutput;
    for (const auto& [path, below] : inputs) {
        const std::size_t slash = below.rfind('/');
        const std::string name = slash == std::string::npos ? below : below.substr(slash + 1);
        const std::size_t dot = name.rfind('.');
        const std::string stem = dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
        std::string extension = o.format.empty() ? "" : "." + o.format;
        if (extension.empty())
            extension = dot != std::string::npos && pictures::formatOf(name) != pictures::Format::Unknown
                            ? name.substr(dot) : ".png";
        BatchPicture p;
        p.input = path;
        p.output = o.outputDir + "/" + (slash == std::string::npos ? "" : below.substr(0, slash + 1)) + stem + suffix +
                   extension;
        // Two inputs that would make the same file refuse the whole run.
        const auto [at, isNew] = byOutput.emplace(p.output, batch.size());
        if (!isNew)
            usage(p.output + ": both " + batch[at->second].input + " and " + path +
                  " would be written here; nothing was rendered (rename one, or change --format or --suffix)");
        batch.push_back(p);
    }
    // Nor may an output replace one of the inputs.
    for (const BatchPicture& p : batch) {
        struct stat out {};
        if (::stat(p.output.c_str(), &out) != 0) continue;
        for (const BatchPicture& q : batch) {
            struct stat in {};
            if (::stat(q.input.c_str(), &in) == 0 && in.st_dev == out.st_dev && in.st_ino == out.st_ino)
                usage(p.output + ": would replace the input " + q.input + "; nothing was rendered");
        }
    }
    return batch;
}

// Reads, renders and writes one picture of a batch; its failure is kept in it.
void renderBatchPicture(BatchPicture& p, const Options& o, const SettingsRecord& record,
                        const flairize::HostServices& host, const pictures::Limits& limits, bool mayRetry) {
    try {
        const std::size_t slash = p.output.rfind('/');
        if (slash != std::string::npos && slash > o.outputDir.size()) makeFolders(p.output.substr(0, slash));
        checkOutputName(p.output, 0, o.noOverwrite);
        Picture source;
        std::string error;
        pictures::ReadFailure why = pictures::ReadFailure::None;
        pictures::Metadata metadata;
        pictures::ReadOptions options;
        options.autoOrient = !o.keepOrientation;
        options.metadata = &metadata;
        source.h = pictures::read(p.input, error, limits, &why, options);
        if (why == pictures::ReadFailure::OutOfMemory) throw Failure{p.input + ": " + plat::loadString(ids::kNoMemory)};
        if (!source.h) {
            const bool forMemory = error.rfind("file too large", 0) == 0 ||
                                   (error.rfind("picture too large", 0) == 0 && error.find(" of memory") != std::string::npos);
            if (mayRetry && forMemory) {
                p.retryAlone = true;
                return;
            }
            throw UsageError{p.input + ": " + error};
        }
        noteRead(p.input, source.h);
        const flairize::Result r = flairize::render(host, source.h, flairize::settingsOf(record),
                                                    o.filterOnly ? flairize::Mix::None : flairize::Mix::Always);
        Picture result;
        result.h = pictureOf(r, p.input);
        // -n: an output that appeared meanwhile is not replaced either.
        if (o.noOverwrite && ::access(p.output.c_str(), F_OK) == 0)
            throw UsageError{p.output + ": exists already (--no-overwrite)"};
        writeOutput(p.output, result.h, o.quality, &metadata);
    } catch (const UsageError& e) {
        p.status = 2, p.message = e.message;
    } catch (const Failure& e) {
        p.status = 1, p.message = e.message;
    } catch (const std::bad_alloc&) {
        p.status = 1, p.message = p.input + ": " + plat::loadString(ids::kNoMemory);
    }
}

int renderBatch(const Options& o) {
    SettingsRecord record = buildRecord(o);
    record.progress = std::uint32_t(o.progress);
    note("effect " + describe(record));
    std::vector<BatchPicture> batch = batchPictures(o, record);
    if (o.parts) {   // every N-th of the sorted list; the names were checked on the whole list
        std::stable_sort(batch.begin(), batch.end(),
                         [](const BatchPicture& a, const BatchPicture& b) { return a.input < b.input; });
        std::vector<BatchPicture> mine;
        for (std::size_t i = std::size_t(o.part); i < batch.size(); i += std::size_t(o.parts)) mine.push_back(batch[i]);
        if (mine.empty()) {
            if (!notices::quiet)
                std::fprintf(stderr, "part %ld/%ld: no pictures in it (%zu in all)\n", o.part, o.parts, batch.size());
            return 0;
        }
        batch.swap(mine);
    }
    makeFolders(o.outputDir);
    // Several pictures at once, each on its share of the threads and of the
    // memory; a picture too large for its share is rendered afterwards alone.
    const long count = long(batch.size());
    const unsigned threads = o.threads > 0 ? unsigned(o.threads) : hostops::availableThreads();
    const unsigned inFlight = unsigned(std::min<long>(threads, count));
    pictures::Limits share = o.limits;
    share.maxMemory = o.limits.maxMemory / inFlight;
    const flairize::HostServices host = hostops::threadedServices(std::max(1u, threads / inFlight));
    ProgressBar bar;
    long finished = 0;
    auto report = [&](const BatchPicture& p) {
        ++finished;
        if (p.status != 0) {
            if (bar.enabled) std::fputc('\n', stderr);
            std::fprintf(stderr, "flairize: %s\n", p.message.c_str());
        }
        bar.show(double(finished) / double(count), "picture " + std::to_string(finished) + "/" + std::to_string(count));
    };
    hostops::runInOrder(
        inFlight, count, [&](long i) { renderBatchPicture(batch[std::size_t(i)], o, record, host, share, inFlight > 1); },
        [&](long i) {
            if (!batch[std::size_t(i)].retryAlone) report(batch[std::size_t(i)]);
            return true;
        });
    const flairize::HostServices allThreads = hostops::threadedServices(threads);
    for (BatchPicture& p : batch)
        if (p.retryAlone) {
            p.retryAlone = false;
            renderBatchPicture(p, o, record, allThreads, o.limits, false);
            report(p);
        }
    bar.done();
    long written = 0;
    int status = 0;
    for (const BatchPicture& p : batch) {
        if (p.status == 0) ++written;
        if (p.status == 2 || (p.status == 1 && status == 0)) status = p.status;
    }
    if (!notices::quiet)
        std::fprintf(stderr, "rendered %ld of %ld picture%s into %s/%s\n", written, count, count == 1 ? "" : "s",
                     o.outputDir.c_str(),
                     written == count ? "" : (" (" + std::to_string(count - written) + " failed)").c_str());
    return status;
}

int cmdRender(int argc, char** argv) {
    Options o = parse(argc, argv, "render");
    if (!o.outputDir.empty()) {
        while (o.outputDir.size() > 1 && o.outputDir.back() == '/') o.outputDir.pop_back();
        return renderBatch(o);
    }
    if (o.suffixGiven || !o.format.empty() || o.recursive || o.parts)
        usage("--suffix, --format, --recursive and --part go with --output-dir");
    if (o.positional.size() != 2)
        usage(o.positional.size() > 2 ? "render needs IN and OUT, or IN... --output-dir DIR"
                                      : "render needs IN and OUT");
    SettingsRecord record = buildRecord(o);
    record.progress = std::uint32_t(o.progress);
    note("effect " + describe(record));
    checkOutputName(o.positional[1], o.quality, o.noOverwrite);
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
    Options o = parse(argc, argv, "sequence");
    if (o.positional.size() != 2) usage("sequence needs IN and OUTPATTERN");
    if (o.frames < 1) usage("sequence needs --frames N");
    const std::string pattern = o.positional[1];
    frameName(pattern, 0);
    checkOutputName(frameName(pattern, 0), o.quality);
    SettingsRecord record = buildRecord(o);
    note("effect " + describe(record) + " at each frame's own progress, speed " + std::to_string(o.speed));
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
                if (o.noOverwrite && ::access(frameName(pattern, i).c_str(), F_OK) == 0)
                    throw UsageError{frameName(pattern, i) + ": exists already (--no-overwrite)"};
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
    Options o = parse(argc, argv, "video");
    if (o.positional.size() != 2) usage("video needs IN and OUT");
    if (o.noOverwrite && ::access(o.positional[1].c_str(), F_OK) == 0)
        usage(o.positional[1] + ": exists already (--no-overwrite)");
    video::Job job;
    job.input = o.positional[0], job.output = o.positional[1], job.codec = o.codec;
    job.record = buildRecord(o);
    job.speed = static_cast<std::int8_t>(o.speed), job.threads = unsigned(o.threads), job.limits = o.limits;
    job.encoding = o.encoding;
    job.codecThreads = unsigned(o.codecThreads);
    job.from = o.from, job.to = o.to;
    job.format = o.format;
    job.frames = o.frames > 0 ? o.frames : 0;
    job.progress = std::find(o.given.begin(), o.given.end(), "--progress") != o.given.end() ? o.progress : -1;
    job.keepGoing = o.keepGoing;
    if (job.to >= 0 && job.to <= job.from) usage("--to: the end comes before --from's start");
    if (!o.countFile.empty() && !o.parts) usage("--count-file goes with --part");
    if (o.parts) {
        if (job.from > 0 || job.to >= 0) usage("--part splits the whole clip; --from and --to cannot go with it");
        if (job.frames > 0) usage("--part counts the clip's frames itself; --frames cannot go with it");
        if (job.input == "-" || job.output == "-") usage("--part: a part is read from and written to files, not pipes");
        job.part = int(o.part), job.parts = int(o.parts), job.countFile = o.countFile;
    }
    const video::Outcome r = video::convert(job);
    if (r.status == 2) throw UsageError{r.message};
    if (r.status != 0) throw Failure{r.message};
    return 0;
}

int cmdJoin(int argc, char** argv) {
    Options o = parse(argc, argv, "join");
    if (o.positional.size() < 2) usage("join needs PART... and OUT");
    if (o.audioFrom.empty()) usage("join needs --audio-from IN, the clip the parts were rendered from");
    video::JoinJob job;
    job.parts.assign(o.positional.begin(), o.positional.end() - 1);
    job.output = o.positional.back();
    job.original = o.audioFrom;
    if (o.noOverwrite && ::access(job.output.c_str(), F_OK) == 0) usage(job.output + ": exists already (--no-overwrite)");
    const video::Outcome r = video::join(job);
    if (r.status == 2) throw UsageError{r.message};
    if (r.status != 0) throw Failure{r.message};
    return 0;
}

int cmdEdit(int argc, char** argv) {
    Options o = parse(argc, argv, "edit");
    if (o.positional.size() > 1) usage("edit takes at most one PICTURE");
    const edit::Outcome r = edit::serve({o.positional.empty() ? "" : o.positional[0], o.site});
    if (r.status == 2) throw UsageError{r.message};
    if (r.status != 0) throw Failure{r.message};
    return 0;
}

int cmdTiming(int argc, char** argv) {
    Options o = parse(argc, argv, "timing");
    if (!o.positional.empty()) usage("timing takes no file names");
    if (o.frames < 1) usage("timing needs --frames N");
    const std::uint32_t direction = o.direction >= 0 ? std::uint32_t(o.direction) : kDirectionForward;
    std::string out;
    JsonWriter json;
    json.beginObject()
        .member("frames", o.frames)
        .member("speed", o.speed)
        .member("direction", plat::loadString(ids::kFirstDirection + direction))
        .key("timing")
        .beginArray();
    for (long i = 0; i < o.frames; ++i) {
        const std::uint32_t position = flairize::sequencePosition(std::uint64_t(i), std::uint64_t(o.frames));
        const std::uint32_t progress = flairize::frameProgress(position, static_cast<std::int8_t>(o.speed), direction);
        if (o.json)
            json.beginObject().member("frame", i).member("position", position).member("progress", progress).endObject();
        else
            out += std::to_string(i) + " " + std::to_string(position) + " " + std::to_string(progress) + "\n";
    }
    if (o.json) out = json.endArray().endObject().text() + "\n";
    return printOut(out) ? 0 : 1;
}

int cmdSettings(int argc, char** argv) {
    Options o = parse(argc, argv, "settings");
    if (o.positional.size() != 1) usage("settings needs OUT.flr");
    const SettingsRecord record = buildRecord(o);
    const std::string path = o.positional[0];
    std::uint8_t block[kSettingsBlockSize];
    flairize::encodeSettingsBlock(record, block);
    if (o.noOverwrite && path != "-" && ::access(path.c_str(), F_OK) == 0)
        throw UsageError{path + ": exists already (--no-overwrite)"};
    output::File file;
    std::string error;
    if (!file.open(path, error)) throw UsageError{path + ": " + error};
    if (::write(file.fd(), block, sizeof block) != ssize_t(sizeof block) || !file.commit(error))
        throw UsageError{path + ": cannot write the settings block"};
    const SettingsRecord written = flairize::decodeSettingsBlock(block);
    note("wrote " + path + " (" + std::to_string(sizeof block) + " bytes): " + describe(written));
    if (o.json) {
        JsonWriter json;
        json.beginObject()
            .member("file", path)
            .member("effect", unsigned(written.effect))
            .member("slug", flairize::effectSlug(written.effect))
            .member("name", flairize::effectName(written.effect))
            .member("progress", std::uint32_t(written.progress))   // a copy: the record is packed
            .key("sliders")
            .beginArray();
        const std::uint16_t values[3] = {written.param1, written.param2, written.param3};
        for (int k = 0; k < 3; ++k)
            json.beginObject()
                .member("slider", k + 1)
                .member("option", flairize::sliderOption(written.effect, k))
                .member("label", flairize::sliderLabel(written.effect, k))
                .member("value", unsigned(values[k]))
                .endObject();
        json.endArray()
            .member("direction", plat::loadString(ids::kFirstDirection + (written.direction & 3)))
            .member("direction_field", std::uint32_t(written.direction))
            .member("colour", hexColour(written.colour))
            .member("colorref", std::uint32_t(written.colour))
            .endObject();
        std::fputs((json.text() + "\n").c_str(), stdout);
    }
    return 0;
}

int cmdList(int argc, char** argv) {
    Options o = parse(argc, argv, "list");
    if (!o.positional.empty()) usage("list takes no file names");
    if (o.json) {
        JsonWriter json;
        json.beginObject().member("count", flairize::effectCount()).key("effects").beginArray();
        for (unsigned i = 0; i < flairize::effectCount(); ++i) {
            json.beginObject()
                .member("index", i)
                .member("slug", flairize::effectSlug(i))
                .member("name", flairize::effectName(i))
                .member("offered", flairize::effectOffered(i))
                .member("placeholder", isPlaceholder(i))
                .member("category", flairize::effectCategory(i))
                .member("description", flairize::effectDescription(i))
                .member("fades_in", flairize::effectFadesIn(i))
                .member("uses_colour", flairize::effectUsesColour(i))
                .key("sliders")
                .beginArray();
            for (int k = 0; k < 3; ++k) {
                if (!flairize::sliderLabelId(i, k)) continue;
                json.beginObject()
                    .member("slider", k + 1)
                    .member("option", flairize::sliderOption(i, k))
                    .member("label", flairize::sliderLabel(i, k))
                    .member("min", unsigned(flairize::sliderMinimum(i, k)))
                    .member("max", unsigned(flairize::sliderMaximum(i, k)))
                    .member("default", unsigned(flairize::sliderDefault(i, k)))
                    .member("unit", flairize::sliderUnit(i, k))
                    .member("meaning", flairize::sliderMeaning(i, k))
                    .endObject();
            }
            json.endArray().endObject();
        }
        std::fputs((json.endArray().endObject().text() + "\n").c_str(), stdout);
        return 0;
    }
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
    return printOut(out) ? 0 : 1;
}

int cmdSheet(int argc, char** argv) {
    Options o = parse(argc, argv, "sheet");
    if (o.positional.size() != 2) usage("sheet needs IN and OUT");
    checkOutputName(o.positional[1], 0, o.noOverwrite);
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
        return printOut(mainHelp()) ? 0 : 1;
    }
    if (command == "--version") {
        return printOut(versionText()) ? 0 : 1;
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
        for (int i = 2; i < argc && std::strcmp(argv[i], "--"); ++i)
            wantsHelp = wantsHelp || !std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h");
        if (wantsHelp) {
            return printOut(commandHelp(*help)) ? 0 : 1;
        }
        if (command == "render") return cmdRender(argc - 2, argv + 2);
        if (command == "sequence") return cmdSequence(argc - 2, argv + 2);
        if (command == "sheet") return cmdSheet(argc - 2, argv + 2);
        if (command == "video") return cmdVideo(argc - 2, argv + 2);
        if (command == "join") return cmdJoin(argc - 2, argv + 2);
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
    } catch (const std::bad_alloc&) {   // the one out-of-memory message, naming the input as everywhere
        std::fprintf(stderr, "flairize: %s: %s\n", g_firstFileName ? g_firstFileName : argv[1],
                     plat::loadString(ids::kNoMemory).c_str());
        return 1;
    }
}

}  // namespace cli
