// flairize render with --output-dir (many pictures into a folder), and the
// conventions every command shares: --quiet, --verbose, --json, --, -n,
// colour names, and help texts and a man page that list every option.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "engine/flairize.h"
#include "standalone/help.h"
#include "standalone/json_writer.h"
#include "tests/command_support.h"

using namespace testcli;

namespace {

// A fresh folder below the scratch folder.
std::string folder(const std::string& name) {
    const std::string path = dir() + "/" + name;
    std::system(("rm -rf '" + path + "' && mkdir -p '" + path + "'").c_str());
    return path;
}

void writeFile(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

// A test picture of the given size written as `path` (its format by extension).
void pictureAt(const std::string& path, int w, int h) {
    Owned p(make(w, h, 24, pattern));
    std::string error;
    ASSERT_TRUE(pictures::write(path, p, error)) << path << ": " << error;
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// What python3's json module makes of `text`: the result of `expression` on
// the parsed value `d`, or "invalid" when it does not parse.
std::string jsonQuery(const std::string& text, const std::string& expression) {
    const std::string in = dir() + "/query.json", script = dir() + "/query.py", out = dir() + "/query.out";
    writeFile(in, text);
    writeFile(script, "import json, sys\ntry:\n    d = json.load(open(sys.argv[1], encoding='utf-8'))\n"
                      "except Exception:\n    print('invalid')\n    sys.exit()\nprint(" + expression + ")\n");
    const std::string cmd = "python3 " + script + " " + in + " >" + out;
    if (std::system(cmd.c_str()) != 0) return "python3 failed";
    std::string result = slurp(out);
    while (!result.empty() && result.back() == '\n') result.pop_back();
    return result;
}

}  // namespace

// Many pictures into one folder: names, formats, failures among them, patterns,
// folders, name clashes and outputs that exist already.
TEST(BatchCommand, ManyPicturesIntoAFolder) {
    const std::string in = folder("batch-in");
    pictureAt(in + "/a.png", 37, 21);
    pictureAt(in + "/b.bmp", 20, 33);
    pictureAt(in + "/c.jpg", 16, 16);
    writeFile(in + "/damaged.jpg", "\xff\xd8\xff not really a JPEG");
    std::system(("mkdir -p " + in + "/tree/deeper").c_str());
    pictureAt(in + "/tree/t.png", 12, 9);
    pictureAt(in + "/tree/deeper/u.tif", 9, 12);
    writeFile(in + "/tree/notes.txt", "not a picture, not taken");
    pictureAt(in + "/clash.png", 8, 8);
    pictureAt(in + "/clash.bmp", 8, 8);
    pictureAt(in + "/big1.png", 200, 150);
    pictureAt(in + "/big2.png", 200, 150);
    // A memory limit that holds one of these pictures with its renders, not two.
    const std::uint64_t need = pictures::Limits().need(200, 150, 24);
    const std::string holdsOne = " --threads 2 --max-memory " + std::to_string(need * 3 / 2);
    const std::string holdsNone = " --threads 2 --max-memory " + std::to_string(need * 9 / 10);

    struct Case {
        std::string name, args;   // OUT stands for the case's output folder
        int status;
        std::vector<std::string> written, notWritten;   // below OUT
        std::vector<std::string> said;                  // on stderr
        std::function<void(const std::string& out)> setup = nullptr;
    };
    const std::string I = in + "/";
    const Case cases[] = {
        {"names", I + "a.png " + I + "b.bmp " + I + "c.jpg --output-dir OUT --effect mosaic", 0,
         {"a-mosaic.png", "b-mosaic.bmp", "c-mosaic.jpg"}, {}, {"rendered 3 of 3 pictures into OUT/\n"}},
        {"suffix and format", I + "a.png " + I + "b.bmp --output-dir OUT/ --effect solarize --suffix _sun --format webp", 0,
         {"a_sun.webp", "b_sun.webp"}, {"a-solarize.webp", "a_sun.png"}, {"rendered 2 of 2"}},
        {"damaged among good", I + "a.png " + I + "damaged.jpg " + I + "b.bmp --output-dir OUT --effect 11 --threads 2", 2,
         {"a-solarize.png", "b-solarize.bmp"}, {"damaged-solarize.jpg"},
         {"flairize: " + I + "damaged.jpg: ", "rendered 2 of 3 pictures into OUT/ (1 failed)\n"}},
        {"missing among good", I + "a.png " + I + "missing.png --output-dir OUT --effect 11", 2, {"a-solarize.png"}, {},
         {I + "missing.png: ", "(1 failed)"}},
        {"quoted pattern", "'" + I + "[ab].*' '" + I + "cl*.png' --output-dir OUT --effect 11", 0,
         {"a-solarize.png", "b-solarize.bmp", "clash-solarize.png"}, {"c-solarize.jpg", "clash-solarize.bmp"},
         {"rendered 3 of 3"}},
        {"pattern matching nothing", "'" + I + "*.gif' --output-dir OUT", 2, {}, {}, {"no file matches"}},
        {"recursive", I + "tree --recursive --output-dir OUT --effect 11", 0, {"t-solarize.png", "deeper/u-solarize.tif"},
         {"notes-solarize.txt", "notes-solarize.png"}, {"rendered 2 of 2"}},
        {"folder without --recursive", I + "tree --output-dir OUT", 2, {}, {"t-weave.png"}, {"--recursive"}},
        {"name clash", I + "clash.png " + I + "clash.bmp " + I + "a.png --output-dir OUT --format png", 2, {},
         {"clash-weave.png", "a-weave.png"}, {"OUT/clash-weave.png: both ", "nothing was rendered"}},
        {"no overwrite", I + "a.png " + I + "b.bmp --output-dir OUT --effect 11 -n", 2, {"b-solarize.bmp"}, {},
         {"OUT/a-solarize.png: exists already", "rendered 1 of 2"},
         [](const std::string& out) { writeFile(out + "/a-solarize.png", "keep me"); }},
        {"quiet", I + "a.png " + I + "damaged.jpg --output-dir OUT --effect 11 --quiet", 2, {"a-solarize.png"}, {},
         {"damaged.jpg: "}},
        {"memory for one at a time", I + "big1.png " + I + "big2.png --output-dir OUT --effect 11" + holdsOne, 0,
         {"big1-solarize.png", "big2-solarize.png"}, {}, {"rendered 2 of 2"}},
        {"memory for none", I + "big1.png " + I + "big2.png --output-dir OUT --effect 11" + holdsNone, 2, {},
         {"big1-solarize.png", "big2-solarize.png"}, {"big1.png: picture too large", "rendered 0 of 2"}},
        {"three names without a folder", I + "a.png " + I + "b.bmp " + I + "c.jpg", 2, {}, {}, {"--output-dir"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string out = folder("batch-out");
        if (c.setup) c.setup(out);
        std::string args = c.args;
        for (std::size_t at; (at = args.find("OUT")) != std::string::npos;) args.replace(at, 3, out);
        const CommandRun r = command("render " + args);
        EXPECT_EQ(r.status, c.status) << r.err;
        for (const std::string& name : c.written) EXPECT_TRUE(exists(out + "/" + name)) << name << "\n" << r.err;
        for (const std::string& name : c.notWritten) EXPECT_FALSE(exists(out + "/" + name)) << name;
        for (std::string text : c.said) {
            for (std::size_t at; (at = text.find("OUT")) != std::string::npos;) text.replace(at, 3, out);
            EXPECT_TRUE(contains(r.err, text)) << "expected \"" << text << "\" in:\n" << r.err;
        }
        if (c.name == "quiet") {
            EXPECT_FALSE(contains(r.err, "rendered")) << r.err;
        }
        if (c.name == "no overwrite") {
            EXPECT_EQ(slurp(out + "/a-solarize.png"), "keep me");
        }
        // Each failed picture has one line of its own, then the summary.
        const std::size_t failed = r.err.find(" failed)\n");
        if (failed != std::string::npos) {
            const long count = std::atol(r.err.c_str() + r.err.rfind('(', failed) + 1);
            EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), count + 1) << r.err;
        }
    }

    // A picture of a batch is the picture the single form renders.
    const std::string out = folder("batch-same");
    ASSERT_EQ(command("render " + I + "a.png " + I + "b.bmp --output-dir " + out + " --effect shake --amount 90").status, 0);
    ASSERT_EQ(command("render " + I + "b.bmp " + out + "/single.bmp --effect shake --amount 90").status, 0);
    EXPECT_EQ(slurp(out + "/b-shake.bmp"), slurp(out + "/single.bmp"));
}

// --quiet, --verbose, --, -n, colour names, the placeholder warning and the
// settings block's direction, on the commands that take them.
TEST(BatchConventions, SharedOptions) {
    const std::string d = folder("conventions");
    pictureAt(d + "/-x.png", 14, 10);
    pictureAt(d + "/in.png", 14, 10);
    writeFile(d + "/old.png", "old");
    struct Case {
        std::string args;
        int status;
        std::string said;      // on stderr; "" for nothing at all
        std::string notSaid;   // not on stderr
    };
    const std::string cd = "cd " + d + " && ";
    const Case cases[] = {
        {"render --effect 11 -- -x.png dash.png", 0, "", ""},
        {"render --effect 11 -- -x.png dash2.png --effect 12", 2, "render needs IN and OUT", ""},
        {"render -x.png dash.png", 2, "unknown option \"-x.png\"", ""},
        {"render in.png old.png -n", 2, "old.png: exists already", ""},
        {"render in.png old.png --no-overwrite --effect 11", 2, "old.png: exists already", ""},
        {"settings old.png -n", 2, "old.png: exists already", ""},
        {"render in.png new.png --effect mosaic --amount 4", 0, "warning: --amount has no effect", ""},
        {"render in.png new.png --effect mosaic --amount 4 --quiet", 0, "", ""},
        {"render in.png new.png --effect mosaic --amount 4 -q", 0, "", ""},
        {"render in.png blank.png --effect crystallize", 0,
         "flairize: warning: crystallize is a placeholder and renders a blank picture\n", ""},
        {"render in.png blank.png --effect crystallize -q", 0, "", ""},
        {"render in.png fine.png --effect mosaic", 0, "", ""},
        {"render in.png v.png --effect mosaic -v", 0, "read in.png (14 x 10, 24-bit", "warning"},
        {"render in.png v.png --effect posterize --colors 9 --verbose", 0, "posterize (32), sliders 9 ", ""},
        {"render in.png v.png --verbose", 0, "wrote v.png (", ""},
        {"settings s.flr --speed 20", 2, "unknown option \"--speed\"", ""},
        {"settings s.flr --colour rebbecapurple", 2, "did you mean \"rebeccapurple\"?", ""},
        {"settings s.flr --colour 12345", 2, "--colour", ""},
        {"timing --frames 3 -q", 0, "", ""},
    };
    for (const Case& c : cases) {
        const CommandRun r = command(c.args, cd);
        EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.err;
        if (c.said.empty())
            EXPECT_EQ(r.err, "") << c.args;
        else
            EXPECT_TRUE(contains(r.err, c.said)) << c.args << "\n" << r.err;
        if (!c.notSaid.empty()) {
            EXPECT_FALSE(contains(r.err, c.notSaid)) << c.args << "\n" << r.err;
        }
    }
    EXPECT_TRUE(exists(d + "/dash.png"));
    EXPECT_EQ(slurp(d + "/old.png"), "old");

    // A placeholder's picture is blank, an offered effect's is not.
    const auto allBlack = [](const std::string& path) {
        std::string error;
        Owned p(pictures::read(path, error));
        if (!p) return false;
        const auto* header = static_cast<const BITMAPINFOHEADER*>(plat::globalLock(p));
        const auto* bits = reinterpret_cast<const std::uint8_t*>(header + 1);
        const std::size_t size = std::size_t((header->biWidth * 3 + 3) & ~3) * std::size_t(header->biHeight);
        const bool black = std::all_of(bits, bits + size, [](std::uint8_t b) { return b == 0; });
        plat::globalUnlock(p);
        return black;
    };
    EXPECT_TRUE(allBlack(d + "/blank.png"));
    EXPECT_FALSE(allBlack(d + "/fine.png"));

    // Colours by name or in hex, and the direction, as the settings block holds them.
    struct Block {
        std::string options;
        std::string colour;      // bytes 16..19: COLORREF, red first
        unsigned direction;      // byte 12, the direction's low bits
    };
    const Block blocks[] = {
        {"--colour red", std::string("\xff\x00\x00\x00", 4), 2},
        {"--colour RebeccaPurple", std::string("\x66\x33\x99\x00", 4), 2},
        {"--color '#1a2b3c'", std::string("\x1a\x2b\x3c\x00", 4), 2},
        {"--colour 1a2b3c --direction Backward", std::string("\x1a\x2b\x3c\x00", 4), 0},
        {"--colour '#abc' --direction cycle", std::string("\xaa\xbb\xcc\x00", 4), 1},
        {"--colour DarkSlateGrey --direction 'Reverse Cycle'", std::string("\x2f\x4f\x4f\x00", 4), 3},
        {"--colour white", std::string("\xff\xff\xff\x00", 4), 2},
    };
    for (const Block& b : blocks) {
        ASSERT_EQ(command("settings " + d + "/c.flr --effect stamp " + b.options).status, 0) << b.options;
        const std::string block = slurp(d + "/c.flr");
        ASSERT_EQ(block.size(), 20u);
        EXPECT_EQ(block.substr(16), b.colour) << b.options;
        EXPECT_EQ(unsigned(std::uint8_t(block[12])), b.direction) << b.options;
    }
}

// --json: list, timing and settings print JSON that parses and holds what the
// catalogue, the frame timing and the block hold.
TEST(BatchConventions, JsonOutput) {
    unsigned offered = 0, sliders = 0;
    for (unsigned e = 0; e < flairize::effectCount(); ++e) {
        offered += flairize::effectOffered(e);
        for (int k = 0; k < 3; ++k) sliders += flairize::sliderLabelId(e, k) != 0;
    }
    const CommandRun list = command("list --json");
    ASSERT_EQ(list.status, 0);
    const std::string flr = dir() + "/j.flr";
    const CommandRun timing = command("timing --frames 5 --speed 25 --direction Cycle --json");
    const CommandRun plain = command("timing --frames 5 --speed 25 --direction Cycle");
    const CommandRun settings = command("settings " + flr + " --effect shake --angle 7 --colour navy --json");
    struct Query {
        const CommandRun* run;
        std::string expression, expected;
    };
    const Query queries[] = {
        {&list, "len(d[\"effects\"])", std::to_string(flairize::effectCount())},
        {&list, "sum(e[\"offered\"] for e in d[\"effects\"])", std::to_string(offered)},
        {&list, "sum(len(e[\"sliders\"]) for e in d[\"effects\"])", std::to_string(sliders)},
        {&list, "[e[\"index\"] for e in d[\"effects\"]] == list(range(len(d[\"effects\"])))", "True"},
        {&list, "sorted(e[\"slug\"] for e in d[\"effects\"] if e[\"placeholder\"])",
         "['color-halftone', 'crystallize', 'diffuse', 'extrude', 'facet', 'fragment']"},
        {&list, "d[\"effects\"][14][\"description\"]", flairize::effectDescription(14)},
        {&list, "[(s[\"option\"], s[\"min\"], s[\"max\"], s[\"default\"]) for s in d[\"effects\"][14][\"sliders\"]]",
         "[('angle', 0, 255, 0), ('amount', 0, 255, 128)]"},
        {&timing, "len(d[\"timing\"])", "5"},
        {&timing, "\" \".join(\"%d %d %d\" % (f[\"frame\"], f[\"position\"], f[\"progress\"]) for f in d[\"timing\"])", ""},
        {&settings, "(d[\"slug\"], d[\"sliders\"][0][\"value\"], d[\"sliders\"][1][\"value\"], d[\"colour\"], d[\"direction\"])",
         "('shake', 7, 128, '#000080', 'Forward')"},
    };
    // The JSON frames are the plain ones.
    std::string plainFrames = plain.out;
    std::replace(plainFrames.begin(), plainFrames.end(), '\n', ' ');
    while (!plainFrames.empty() && plainFrames.back() == ' ') plainFrames.pop_back();
    for (const Query& q : queries) {
        ASSERT_EQ(q.run->status, 0) << q.run->err;
        EXPECT_EQ(jsonQuery(q.run->out, q.expression), q.expected.empty() ? plainFrames : q.expected) << q.expression;
    }

    // Strings come back as they went in, whatever characters they hold.
    const std::string awkward = "quote \" backslash \\ newline \n tab \t bell \x07 slash / caf\xc3\xa9";
    cli::JsonWriter w;
    w.beginObject().member("s", awkward).key("a").beginArray().value(-3).value(true).endArray().endObject();
    EXPECT_EQ(jsonQuery(w.text(), "d[\"s\"] == " + std::string("'quote \" backslash \\\\ newline \\n tab \\t bell \\x07 "
                                                          "slash / caf\\xe9'")),
              "True");
    EXPECT_EQ(jsonQuery(w.text(), "d[\"a\"]"), "[-3, True]");
}

namespace {

// The man page as a reader sees its words: roff's escapes and fonts undone.
std::string plainManText(std::string page) {
    const std::pair<std::string, std::string> escapes[] = {{"\\-", "-"}, {"\\fB", ""}, {"\\fR", ""}, {"\\e", "\\"}, {"\\&", ""}};
    for (const auto& [from, to] : escapes)
        for (std::size_t at; (at = page.find(from)) != std::string::npos;) page.replace(at, from.size(), to);
    return page;
}

// The text of a man page section, from its heading to the next heading of the
// same or a higher level.
std::string manSection(const std::string& page, const std::string& heading) {
    const std::size_t from = page.find(heading + "\n");
    if (from == std::string::npos) return "";
    std::size_t end = page.size();
    for (const char* next : {"\n.SS ", "\n.SH "}) end = std::min(end, page.find(next, from + 1));
    return page.substr(from, end - from);
}

}  // namespace

// Every option a command accepts is in its help, with a description, and in
// the man page; the parser accepts every option the help lists.
TEST(BatchHelp, EveryOptionInHelpAndManPage) {
    const std::string page = plainManText(cli::manPage());
    const std::string shared = manSection(page, ".SH EFFECT OPTIONS") + manSection(page, ".SH COMMON OPTIONS");
    ASSERT_TRUE(contains(shared, "--effect NAME|INDEX"));
    ASSERT_TRUE(contains(shared, "--quiet"));
    // The page the build made is this one.
    const std::string built = std::string(FLAIRIZE_BIN).substr(0, std::string(FLAIRIZE_BIN).rfind('/')) + "/flairize.1";
    if (exists(built)) {
        EXPECT_EQ(plainManText(slurp(built)), page);
    }

    const std::string scratch = folder("help-options");
    for (const cli::CommandHelp& c : cli::commands()) {
        SCOPED_TRACE(c.name);
        const std::string help = cli::commandHelp(c);
        const std::string own = manSection(page, std::string(".SS \"") + c.name + "\"");
        ASSERT_FALSE(own.empty());
        const std::vector<std::string> accepted = cli::acceptedOptions(c);
        for (const char* common : {"--quiet", "-q", "--verbose", "-v", "--help", "-h", "--"})
            EXPECT_NE(std::find(accepted.begin(), accepted.end(), common), accepted.end()) << common;
        // The synopsis names no option the command does not take.
        std::istringstream synopsis(c.synopsis);
        for (std::string word; synopsis >> word;) {
            word.erase(std::remove_if(word.begin(), word.end(), [](char ch) { return ch == '[' || ch == ']'; }), word.end());
            if (word.rfind("--", 0) == 0 && word.size() > 2) {
                EXPECT_NE(std::find(accepted.begin(), accepted.end(), word), accepted.end()) << word;
            }
        }
        for (const std::string& option : accepted) {
            SCOPED_TRACE(option);
            // In the help on an option line, which has a description after it or on the next line.
            std::istringstream lines(help);
            bool described = false;
            for (std::string line, next; std::getline(lines, line);) {
                const bool names = contains(line + " ", " " + option + " ") || contains(line, " " + option + ",");
                if (line.rfind("  -", 0) != 0 || !names) continue;
                const std::size_t gap = line.find("  ", 2);
                described = gap != std::string::npos && line.find_first_not_of(' ', gap) != std::string::npos;
                if (!described && std::getline(lines, next))
                    described = next.rfind(std::string(24, ' '), 0) == 0 && next.size() > 24;
            }
            EXPECT_TRUE(described) << help;
            EXPECT_TRUE(contains(own, option + " ") || contains(own, option + ",") || contains(own, option + "\n") ||
                        contains(shared, option + " ") || contains(shared, option + ",") || contains(shared, option + "\n"))
                << own;
            // The parser takes it: whatever else goes wrong, it is not unknown. Three
            // names make every command stop after reading its options.
            const bool isHelp = option == "--help" || option == "-h";
            const CommandRun r = command(std::string(c.name) + " " + option + " 1 in1 in2", "cd " + scratch + " && ");
            EXPECT_FALSE(contains(r.err, "unknown option")) << r.err;
            EXPECT_FALSE(contains(r.err, "not handled")) << r.err;
            EXPECT_EQ(r.status, isHelp ? 0 : 2) << r.err;
        }
        // Options from other commands are not taken.
        const CommandRun r = command(std::string(c.name) + " --no-such-option 1", "cd " + scratch + " && ");
        EXPECT_TRUE(contains(r.err, "unknown option \"--no-such-option\"")) << r.err;
    }
    // The examples use options their commands take.
    for (const cli::Example& e : cli::commandExamples()) {
        const std::vector<std::string> accepted = cli::acceptedOptions(*cli::findCommand(e.command));
        std::istringstream words(e.line);
        for (std::string word; words >> word;)
            if (word.rfind("--", 0) == 0) {
                EXPECT_NE(std::find(accepted.begin(), accepted.end(), word), accepted.end()) << e.line;
            }
        EXPECT_TRUE(contains(manSection(page, ".SH EXAMPLES"), e.line)) << e.line;
    }
    // settings has no speed: its block holds none.
    const std::vector<std::string> settings = cli::acceptedOptions(*cli::findCommand("settings"));
    EXPECT_EQ(std::find(settings.begin(), settings.end(), "--speed"), settings.end());
    EXPECT_NE(std::find(settings.begin(), settings.end(), "--direction"), settings.end());
}
