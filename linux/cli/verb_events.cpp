// vorlinden events [--json] [--follow]
#include <chrono>
#include <iostream>
#include <memory>

#include "linux/cli/machine.h"
#include "linux/cli/verbs.h"
#include "linux/host/alarm.h"
#include "linux/host/event_history.h"
#include "linux/host/patience.h"
#include "linux/host/workspace.h"
#include "platform/failure.h"

namespace vorlinden::cli {
namespace {

using namespace std::chrono_literals;

// In case a wake-up is lost, or none can be had.
constexpr auto betweenLooks = 5s;

struct Options {
    bool json = false;
    bool follow = false;
};

// Prints the events after number `last`; gives the number of the last one there is.
std::int64_t print(const host::EventHistory& history, bool json, std::int64_t last) {
    for (const auto& told : history.events()) {
        if (told.number <= last) continue;
        last = told.number;
        if (json) {
            std::cout << host::eventJSON(told) << "\n";
        } else {
            std::cout << platform::formatTimestamp(told.event.at) << " " << told.line() << "\n";
        }
    }
    std::cout.flush();
    return last;
}

platform::Task<> follow(const platform::System system, host::EventHistory history, bool json,
                        std::int64_t last) {
    const auto alarm = std::make_shared<host::Alarm>();
    std::unique_ptr<platform::NotificationCenter::Registration> registration;
    try {
        const auto ring = [alarm] { alarm->ring(); };
        registration = system.notifications->listen(host::EventHistory::changedName, ring);
    } catch (const platform::FileError&) {
        // The machine is out of watches: looking now and then has to do.
    }
    while (std::cout) {
        last = print(history, json, last);
        co_await alarm->wait(system, betweenLooks);
    }
}

int run(const Options& options) {
    const Machine machine;
    const auto workspace = host::Workspace::open(machine.system, machine.folders);
    host::EventHistory history(machine.system, machine.folders.state);
    host::patiently([&] { history.collect(*workspace->store); });
    const auto last = print(history, options.json, 0);
    if (!options.follow) return done;
    try {
        machine.runInterruptibly([&] { return follow(machine.system, history, options.json, last); });
    } catch (const platform::CancelledError&) {
        // The way it is meant to end.
    }
    return done;
}

}  // namespace

void addEvents(Program& program) {
    const auto options = std::make_shared<Options>();
    auto& verb =
        program.addVerb("events", "Tell what became of local changes that met other people's, oldest first",
                        [options] { return run(*options); });
    verb.add_flag("--json", options->json, "One line of JSON per event, for scripts");
    verb.add_flag("--follow", options->follow, "Go on telling, until interrupted");
}

}  // namespace vorlinden::cli
