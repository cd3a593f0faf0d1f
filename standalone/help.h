// The command's own words: its help texts (which the man page is made from),
// "did you mean" for misspelt words, and what each effect's sliders do.
#pragma once

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
const CommandHelp* findCommand(const std::string& name);

std::string versionText();
std::string mainHelp();                          // flairize --help
std::string commandHelp(const CommandHelp& c);   // flairize COMMAND --help

// The candidate nearest to `word` when it is near enough to be a slip of the
// keyboard (a few letters swapped, missing or wrong), else "".
std::string nearest(const std::string& word, const std::vector<std::string>& candidates);

// What slider k (0..2) of an effect does, in words; "" when it has none.
std::string sliderMeaning(unsigned effect, int slider);

}  // namespace cli
