// vorlinden status [--json] [--watch]
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <unistd.h>

#include "linux/cli/machine.h"
#include "linux/cli/verbs.h"
#include "linux/host/status.h"
#include "linux/mount/mount_state.h"
#include "platform/failure.h"

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

struct Options {
    bool json = false;
    bool watch = false;
};

constexpr auto betweenLooks = std::chrono::seconds(1);

host::Status gather(const Machine& machine) {
    auto status = host::gatherStatus(machine.system, machine.folders);
    status.mount = mountStatus(machine);
    return status;
}

std::string text(const Machine& machine, const host::Status& status, bool json) {
    return json ? host::statusJSON(status) + "\n" : host::statusText(status, machine.system.clock->now());
}

int exitStatus(const host::Status& status) {
    switch (status.standing()) {
        case host::Standing::inStep:
            return done;
        case host::Standing::somethingWaits:
            return somethingWaits;
        case host::Standing::needsPerson:
            return needsPerson;
    }
    return failed;
}

// Prints it again whenever it reads otherwise; on a terminal in the place of the last one.
platform::Task<> watch(const Machine& machine, bool json) {
    const bool onTerminal = ::isatty(STDOUT_FILENO) != 0;
    std::string shown;
    while (std::cout) {
        auto now = text(machine, gather(machine), json);
        if (now != shown) std::cout << (onTerminal ? "\033[H\033[J" : "") << now << std::flush;
        shown = std::move(now);
        co_await machine.system.timers->sleep(betweenLooks);
    }
}

int run(const Options& options) {
    const Machine machine;
    if (!options.watch) {
        const auto status = gather(machine);
        std::cout << text(machine, status, options.json);
        return exitStatus(status);
    }
    try {
        machine.runInterruptibly([&] { return watch(machine, options.json); });
    } catch (const platform::CancelledError&) {
        // The way it is meant to end.
    }
    return done;
}

}  // namespace

void addStatus(Program& program) {
    const auto options = std::make_shared<Options>();
    auto& verb = program.addVerb("status",
                                 "Show how things stand. Exit status 0: in step; 4: something waits; 3: "
                                 "something needs you",
                                 [options] { return run(*options); });
    verb.add_flag("--json", options->json, "One line of JSON, for scripts");
    verb.add_flag("--watch", options->watch, "Go on showing, until interrupted");
}

}  // namespace vorlinden::cli
