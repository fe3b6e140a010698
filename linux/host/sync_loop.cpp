#include "linux/host/sync_loop.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <span>

#include "linux/host/alarm.h"
#include "linux/host/event_history.h"
#include "linux/host/explain.h"
#include "linux/host/host_state.h"
#include "linux/host/pauses.h"
#include "synckit/container/sync_signal.h"

namespace vorlinden::host {
namespace {

using std::chrono::milliseconds;
using namespace std::chrono_literals;

// A wake-up brings at most one round a second, and while the server is away at most one try in half a minute.
constexpr milliseconds quietAfterRound = 1s;
constexpr milliseconds quietWhileAway = 30s;

void remember(const Workspace& workspace, const std::vector<BrainReport>& reports) {
    HostState state(workspace.system, workspace.folders.state);
    std::map<UUID, PullRecord> pulls;
    for (const auto& report : reports) {
        const auto before = state.pulls().find(report.brain.brainId);
        auto& record = pulls[report.brain.brainId];
        if (!report.failure) {
            record.pulledAt = workspace.system.clock->now();
            continue;
        }
        if (before != state.pulls().end()) record.pulledAt = before->second.pulledAt;
        record.failure = explain(report.failure).sentence;
    }
    state.setRound(std::move(pulls));
}

void rememberFailure(const Workspace& workspace, const std::exception_ptr& failure) {
    HostState(workspace.system, workspace.folders.state).setRoundFailure(explain(failure).sentence);
}

// What follows a round, however it went: the person hears of settled conflicts, the spool is swept.
Task<> tidyUp(WorkspaceRef workspace, PullObserver& observer) {
    const auto hold = [workspace]() -> Task<std::vector<ToldEvent>> {
        auto events = EventHistory(workspace->system, workspace->folders.state).collect(*workspace->store);
        workspace->recovery->prune(*workspace->store);
        co_return events;
    };
    for (const auto& event : co_await workspace->locked(hold))
        observer.didHear(event);
}

// Null, or why there was no round.
Task<std::exception_ptr> attempt(WorkspaceRef workspace, PullObserver& observer,
                                 std::vector<BrainReport>& reports) {
    try {
        reports = co_await pullRound(workspace, observer);
        remember(*workspace, reports);
    } catch (const CancelledError&) {
        throw;
    } catch (...) {
        co_return std::current_exception();
    }
    co_return nullptr;
}

// What one turn of the loop came to: reports, or the failure that kept it from being held or complete.
struct Turn {
    std::vector<BrainReport> reports;
    std::exception_ptr failure;
    bool needsPerson = false;
};

Task<Turn> turn(WorkspaceRef workspace, SyncObserver& observer) {
    Turn result;
    try {
        result.reports = co_await syncOnce(workspace, observer);
    } catch (const CancelledError&) {
        throw;
    } catch (...) {
        result.failure = std::current_exception();
        result.needsPerson = explain(result.failure).needsPerson;
        co_return result;
    }
    const auto away = std::find_if(
        result.reports.begin(), result.reports.end(),
        [](const BrainReport& report) { return report.failure && serverIsAway(report.failure); });
    if (away != result.reports.end()) result.failure = away->failure;
    co_return result;
}

double chance(platform::Random& random) {
    std::uint8_t byte = 0;
    random.fill(std::span(&byte, 1));
    return byte / 256.0;
}

// Waits for `pause` or a wake-up, deaf to wake-ups for the first `quiet` of it.
Task<> rest(WorkspaceRef workspace, std::shared_ptr<Alarm> alarm, milliseconds pause, milliseconds quiet) {
    const auto deaf = std::min(pause, quiet);
    co_await workspace->system.timers->sleep(deaf);
    co_await alarm->wait(workspace->system, pause - deaf);
}

std::unique_ptr<platform::NotificationCenter::Registration> listenForWakeUps(
    const Workspace& workspace, const std::shared_ptr<Alarm>& alarm) {
    try {
        return workspace.system.notifications->listen(SyncSignal::syncNowName, [alarm] { alarm->ring(); });
    } catch (const FileError&) {
        return nullptr;  // The machine is out of watches: the interval has to do.
    }
}

std::filesystem::path runningLockFile(const platform::Folders& folders) {
    return folders.state / "sync-running.lock";
}

}  // namespace

Task<std::vector<BrainReport>> syncOnce(WorkspaceRef workspace, PullObserver& observer) {
    std::vector<BrainReport> reports;
    auto failure = co_await attempt(workspace, observer, reports);
    try {
        co_await tidyUp(workspace, observer);
    } catch (const CancelledError&) {
        throw;
    } catch (...) {
        if (!failure) failure = std::current_exception();
    }
    if (!failure) co_return reports;
    rememberFailure(*workspace, failure);
    std::rethrow_exception(failure);
}

Task<> syncForever(WorkspaceRef workspace, milliseconds interval, SyncObserver& observer) {
    const auto alarm = std::make_shared<Alarm>();
    const auto wakeUps = listenForWakeUps(*workspace, alarm);
    workspace->system.files->createDirectories(workspace->folders.state);
    const auto running = workspace->system.files->openLockFile(runningLockFile(workspace->folders));
    bool marked = false;
    unsigned failures = 0;
    bool toldSignedOut = false;
    while (true) {
        marked = marked || running->tryLock() == 0;
        const auto result = co_await turn(workspace, observer);
        const bool retry = result.failure && !result.needsPerson;
        failures = retry ? failures + 1 : 0;
        const auto pause =
            retry ? std::max(pauseAfterFailures(failures, chance(*workspace->system.random)), quietAfterRound)
                  : interval;
        if (retry) observer.willRetry(result.failure, pause);
        if (!result.failure) observer.willRest(result.reports);
        if (result.needsPerson && !toldSignedOut) observer.isSignedOut(result.failure);
        toldSignedOut = result.needsPerson;
        co_await rest(workspace, alarm, pause, retry ? quietWhileAway : quietAfterRound);
    }
}

bool isSyncRunning(const platform::System& system, const platform::Folders& folders) {
    if (!system.files->exists(runningLockFile(folders))) return false;
    const auto lock = system.files->openLockFile(runningLockFile(folders));
    if (lock->tryLock() != 0) return true;
    lock->unlock();
    return false;
}

}  // namespace vorlinden::host
