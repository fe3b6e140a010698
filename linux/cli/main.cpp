#include "linux/cli/program.h"
#include "linux/cli/verbs.h"

int main(int argc, char** argv) {
    vorlinden::cli::Program program;
    return program.run(argc, argv);
}
