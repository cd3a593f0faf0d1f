// flairize edit: the web editor's site served on 127.0.0.1 until SIGINT or
// SIGTERM, with an optional picture for the page to open.
#pragma once

#include <string>

namespace edit {

struct Job {
    std::string picture;   // served at /picture/<name>; empty: none
    std::string site;      // --site DIR; empty: FLAIRIZE_WEB_DIR, then beside the executable
};

struct Outcome {
    int status = 0;        // 0 served until stopped, 1 the server failed, 2 bad input or no site
    std::string message;   // one line naming the file and the problem
};

// Serves until SIGINT or SIGTERM. Never throws.
Outcome serve(const Job& job);

// "%"-escapes every byte of `text` but letters, digits and -._~ (a URL path segment).
std::string urlEncode(const std::string& text);

// The Content-Type for a file name by its extension.
const char* contentType(const std::string& name);

}  // namespace edit
