// Colours by name for the command line: the CSS named colours, any case.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cli {

// The colour's 0xRRGGBB for a CSS colour name ("RebeccaPurple"); false when
// there is no such name.
bool namedColour(const std::string& name, std::uint32_t& rgb);

std::vector<std::string> colourNames();   // lower case, for "did you mean"

}  // namespace cli
