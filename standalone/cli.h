// The flairize command line.
#pragma once

namespace cli {

int run(int argc, char** argv);   // exit status: 0 ok, 1 render failed, 2 bad input or usage

// Effect index for a name (case, spaces, dashes and a leading "*" or trailing
// "[...]" ignored) or a decimal index 0..37; -1 when nothing matches.
int findEffect(const char* text);

}  // namespace cli
