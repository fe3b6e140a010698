// vorlinden status [--json]
#include <iostream>
#include <memory>
#include <optional>

#include "linux/cli/machine.h"
#include "linux/cli/verbs.h"
#include "linux/host/status.h"
#include "linux/mount/mount_state.h"

namespace vorlinden::cli {
namespace {

std::optional<host::MountStatus> mountStatus(const Machine& machine) {
    const auto state = mount::readMountState(*machine.system.files, machine.folders.state);
    if (!state) return std::nullopt;
    host::MountStatus status{.mountPoint = state->mountPoint,
                             .server = state->server,
                             .trouble = state->extensionTrouble,
                             .failedFetch = std::nullopt,
                             .lockOperations = state->lockOperations,
                             .lockMilliseconds = state->lockMilliseconds};
    if (const auto& failed = state->lastFailedFetch) {
        status.failedFetch = {failed->path, failed->sentence, failed->at};
    }
    return status;
}

int run(bool json) {
    const Machine machine;
    auto status = host::gatherStatus(machine.system, machine.folders);
    status.mount = mountStatus(machine);
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
