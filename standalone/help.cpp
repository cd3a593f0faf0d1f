#include "standalone/help.h"

#include <algorithm>
#include <cctype>

#include "engine/flairize.h"

namespace cli {

namespace {

// The effect options; the slider options come from the catalogue.
std::string effectOptions() {
    std::string sliders;
    for (const std::string& option : sliderOptions()) sliders += (sliders.empty() ? "--" : ", --") + option;
    return "Effect options:\n"
           "  --effect NAME|INDEX   the effect, by the name `flairize list` shows (\"find-edges\") or\n"
           "                        its index (default: weave)\n" +
           wrapped(sliders + " N", 2, 0) +
           "                        the effect's sliders by name, 0..255 (default: the effect's\n"
           "                        own; `flairize list` says what each one does)\n"
           "  --p1 N --p2 N --p3 N  the sliders by position, 0..255\n"
           "  --colour RRGGBB       the colour the effect paints with, hex, red first (default 000000)\n"
           "  --settings FILE.flr   effect, sliders, colour and direction from a settings block;\n"
           "                        options given as well override it\n";
}

const char* const kTimingOptions =
    "  --direction D         Forward (default), Backward, Cycle or \"Reverse Cycle\"\n"
    "  --speed S             -124..127: bends the progress along a power curve; positive\n"
    "                        speeds start slowly, negative ones quickly (default 0)\n";

const char* const kQuality =
    "  --quality N           1..100 for JPEG (default 90) and WebP (default: lossless);\n"
    "                        other formats warn and ignore it\n";

const char* const kThreads =
    "  --threads N           threads to render on (default: all cores; 1: one); the\n"
    "                        pictures are the same for every count\n";

const char* const kLimits =
    "  --max-pixels N        refuse a picture of more than N pixels (default 268435456,\n"
    "                        16384 x 16384; environment FLAIRIZE_MAX_PIXELS)\n"
    "  --max-memory SIZE     memory for the picture and its renders, e.g. 512M or 4G\n"
    "                        (default 8G; environment FLAIRIZE_MAX_MEMORY); a larger input\n"
    "                        file than half of it is refused unread, a picture whose\n"
    "                        renders need more from its header, before it is decoded\n";

}  // namespace

const std::vector<CommandHelp>& commands() {
    static const std::vector<CommandHelp> list = {
        {"render", "IN OUT [effect options] [--progress P] [--filter-only] [--threads N] [--quality N] [--no-auto-orient]",
         "render one picture with an effect",
         "IN and OUT are BMP, PNG, JPEG, WebP or TIFF pictures (IN also GIF, its first\n"
         "frame); OUT's format follows its extension. IN \"-\" reads standard input; OUT \"-\"\n"
         "writes PNG to standard output. IN's colour profile, EXIF data and resolution go\n"
         "into OUT where its format holds them; IN is turned as its EXIF orientation says.\n"
         "  --no-auto-orient      keep the stored orientation (and say it in OUT's EXIF)\n"
         "  --progress P          how far the effect has advanced: 0..16384, a fraction such as\n"
         "                        0.5, or a percentage such as 50% (default: the full effect)\n"
         "  --filter-only         the effect's own result, without the mix with the source by\n"
         "                        the progress that effects which fade in get\n"},
        {"sequence", "IN OUTPATTERN --frames N [effect options] [--direction D] [--speed S] [--threads N] [--quality N]",
         "render N frames across the effect's stretch",
         "Frame i is at position i x 16384 / (N - 1), through the speed curve and the\n"
         "direction, as `flairize timing` prints. OUTPATTERN holds one %d conversion,\n"
         "e.g. out/frame%04d.png. Several frames render at once; if one fails, the\n"
         "run stops there, keeping the frames before it. Each frame keeps IN's metadata.\n"
         "  --no-auto-orient      keep IN's stored orientation\n"},
        {"video", "IN OUT [effect options] [--direction D] [--speed S] [--threads N] [--codec NAME]",
         "render every frame of a video across the effect's stretch",
         "IN is any video FFmpeg's libraries read. Frame i of N is rendered as `sequence`\n"
         "renders it. OUT's extension picks the encoder: .mp4 and .mov H.264 (yuv420p), .mkv\n"
         "FFV1 (lossless: the frames are the rendered pictures bit for bit). Audio is copied.\n"
         "  --codec NAME          any FFmpeg video encoder instead\n"},
        {"sheet", "IN OUT [--columns N] [--threads N]",
         "every offered effect on one picture, as a labelled contact sheet",
         "Each effect renders IN at its defaults and full progress; the sheet shows the\n"
         "original first, then the effects in table order, each at half size.\n"
         "  --columns N           pictures per row (default 6)\n"
         "  --no-auto-orient      keep IN's stored orientation\n"},
        {"edit", "[PICTURE] [--site DIR]",
         "open the web editor: serve it on this computer until Ctrl-C",
         "Serves the web editor (the engine compiled to WebAssembly) on 127.0.0.1 at a\n"
         "free port and prints its address; when the environment variable BROWSER names\n"
         "a browser, it opens the address there. PICTURE, when given, opens in the editor.\n"
         "Ctrl-C (SIGINT) or SIGTERM stops the server.\n"
         "  --site DIR            the editor's folder (default: environment FLAIRIZE_WEB_DIR,\n"
         "                        else site/ beside the flairize executable, else\n"
         "                        ../share/flairize/web from it, where it is installed)\n"},
        {"timing", "--frames N [--direction D] [--speed S]",
         "print \"frame position progress\" for each frame of a sequence", ""},
        {"settings", "OUT.flr [effect options] [--direction D]",
         "write a 20-byte settings block (for --settings)", ""},
        {"list", "[--tsv]",
         "list the effects: the name to type, what each does, its sliders and what they do",
         "  --tsv                 one tab-separated line per effect: index, name, offered,\n"
         "                        flags (1 fades in, 2 paints with the colour), the three\n"
         "                        slider labels and their defaults\n"},
    };
    return list;
}

const CommandHelp* findCommand(const std::string& name) {
    for (const CommandHelp& c : commands())
        if (name == c.name) return &c;
    return nullptr;
}

std::string versionText() {
    return "flairize " + std::to_string(FLAIRIZE_VERSION_MAJOR) + "." + std::to_string(FLAIRIZE_VERSION_MINOR) + "\n";
}

std::string mainHelp() {
    std::string s =
        "Usage: flairize COMMAND [options]\n"
        "Renders pictures and frame sequences with the Flairize effects, bit for bit as\n"
        "the FLAIR.dll plug-in and the frei0r plug-ins render them.\n\nCommands:\n";
    for (const CommandHelp& c : commands()) {
        std::string line = std::string("  ") + c.name;
        line.resize(12, ' ');
        s += line + c.summary + "\n";
    }
    s += "\n`flairize COMMAND --help` shows a command's options; `flairize --version` the version.\n\n";
    s += effectOptions();
    s += "\nExit status: 0 success; 1 the render failed, out of memory always with the one\n"
         "message \"Not enough memory to complete operation\"; 2 bad input (a picture over\n"
         "--max-pixels or --max-memory included), bad usage, or an output that cannot be written.\n";
    return s;
}

std::string commandHelp(const CommandHelp& c) {
    const std::string name = c.name;
    std::string s = "Usage: flairize " + name + " " + c.synopsis + "\n" + c.summary + ".\n\n" + c.details;
    const std::string synopsis = c.synopsis;
    if (synopsis.find("--direction") != std::string::npos) s += kTimingOptions;
    if (synopsis.find("--threads") != std::string::npos) s += std::string(kThreads) + kLimits;
    if (synopsis.find("--quality") != std::string::npos) s += kQuality;
    if (synopsis.find("effect options") != std::string::npos) s += "\n" + effectOptions();
    return s;
}

std::string nearest(const std::string& word, const std::vector<std::string>& candidates) {
    auto lower = [](std::string s) {
        for (char& ch : s) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
        return s;
    };
    // Edits (insert, delete, replace, swap two neighbours) that turn a into b.
    auto distance = [](const std::string& a, const std::string& b) {
        std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
        for (std::size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
        for (std::size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
        for (std::size_t i = 1; i <= a.size(); ++i)
            for (std::size_t j = 1; j <= b.size(); ++j) {
                d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
                if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                    d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
            }
        return d[a.size()][b.size()];
    };
    const std::string w = lower(word);
    std::string best;
    std::size_t bestDistance = std::max<std::size_t>(1, w.size() / 3) + 1;
    for (const std::string& c : candidates) {
        const std::size_t dist = distance(w, lower(c));
        if (dist < bestDistance) best = c, bestDistance = dist;
    }
    return best;
}

// `text` in lines of at most 79 characters, broken at spaces, each line
// starting with `indent` spaces, the lines after the first with `hanging` more.
std::string wrapped(const std::string& text, std::size_t indent, std::size_t hanging) {
    std::string out, line(indent, ' ');
    std::size_t from = 0;
    while (from < text.size()) {
        std::size_t end = text.find(' ', from);
        if (end == std::string::npos) end = text.size();
        const std::string word = text.substr(from, end - from);
        const bool lineStart = line.size() == indent || line.size() == indent + hanging;
        if (!lineStart && line.size() + 1 + word.size() > 79) {
            out += line + "\n";
            line.assign(indent + hanging, ' ');
        }
        if (line.size() != indent && line.size() != indent + hanging) line += ' ';
        line += word;
        from = end + 1;
    }
    return out + line + "\n";
}

std::vector<std::string> sliderOptions() {
    std::vector<std::string> options;
    for (unsigned e = 0; e < flairize::effectCount(); ++e)
        for (int k = 0; k < 3; ++k)
            if (*flairize::sliderOption(e, k)) options.emplace_back(flairize::sliderOption(e, k));
    std::sort(options.begin(), options.end());
    options.erase(std::unique(options.begin(), options.end()), options.end());
    return options;
}

}  // namespace cli
