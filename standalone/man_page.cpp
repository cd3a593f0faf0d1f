// The man page, made from the commands' help texts: each command's options
// and notes, the shared effect and common options once, and the examples.
#include <algorithm>
#include <string>
#include <vector>

#include "standalone/help.h"

namespace cli {
namespace {

// Text as roff takes it: backslashes and dashes escaped, no control line.
std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
    }
    if (!out.empty() && (out[0] == '.' || out[0] == '\'')) out = "\\&" + out;
    return out;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t from = 0;
    while (from < text.size()) {
        std::size_t end = text.find('\n', from);
        if (end == std::string::npos) end = text.size();
        lines.push_back(text.substr(from, end - from));
        from = end + 1;
    }
    return lines;
}

// A help text's option lines become tagged paragraphs (the option column in
// bold), its other lines running paragraphs.
std::string roffOf(const std::string& text) {
    std::string out, optionColumn, description, paragraph;
    auto flush = [&] {
        if (!optionColumn.empty()) out += ".TP\n\\fB" + escaped(optionColumn) + "\\fR\n" + escaped(description) + "\n";
        if (!paragraph.empty()) out += ".PP\n" + escaped(paragraph) + "\n";
        optionColumn.clear(), description.clear(), paragraph.clear();
    };
    auto append = [](std::string& to, const std::string& more) {
        const std::size_t start = more.find_first_not_of(' ');
        if (start == std::string::npos) return;
        to += (to.empty() ? "" : " ") + more.substr(start);
    };
    for (const std::string& line : linesOf(text)) {
        if (line.empty()) {
            flush();
        } else if (line.compare(0, 3, "  -") == 0 && !(!optionColumn.empty() && description.empty())) {
            flush();
            const std::size_t gap = line.find("  ", 2);
            optionColumn = line.substr(2, gap == std::string::npos ? std::string::npos : gap - 2);
            if (gap != std::string::npos) append(description, line.substr(gap));
        } else if (line.compare(0, 3, "  -") == 0) {   // the option column goes on (a wrapped list)
            const std::size_t gap = line.find("  ", 2);
            append(optionColumn, line.substr(2, gap == std::string::npos ? std::string::npos : gap - 2));
            if (gap != std::string::npos) append(description, line.substr(gap));
        } else if (line[0] == ' ' && !optionColumn.empty()) {
            append(description, line);
        } else {
            if (!optionColumn.empty()) flush();
            append(paragraph, line);
        }
    }
    flush();
    return out;
}

// The part of `text` from the line `heading` to the next blank line or the end.
std::string sectionOf(const std::string& text, const std::string& heading) {
    const std::size_t at = text.find("\n" + heading + "\n");
    if (at == std::string::npos) return "";
    const std::size_t from = at + heading.size() + 2;
    const std::size_t end = text.find("\n\n", from);
    return text.substr(from, end == std::string::npos ? std::string::npos : end + 1 - from);
}

}  // namespace

std::string manPage() {
    std::string version = versionText();
    while (!version.empty() && version.back() == '\n') version.pop_back();
    std::string page = ".TH FLAIRIZE 1 \"\" \"" + version + "\" \"User Commands\"\n"
                       ".SH NAME\nflairize \\- picture effects, bit for bit\n.SH SYNOPSIS\n";
    for (const CommandHelp& c : commands()) {
        for (const std::string& line : linesOf(c.synopsis)) {
            const std::size_t start = line.find_first_not_of(' ');
            std::string rest = line.substr(start);
            if (rest.compare(0, 9, "flairize ") == 0) rest = rest.substr(rest.find(' ', 9) + 1);
            page += ".B flairize " + std::string(c.name) + "\n" + escaped(rest) + "\n.br\n";
        }
    }
    const std::string main = mainHelp();
    const std::size_t intro = main.find('\n') + 1;
    page += ".SH DESCRIPTION\n" + roffOf(main.substr(intro, main.find("\nCommands:") - intro));
    page += ".SH COMMANDS\n";
    std::string effectOptions, commonOptions;
    for (const CommandHelp& c : commands()) {
        const std::string help = commandHelp(c);
        // The command's own part: after the usage and summary lines, before the shared options.
        std::size_t from = help.find(".\n\n");
        from = from == std::string::npos ? 0 : from + 3;
        std::size_t end = help.size();
        for (const char* shared : {"\nEffect options:\n", "\nCommon options:\n", "\nExamples:\n"})
            end = std::min(end, help.find(shared, from) == std::string::npos ? end : help.find(shared, from) + 1);
        page += ".SS \"" + std::string(c.name) + "\"\n" + escaped(std::string(c.summary)) + ".\n" +
                roffOf(help.substr(from, end - from));
        if (help.find("\nEffect options:\n") != std::string::npos)
            page += ".PP\nWith the effect options below.\n";
        if (effectOptions.empty()) effectOptions = sectionOf(help, "Effect options:");
        if (commonOptions.empty()) commonOptions = sectionOf(help, "Common options:");
    }
    page += ".SH EFFECT OPTIONS\n" + roffOf(effectOptions);
    page += ".SH COMMON OPTIONS\nEvery command takes these.\n" + roffOf(commonOptions);
    const std::size_t exit = main.find("Exit status:");
    if (exit != std::string::npos) page += ".SH EXIT STATUS\n" + roffOf(main.substr(exit + 13));
    page += ".SH EXAMPLES\n";
    for (const Example& e : commandExamples())
        page += ".PP\n" + escaped(e.what) + "\n.RS 4\n.nf\n\\fB" + escaped(e.line) + "\\fR\n.fi\n.RE\n";
    return page;
}

}  // namespace cli
