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
           "  --colour, --color C   the colour the effect paints with: RRGGBB or #RRGGBB in hex,\n"
           "                        red first, #RGB, or a CSS colour name such as RebeccaPurple\n"
           "                        (default 000000, black)\n"
           "  --settings FILE.flr   effect, sliders, colour and direction from a settings block;\n"
           "                        options given as well override it\n";
}

const char* const kDirectionOption =
    "  --direction D         Forward (default), Backward, Cycle or \"Reverse Cycle\"\n";
const char* const kSpeedOption =
    "  --speed S             -124..127: bends the progress along a power curve; positive\n"
    "                        speeds start slowly, negative ones quickly (default 0)\n";

// Commands that write files refuse to replace one when asked.
const char* const kNoOverwrite =
    "  -n, --no-overwrite    refuse an output that exists already (exit 2) instead of\n"
    "                        replacing it\n";

const char* const kCommonOptions =
    "Common options:\n"
    "  -q, --quiet           no warnings, progress or summary; errors are still shown\n"
    "  -v, --verbose         say what is read and written, with sizes, and the effect\n"
    "                        and settings used\n"
    "  -h, --help            this help\n"
    "  --                    the end of the options: what follows are file names, even\n"
    "                        those starting with a dash\n";

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

bool writesFiles(const CommandHelp& c) {
    for (const char* name : {"render", "sequence", "video", "join", "sheet", "settings"})
        if (std::string(c.name) == name) return true;
    return false;
}

}  // namespace

const std::vector<Example>& commandExamples() {
    static const std::vector<Example> list = {
        {"render", "flairize render photo.jpg mosaic.png --effect mosaic", "Mosaic at full strength, written as PNG."},
        {"render", "flairize render photo.jpg half.jpg --effect solarize --progress 50% --quality 85",
         "Solarize halfway through its stretch, as a JPEG of quality 85."},
        {"render", "flairize render '*.jpg' --output-dir out --effect fresco",
         "Every JPEG here into out/, each as NAME-fresco.jpg."},
        {"render", "flairize render photos --recursive --output-dir out --format png --effect posterize --colors 6",
         "Every picture under photos/ into the same subfolders of out/, as PNG."},
        {"sequence", "flairize sequence photo.png frames/f%04d.png --frames 50 --effect shake --direction Cycle",
         "50 frames that shake in and out again."},
        {"video", "flairize video clip.mp4 out.mkv --effect solarize --speed 20",
         "Every frame of a video, losslessly, slowly at first."},
        {"video", "flairize video phone.mp4 out.mp4 --effect fresco --crf 20 --preset slow",
         "H.264 at constant quality 20; audio, subtitles and rotation kept."},
        {"video", "flairize video film.mp4 parts/p2.mkv --part 2/8 --count-file parts/frames --codec libx264",
         "The third of eight parts of a film, for a cluster's job array."},
        {"join", "flairize join parts/p*.mkv film-out.mp4 --audio-from film.mp4",
         "The eight parts as one film, with the original's audio."},
        {"sheet", "flairize sheet photo.jpg sheet.png --columns 5", "Every offered effect on one contact sheet."},
        {"edit", "flairize edit photo.jpg", "The web editor in a browser, with photo.jpg open."},
        {"timing", "flairize timing --frames 5 --speed 25 --json", "The progress of each of 5 frames, as JSON."},
        {"settings", "flairize settings stamp.flr --effect stamp --colour tomato --direction Backward",
         "A settings block for --settings: Stamp painting in tomato red."},
        {"list", "flairize list --json", "The effects and their sliders, as JSON."},
    };
    return list;
}

