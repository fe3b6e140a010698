#include "linux/cli/one_brain.h"

#include <iostream>

#include "linux/cli/surroundings.h"
#include "linux/host/explain.h"
#include "linux/host/round.h"

namespace vorlinden::cli {
namespace {

// What keeps the brain's changes from the server now; empty if nothing does.
std::string obstacle(const host::BrainReport& report) {
    if (report.failure) return host::explain(report.failure).sentence;
    if (report.drain.waiting == 0) return "";
    return report.drain.reason.value_or("Something before it waits.");
}

}  // namespace

Choice choiceAt(const Machine& machine, const std::string& text) {
    auto workspace = host::Workspace::open(machine.system, machine.folders);
    auto place = host::treePath(*workspace->store, text, treeSurroundings(machine));
    return {std::move(workspace), std::move(place)};
}

ExitStatus changeAndSync(const Machine& machine, const Choice& choice,
                         const std::function<platform::Task<>()>& change) {
    host::BrainReport report;
    machine.runInterruptibly([&]() -> platform::Task<> {
        co_await choice.workspace->locked(change);
        choice.workspace->signalWorkingSet();
        report = co_await host::syncBrain(choice.workspace, choice.place.brain);
    });
    const auto reason = obstacle(report);
    if (reason.empty()) return done;
    std::cerr << "The change is kept and goes to the server later. " << reason << "\n";
    return somethingWaits;
}

}  // namespace vorlinden::cli
