// vorlinden sync [--once] [--interval SECONDS]
#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <sys/prctl.h>
#include <unistd.h>

#include "linux/cli/machine.h"
#include "linux/cli/sync_progress.h"
#include "linux/cli/verbs.h"
#include "linux/host/sync_loop.h"
#include "platform/failure.h"
#include "synckit/container/app_group.h"

namespace vorlinden::cli {
namespace {

using namespace std::chrono_literals;

// How long a request that is in flight may take when the program is asked to end.
constexpr auto grace = 1s;

struct Options {
    bool once = false;
    int interval = 15;  // seconds
    pid_t with = 0;     // the process with which this one ends; 0: none
};

int statusOf(const std::vector<host::BrainReport>& reports) {
    const auto hasFailed = [](const auto& report) { return bool(report.failure); };
    const auto waits = [](const auto& report) { return report.drain.waiting > 0; };
    if (std::ranges::any_of(reports, hasFailed)) return failed;
    return std::ranges::any_of(reports, waits) ? somethingWaits : done;
}

// The kernel sends SIGTERM when the process that started this one ends, however it ends.
void endWith(pid_t parent) {
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent)
        throw UsageError("The process " + std::to_string(parent) + " has ended already.");
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
        reports = co_await host::syncRound(workspace, progress);
    });
    const auto status = statusOf(reports);
    if (status == done) progress.willRest(reports);
    return status;
}

int runForever(const Machine& machine, const host::WorkspaceRef& workspace, std::chrono::seconds interval) {
    SyncProgress progress(workspace->baseURL.absoluteString());
    const auto alarm = std::make_shared<host::Alarm>();
    try {
        machine.runUntilAsked(
            [&]() -> platform::Task<> {
                co_await sweep(workspace);
                co_await host::syncForever(workspace, interval, progress, alarm);
            },
            [&] { alarm->end(); }, grace);
    } catch (const platform::CancelledError&) {
        // A request took longer than that; what it was for is tried again.
    }
    return done;
}

int run(const Options& options) {
    if (options.with != 0) endWith(options.with);
    const Machine machine;
    const auto workspace = host::Workspace::open(machine.system, machine.folders);
    if (options.once) return runOnce(machine, workspace);
    return runForever(machine, workspace, std::chrono::seconds(options.interval));
}

}  // namespace

void addSync(Program& program) {
    const auto options = std::make_shared<Options>();
    auto& verb = program.addVerb("sync", "Keep this machine and the server in step, until interrupted",
                                 [options] { return run(*options); });
    verb.add_flag("--once", options->once, "One round, and exit when everything is current");
    verb.add_option("--interval", options->interval,
                    "Seconds between rounds; a local change starts one at once")
        ->capture_default_str()
        ->check(CLI::Range(1, 24 * 60 * 60));
    verb.add_option("--with", options->with)->group("");  // for `vorlinden mount`
}

}  // namespace vorlinden::cli
