#include <cstdlib>

#include "linux/cli/machine.h"
#include "linux/cli/program.h"
#include "linux/cli/verbs.h"

int main(int argc, char** argv) {
    using namespace vorlinden::cli;
    Program program;
    addConfig(program);
    addLogin(program);
    addSync(program);
    addMount(program);
    addStatus(program);
    addRetry(program);
    addConflicts(program);
    addEvents(program);
    addItem(program);
    addLogout(program);
    addServer(program);
    addServerCtl(program);
    addOpenURL(program);
    const int status = program.run(argc, argv);  // its output is written
    if (Machine::hasLeftWorkBehind()) std::_Exit(status);
    return status;
}
