// What the command says on stderr besides its errors: warnings and notes,
// silenced by --quiet; --verbose adds what is read and written.
#pragma once

namespace notices {

extern bool quiet;
extern bool verbose;

// "flairize: " and the formatted text on stderr, unless --quiet.
void say(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace notices
