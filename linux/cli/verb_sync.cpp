// vorlinden sync [--once] [--interval SECONDS]
#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "linux/cli/machine.h"
#include "linux/cli/sync_progress.h"
#include "linux/cli/verbs.h"
#include "linux/host/sync_loop.h"
#include "platform/failure.h"
#include "synckit/container/app_group.h"

namespace vorlinden::cli {
namespace {

struct Options {
    bool once = false;
    int interval = 15;  // seconds
};

bool allWell(const std::vector<host::BrainReport>& reports) {
    return std::none_of(reports.begin(), reports.end(),
                        [](const auto& report) { return bool(report.failure); });
}

platform::Task<> sweep(host::WorkspaceRef workspace) {
    const auto hold = [workspace]() -> platform::Task<> {
        AppGroup::sweepSpool(workspace->system);
        co_return;
    };
    co_await workspace->locked(hold);
}

int runOnce(const Machine& machine, const host::WorkspaceRef& workspace) {
    SyncProgress progress(workspace->baseURL.absoluteString());
    std::vector<host::BrainReport> reports;
    machine.runInterruptibly([&]() -> platform::Task<> {
        co_await sweep(workspace);
        reports = co_await host::syncOnce(workspace, progress);
    });
    if (!allWell(reports)) return failed;
    progress.willRest(reports);
    return done;
}

int runForever(const Machine& machine, const host::WorkspaceRef& workspace, std::chrono::seconds interval) {
    SyncProgress progress(workspace->baseURL.absoluteString());
    try {
        machine.runInterruptibly([&]() -> platform::Task<> {
            co_await sweep(workspace);
            co_await host::syncForever(workspace, interval, progress);
        });
    } catch (const platform::CancelledError&) {
        // The way it is meant to end.
    }
    return done;
}

int run(const Options& options) {
    const Machine machine;
    const auto workspace = host::Workspace::open(machine.system, machine.folders);
    if (options.once) return runOnce(machine, workspace);
    return runForever(machine, workspace, std::chrono::seconds(options.interval));
}

}  // namespace

void addSync(Program& program) {
    const auto options = std::make_shared<Options>();
    auto& verb = program.addVerb("sync", "Keep this machine current with the server, until interrupted",
                                 [options] { return run(*options); });
    verb.add_flag("--once", options->once, "One round, and exit when everything is current");
    verb.add_option("--interval", options->interval,
                    "Seconds between rounds; a local change starts one at once")
        ->capture_default_str()
        ->check(CLI::Range(1, 24 * 60 * 60));
}

}  // namespace vorlinden::cli
