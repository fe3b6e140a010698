#include "linux/host/sync_loop.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <span>

#include "linux/host/explain.h"
#include "linux/host/host_state.h"
#include "linux/host/mark.h"
#include "linux/host/pauses.h"
#include "synckit/container/sync_signal.h"

namespace vorlinden::host {
namespace {

using std::chrono::milliseconds;
using namespace std::chrono_literals;

// A wake-up brings at most one round a second, and while the server is away at most one try in half a minute.
constexpr milliseconds quietAfterRound = 1s;
constexpr milliseconds quietWhileAway = 30s;

// What one turn of the loop came to.
struct Turn {
    std::vector<BrainReport> reports;
    std::exception_ptr failure;  // what kept it from being held, or complete for want of the server
    bool needsPerson = false;

    bool away() const { return failure && !needsPerson; }
};

Task<Turn> turn(WorkspaceRef workspace, SyncObserver& observer, RoundPlan plan) {
    Turn result;
    try {
        result.reports = co_await syncRound(workspace, observer, plan);
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

std::unique_ptr<platform::NotificationCenter::Registration> listenForWakeUps(
    const Workspace& workspace, const std::shared_ptr<Alarm>& alarm) {
    try {
        return workspace.system.notifications->listen(SyncSignal::syncNowName, [alarm] { alarm->ring(); });
    } catch (const FileError&) {
        return nullptr;  // The machine is out of watches: the interval has to do.
    }
}

void tell(SyncObserver& observer, const Turn& turn, milliseconds pause, bool& toldSignedOut) {
    if (turn.failure && !turn.needsPerson) observer.willRetry(turn.failure, pause);
    if (!turn.failure) observer.willRest(turn.reports);
    if (turn.needsPerson && !toldSignedOut) observer.isSignedOut(turn.failure);
    toldSignedOut = turn.needsPerson;
}

// Waits for `pause` or a wake-up, deaf to wake-ups for the first `quiet` of it.
Task<> rest(WorkspaceRef workspace, std::shared_ptr<Alarm> alarm, milliseconds pause, milliseconds quiet) {
    const auto deaf = std::min(pause, quiet);
    co_await alarm->sleep(workspace->system, deaf);
    co_await alarm->wait(workspace->system, pause - deaf);
}

// How long to pause after each turn.
class Rhythm {
 public:
    Rhythm(WorkspaceRef workspace, milliseconds interval) : workspace_(workspace), interval_(interval) {}

    std::set<UUID> pausing() const { return drains_.pausing(now()); }

    milliseconds pauseAfter(const Turn& turn) {
        for (const auto& report : turn.reports) {
            if (report.drain.later) {
                drains_.putOff(report.brain.brainId, now(), byChance());
            } else if (report.drain.tried) {
                drains_.forget(report.brain.brainId);
            }
        }
        failures_ = turn.away() ? failures_ + 1 : 0;
        const auto pause = turn.away() ? pauseAfterFailures(failures_, byChance()) : untilNextRound(turn);
        const auto result = std::max(pause, quietAfterRound);
        remember(turn, result);
        return result;
    }

 private:
    Timestamp now() const { return workspace_->system.clock->now(); }
    double byChance() const { return chance(*workspace_->system.random); }

    milliseconds untilNextRound(const Turn& turn) const {
        const auto next = turn.needsPerson ? std::nullopt : drains_.next();
        return next ? std::min(interval_, *next - now()) : interval_;
    }

    // For `status`: when the server is asked again, where somebody may wait for that.
    void remember(const Turn& turn, milliseconds pause) const {
        HostState state(workspace_->system, workspace_->folders.state);
        if (turn.away()) {
            state.setNextTry(now() + pause);
        } else {
            state.setNextTry(turn.needsPerson ? std::nullopt : drains_.next());
        }
    }

    const WorkspaceRef workspace_;
    const milliseconds interval_;
    unsigned failures_ = 0;
    DrainPauses drains_;
};

}  // namespace

Task<> syncForever(WorkspaceRef workspace, milliseconds interval, SyncObserver& observer,
                   std::shared_ptr<Alarm> alarm) {
    const auto wakeUps = listenForWakeUps(*workspace, alarm);
    std::unique_ptr<platform::LockFile> mark;
    Rhythm rhythm(workspace, interval);
    bool toldSignedOut = false;
    while (!alarm->hasEnded()) {
        if (!mark) mark = Mark::syncRuns(workspace->folders).hold(workspace->system);
        const RoundPlan plan{alarm, rhythm.pausing()};
        const auto result = co_await turn(workspace, observer, plan);
        const auto pause = rhythm.pauseAfter(result);
        tell(observer, result, pause, toldSignedOut);
        co_await rest(workspace, alarm, pause, result.away() ? quietWhileAway : quietAfterRound);
    }
}

}  // namespace vorlinden::host
