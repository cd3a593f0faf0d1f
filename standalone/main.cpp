#include "standalone/cli.h"
#include "standalone/host_context.h"

int main(int argc, char** argv) {
    standalone::keepPictureMemory();
    return cli::run(argc, argv);
}
