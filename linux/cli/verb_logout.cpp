// vorlinden logout
#include <iostream>

#include "linux/cli/machine.h"
#include "linux/cli/verbs.h"
#include "linux/host/sign_in.h"

namespace vorlinden::cli {
namespace {

int run() {
    const Machine machine;
    const auto workspace = host::Workspace::open(machine.system, machine.folders);
    host::signOut(*workspace);
    std::cerr << "Signed out on this machine. What was fetched stays until you remove it.\n";
    return done;
}

}  // namespace

void addLogout(Program& program) {
    program.addVerb("logout", "End the session on this machine", run);
}

}  // namespace vorlinden::cli
