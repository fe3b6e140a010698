#include "linux/host/round.h"

#include <chrono>
#include <map>
#include <set>
#include <utility>

#include "linux/host/explain.h"
#include "linux/host/host_state.h"
#include "linux/host/mark.h"

namespace vorlinden::host {
namespace {

using namespace std::chrono_literals;

// Between two holds of the execution lock, so that a person's own write never waits for a whole round.
constexpr auto leftFree = 100ms;

Task<> letOthersIn(WorkspaceRef workspace) {
    co_await workspace->system.timers->sleep(leftFree);
}

// One hold: gives whether the brain's turn is over.
Task<bool> turn(WorkspaceRef workspace, bool drains, BrainReport& report) {
    workspace->recovery->noteOrigins(*workspace->store);
    const bool current = co_await pullInHold(workspace, report.brain, report.pull);
    if (!current) co_return false;
    // Before the copies go up and leave the spool: as long as they are there, nobody takes the bytes that
    // they were made of for lost.
    if (report.pull.copies > 0) workspace->recovery->prune(*workspace->store);
    report.drain.tried = drains;
    if (!drains) co_return true;
    report.drain = co_await drainInHold(workspace, report.brain.brainId);
    if (report.drain.sent == 0) co_return true;
    // The feed now tells of what was sent. Without it the catalogue's position lies before that, and whoever
    // asks for the content there gets the old one, or none.
    BrainPull echoes;
    co_await pullInHold(workspace, report.brain, echoes);
    report.pull.copies += echoes.copies;
    co_return true;
}

Task<> takeTurns(WorkspaceRef workspace, bool drains, BrainReport& report) {
    const auto mark = Mark::syncs(workspace->folders, report.brain.brainId).hold(workspace->system);
    bool over = false;
    while (!over) {
        co_await letOthersIn(workspace);
        const auto hold = [workspace, drains, &report] { return turn(workspace, drains, report); };
        over = co_await workspace->locked(hold);
    }
}

// What the last rounds came to, for a brain that is there or gone: whose changes wait is not forgotten.
std::map<UUID, PullRecord> records(const Workspace& workspace, const HostState& state,
                                   const std::vector<BrainReport>& reports) {
    std::map<UUID, PullRecord> records;
    for (const auto& row : workspace.store->pendingChanges(std::nullopt)) {
        const auto before = state.pulls().find(row.brainId);
        if (before != state.pulls().end()) records[row.brainId] = before->second;
    }
    for (const auto& report : reports) {
        const auto before = state.pulls().find(report.brain.brainId);
        auto& record = records[report.brain.brainId];
        record = before == state.pulls().end() ? PullRecord() : before->second;
        record.slug = report.brain.slug;
        record.failure.reset();
        if (report.drain.tried) record.waitsFor = report.drain.reason;
        if (report.failure) {
            record.failure = explain(report.failure).sentence;
        } else {
            record.pulledAt = workspace.system.clock->now();
        }
    }
    return records;
}

void remember(const Workspace& workspace, const std::vector<BrainReport>& reports) {
    HostState state(workspace.system, workspace.folders.state);
    state.setRound(records(workspace, state, reports));
}

Task<> syncAll(WorkspaceRef workspace, RoundObserver& observer, RoundPlan plan,
               std::vector<BrainReport>& reports) {
    workspace->requireSession();
    for (const auto& brain : co_await pullGrants(workspace)) {
        if (plan.ending && plan.ending->hasEnded()) co_return;
        observer.willSync(brain);
        const bool drains = !plan.onlyPulled.contains(brain.brainId);
        reports.push_back(co_await syncBrain(workspace, brain, drains));
        observer.didSync(reports.back());
    }
    remember(*workspace, reports);
}

// What follows a round, however it went.
Task<> tidyUp(WorkspaceRef workspace, RoundObserver& observer) {
    if (!workspace->store->meta(MetaKey::conflictEvents) && !workspace->recovery->hasWork()) co_return;
    co_await letOthersIn(workspace);
    const auto hold = [workspace]() -> Task<std::vector<ToldEvent>> {
        auto events = EventHistory(workspace->system, workspace->folders.state).collect(*workspace->store);
        workspace->recovery->prune(*workspace->store);
        co_return events;
    };
    for (const auto& event : co_await workspace->locked(hold))
        observer.didHear(event);
}

// Null, or why the step did not come to its end.
Task<std::exception_ptr> failureOf(Task<> step) {
    try {
        co_await std::move(step);
    } catch (const CancelledError&) {
        throw;
    } catch (...) {
        co_return std::current_exception();
    }
    co_return nullptr;
}

}  // namespace

Task<BrainReport> syncBrain(WorkspaceRef workspace, BrainRecord brain, bool drains) {
    BrainReport report{.brain = brain, .pull = {}, .drain = {}, .failure = nullptr};
    const auto before = workspace->store->currentAnchor();
    std::exception_ptr passing;
    try {
        co_await takeTurns(workspace, drains, report);
    } catch (const CancelledError&) {
        passing = std::current_exception();
    } catch (const TokenManagerError&) {
        passing = std::current_exception();
    } catch (...) {
        report.failure = std::current_exception();
    }
    if (workspace->store->currentAnchor() != before) workspace->signalWorkingSet();
    if (passing) std::rethrow_exception(passing);
    co_return report;
}

Task<std::vector<BrainReport>> syncRound(WorkspaceRef workspace, RoundObserver& observer, RoundPlan plan) {
    std::vector<BrainReport> reports;
    auto failure = co_await failureOf(syncAll(workspace, observer, plan, reports));
    const auto untidy = co_await failureOf(tidyUp(workspace, observer));
    if (!failure) failure = untidy;
    if (!failure) co_return reports;
    HostState(workspace->system, workspace->folders.state).setRoundFailure(explain(failure).sentence);
    std::rethrow_exception(failure);
}

}  // namespace vorlinden::host