const std::vector<CommandHelp>& commands() {
    static const std::vector<CommandHelp> list = {
        {"render", "IN OUT [effect options] [--progress P] [--filter-only] [--threads N] [--quality N]\n"
                   "       flairize render IN... --output-dir DIR [--suffix TEXT] [--format F] [--recursive] [...]",
         "render one picture, or many into a folder, with an effect",
         "IN and OUT are BMP, PNG, JPEG, WebP or TIFF pictures (IN also GIF, its first\n"
         "frame); OUT's format follows its extension. IN \"-\" reads standard input; OUT \"-\"\n"
         "writes PNG to standard output. IN's colour profile, EXIF data and resolution go\n"
         "into OUT where its format holds them; IN is turned as its EXIF orientation says.\n"
         "  --no-auto-orient      keep the stored orientation (and say it in OUT's EXIF)\n"
         "  --progress P          how far the effect has advanced: 0..16384, a fraction such as\n"
         "                        0.5, or a percentage such as 50% (default: the full effect)\n"
         "  --filter-only         the effect's own result, without the mix with the source by\n"
         "                        the progress that effects which fade in get\n"
         "With --output-dir every IN is an input picture (a quoted pattern such as '*.jpg'\n"
         "is expanded here) written as DIR/STEM-EFFECT.EXT; several render at once within\n"
         "--max-memory. A picture that fails is named with its reason and the others are\n"
         "still written; the exit status is 0 only when every picture was written.\n"
         "  --output-dir DIR      render every IN into DIR (made when missing)\n"
         "  --suffix TEXT         name each output STEM + TEXT + .EXT (default: \"-\" and the\n"
         "                        effect's name as `flairize list` shows it)\n"
         "  --format F            png, jpg, webp, tif or bmp: the outputs' format (default:\n"
         "                        the input's own)\n"
         "  --recursive           folders given as IN: their pictures and their subfolders',\n"
         "                        written into the same subfolders of DIR\n"
         "  --part I/N            only pictures I, I + N, I + 2N, ... (0-based) of the sorted\n"
         "                        list of IN: one of N jobs sharing a batch\n"},
        {"sequence", "IN OUTPATTERN --frames N [effect options] [--direction D] [--speed S] [--threads N] [--quality N]",
         "render N frames across the effect's stretch",
         "Frame i is at position i x 16384 / (N - 1), through the speed curve and the\n"
         "direction, as `flairize timing` prints. OUTPATTERN holds one %d conversion,\n"
         "e.g. out/frame%04d.png. Several frames render at once; if one fails, the\n"
         "run stops there, keeping the frames before it. Each frame keeps IN's metadata.\n"
         "  --no-auto-orient      keep IN's stored orientation\n"
         "  --frames N            the number of frames, 1..1000000\n"},
        {"video", "IN OUT [effect options] [--direction D] [--speed S] [--threads N] [--codec NAME] [encoder options]",
         "render every frame of a video across the effect's stretch",
         "IN is any video FFmpeg's libraries read. Frame i of N is rendered as `sequence`\n"
         "renders it. OUT's extension picks the encoder: .mp4 and .mov H.264 (yuv420p), .mkv\n"
         "FFV1 (lossless: the frames are the rendered pictures bit for bit). Audio, subtitles\n"
         "and metadata are kept; what the container refuses is transcoded or left out.\n"
         "  --codec NAME          any FFmpeg video encoder instead\n"
         "  --crf N               constant quality, in the encoder's range (H.264 0..51)\n"
         "  --preset NAME         the encoder's speed preset (H.264: ultrafast .. veryslow)\n"
         "  --bitrate RATE        bits a second, e.g. 4M or 800k\n"
         "  --pix-fmt NAME        the encoder's pixel format (default yuv420p for H.264, VP9, AV1)\n"
         "  --gop N               at most N frames from one keyframe to the next\n"
         "  --encoder-option K=V  any option of the encoder; repeatable\n"
         "  --codec-threads N     the decoder's and encoder's own threads (default: FFmpeg's\n"
         "                        choice); its bytes may depend on it, never on --threads\n"
         "  --from T, --to T      keep only that part (seconds, or [[hh:]mm:]ss[.frac]); the\n"
         "                        effect runs across the part kept\n"
         "  --progress P          every frame at progress P (nothing to count)\n"
         "  --frames N            the timing over N frames instead of counting them\n"
         "  --format mkv|ts       the container (default: OUT's extension; Matroska for -)\n"
         "  --keep-going          leave damaged frames out instead of refusing the video\n"
         "  --part I/N            only part I (0..N-1) of N of the clip's frames, each at its\n"
         "                        place in the whole clip: a video-only piece that starts\n"
         "                        with a keyframe, for `flairize join` (see docs/scale-out.md)\n"
         "  --count-file FILE     with --part: the clip's frame times, read from FILE, or\n"
         "                        counted and written there where it is missing, so that\n"
         "                        every part splits the same list\n"
         "IN and OUT may be - (standard input and output, streamed); standard input needs\n"
         "--frames or --progress, since it cannot be read twice to count its frames.\n"},
        {"join", "PART... OUT --audio-from IN",
         "join the parts of a video that `video --part` rendered into one file",
         "The parts, given in any order, are joined by stream copy (nothing is encoded\n"
         "again); the audio, subtitles and metadata are taken once from IN, the clip the\n"
         "parts were rendered from. Parts that do not make one clip are refused with the\n"
         "reason: a part missing or given twice, another split or frame count, another\n"
         "size, codec or encoder settings, a part cut short, an IN of another length.\n"
         "  --audio-from IN       the clip the parts were rendered from\n"},
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
        {"timing", "--frames N [--direction D] [--speed S] [--json]",
         "print \"frame position progress\" for each frame of a sequence",
         "  --frames N            the number of frames, 1..1000000\n"
         "  --json                the frames as JSON: frame, position and progress of each\n"},
        {"settings", "OUT.flr [effect options] [--direction D] [--json]",
         "write a 20-byte settings block (for --settings)",
         "The block holds the effect, its sliders, the colour and the direction; the speed\n"
         "is not part of it (give --speed to sequence or video).\n"
         "  --json                print the record written, decoded, as JSON\n"},
        {"list", "[--tsv] [--json]",
         "list the effects: the name to type, what each does, its sliders and what they do",
         "  --tsv                 one tab-separated line per effect: index, name, offered,\n"
         "                        flags (1 fades in, 2 paints with the colour), the three\n"
         "                        slider labels and their defaults\n"
         "  --json                the catalogue as JSON: each effect with its sliders, their\n"
         "                        options, ranges, defaults, units and meanings\n"},
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
         "message \"Not enough memory to complete operation\", or standard output closed\n"
         "by its reader; 2 bad input (a picture over --max-pixels or --max-memory\n"
         "included), bad usage, or an output file that cannot be written.\n";
    return s;
}

std::string commandHelp(const CommandHelp& c) {
    const std::string name = c.name;
    std::string s = "Usage: flairize " + name + " " + c.synopsis + "\n" + c.summary + ".\n\n" + c.details;
    const std::string synopsis = c.synopsis;
    if (synopsis.find("--direction") != std::string::npos) s += kDirectionOption;
    if (synopsis.find("--speed") != std::string::npos) s += kSpeedOption;
    if (writesFiles(c)) s += kNoOverwrite;
    if (synopsis.find("--threads") != std::string::npos) s += std::string(kThreads) + kLimits;
    if (synopsis.find("--quality") != std::string::npos) s += kQuality;
    if (synopsis.find("effect options") != std::string::npos) s += "\n" + effectOptions();
    s += std::string("\n") + kCommonOptions;
    std::string examples;
    for (const Example& e : commandExamples())
        if (name == e.command) examples += "  " + std::string(e.line) + "\n" + wrapped(e.what, 6, 0);
    if (!examples.empty()) s += "\nExamples:\n" + examples;
    return s;
}

std::vector<std::string> acceptedOptions(const CommandHelp& c) {
    // An option line starts with two spaces and a dash; its options are the
    // dashed words before the description (arguments are upper case).
    auto isOption = [](const std::string& w) {
        if (w == "--") return true;
        if (w.size() < 2 || w[0] != '-') return false;
        const std::size_t from = w[1] == '-' ? 2 : 1;
        if (from >= w.size() || !std::islower(static_cast<unsigned char>(w[from]))) return false;
        return w.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-", from) == std::string::npos;
    };
    auto isArgument = [](const std::string& w) {
        return !w.empty() && (std::isupper(static_cast<unsigned char>(w[0])) || w == "N");
    };
    std::vector<std::string> options;
    const std::string text = commandHelp(c);
    std::size_t from = 0;
    while (from < text.size()) {
        std::size_t end = text.find('\n', from);
        if (end == std::string::npos) end = text.size();
        const std::string line = text.substr(from, end - from);
        from = end + 1;
        if (line.compare(0, 3, "  -") != 0) continue;
        std::size_t at = 2;
        while (at < line.size()) {
            std::size_t wordEnd = line.find(' ', at);
            if (wordEnd == std::string::npos) wordEnd = line.size();
            std::string word = line.substr(at, wordEnd - at);
            if (!word.empty() && word.back() == ',') word.pop_back();
            if (isOption(word)) {
                if (std::find(options.begin(), options.end(), word) == options.end()) options.push_back(word);
            } else if (!isArgument(word)) {
                break;
            }
            // Two spaces end the option column.
            if (line.compare(wordEnd, 2, "  ") == 0) break;
            at = wordEnd + 1;
        }
    }
    return options;
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
