#include "standalone/cli.h"

int main(int argc, char** argv) { return cli::run(argc, argv); }
