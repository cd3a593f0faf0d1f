// The flairize command line.
#pragma once

namespace cli {

// Exit status: 0 done; 1 the render failed (out of memory included); 2 bad
// input, bad usage, or an output that cannot be written.
int run(int argc, char** argv);

// Effect index for a name (case, spaces, dashes and a leading "*" or trailing
// "[...]" ignored) or a decimal index 0..37; -1 when nothing matches.
int findEffect(const char* text);

}  // namespace cli
