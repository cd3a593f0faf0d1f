// Writes the flairize man page (roff) to the file named by its argument.
#include <cstdio>

#include "standalone/help.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: make_man_page OUT.1\n", stderr);
        return 2;
    }
    std::FILE* out = std::fopen(argv[1], "w");
    if (!out) {
        std::perror(argv[1]);
        return 1;
    }
    const std::string page = cli::manPage();
    const bool written = std::fwrite(page.data(), 1, page.size(), out) == page.size();
    return std::fclose(out) == 0 && written ? 0 : 1;
}
