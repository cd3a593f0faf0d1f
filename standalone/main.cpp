#include <malloc.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>

#include "platform/global_memory.h"
#include "platform/strings.h"
#include "resources/string_ids.h"
#include "standalone/cli.h"

int main(int argc, char** argv) {
    // Freed pictures stay in the process heap, so rendering frame after frame
    // does not fault fresh pages in for every picture.
    mallopt(M_MMAP_THRESHOLD, 256 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 512 * 1024 * 1024);
    // Test hook: FLAIRIZE_FAIL_ALLOCATION=N fails the N-th picture or working
    // block allocated from here on, so tests can run a command out of memory.
    if (const char* n = std::getenv("FLAIRIZE_FAIL_ALLOCATION")) plat::failAllocationAfter(std::atol(n));
    // A reader that goes away (a closed pipe) makes a write fail with EPIPE,
    // reported like any other failure, rather than killing the command.
    std::signal(SIGPIPE, SIG_IGN);
    // Whatever escapes the commands ends the run with one line, never an abort.
    try {
        return cli::run(argc, argv);
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "flairize: %s\n", plat::loadString(ids::kNoMemory).c_str());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "flairize: %s\n", e.what());
    }
    return 1;
}
