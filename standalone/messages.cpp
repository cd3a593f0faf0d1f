#include "standalone/messages.h"

#include <cstdarg>
#include <cstdio>

namespace notices {

bool quiet = false;
bool verbose = false;

void say(const char* format, ...) {
    if (quiet) return;
    std::va_list args;
    va_start(args, format);
    std::fputs("flairize: ", stderr);
    std::vfprintf(stderr, format, args);
    va_end(args);
}

}  // namespace notices
