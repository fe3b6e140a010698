// vorlinden status [--json]
#include <iostream>
#include <memory>

#include "linux/cli/machine.h"
#include "linux/cli/verbs.h"
#include "linux/host/status.h"

namespace vorlinden::cli {
namespace {

int run(bool json) {
    const Machine machine;
    const auto status = host::gatherStatus(machine.system, machine.folders);
    if (json) {
        std::cout << host::statusJSON(status) << "\n";
    } else {
        std::cout << host::statusText(status, machine.system.clock->now());
    }
    return status.signedIn && status.deviceId ? done : needsPerson;
}

}  // namespace

void addStatus(Program& program) {
    const auto json = std::make_shared<bool>(false);
    auto& verb =
        program.addVerb("status", "Show how things stand; exit status 3 when somebody has to sign in",
                        [json] { return run(*json); });
    verb.add_flag("--json", *json, "One line of JSON, for scripts");
}

}  // namespace vorlinden::cli
