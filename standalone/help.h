// The command's own words: its help texts (which the man page is made from),
// "did you mean" for misspelt words, and the catalogue's slider options.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace cli {

struct CommandHelp {
    const char* name;
    const char* synopsis;   // the arguments after the command's name
    const char* summary;    // one line
    const char* details;    // the command's options and notes, lines of up to 80 characters
};

const std::vector<CommandHelp>& commands();

// A typical use of a command, for its help and the man page's EXAMPLES.
struct Example {
    const char* command;
    const char* line;   // what is typed
    const char* what;   // what it does, one sentence
};
const std::vector<Example>& commandExamples();

// The options a command accepts: those its help text lists (an option
// line's dashed words), so the parser and the help cannot differ.
std::vector<std::string> acceptedOptions(const CommandHelp& c);

// The man page, in roff, from the same texts as --help.
std::string manPage();
const CommandHelp* findCommand(const std::string& name);

std::string versionText();
std::string mainHelp();                          // flairize --help
std::string commandHelp(const CommandHelp& c);   // flairize COMMAND --help

// The candidate nearest to `word` when it is near enough to be a slip of the
// keyboard (a few letters swapped, missing or wrong), else "".
std::string nearest(const std::string& word, const std::vector<std::string>& candidates);

// `text` in lines of at most 79 characters, broken at spaces, each line
// starting with `indent` spaces, the lines after the first with `hanging` more.
std::string wrapped(const std::string& text, std::size_t indent, std::size_t hanging);

// The slider options of the catalogue's effects, without dashes, sorted, each once.
std::vector<std::string> sliderOptions();

}  // namespace cli
