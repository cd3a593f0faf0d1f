#include <malloc.h>

#include "standalone/cli.h"

int main(int argc, char** argv) {
    // Freed pictures stay in the process heap, so rendering frame after frame
    // does not fault fresh pages in for every picture.
    mallopt(M_MMAP_THRESHOLD, 256 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 512 * 1024 * 1024);
    return cli::run(argc, argv);
}
