#include "linux/host/pull.h"

#include <set>
#include <utility>

#include "linux/host/settle.h"
#include "synckit/apply/brain_grants.h"

namespace vorlinden::host {
namespace {

// More answers in a row than any feed needs.
constexpr int maximumAnswers = 100;

Task<ChangesResponse> askForChanges(WorkspaceRef workspace, UUID brainId) {
    const auto body = [workspace, brainId] {
        return workspace->client->changes(brainId.lowerText(), workspace->store->cursor(brainId),
                                          workspace->deviceId());
    };
    co_return co_await workspace->tokens->withAuthRetry<ChangesResponse>(body);
}

struct Step {
    Applied applied;
    bool changed = false;
};

// One request and what comes of it, with the lock held.
Task<Step> pullStep(WorkspaceRef workspace, BrainRecord brain) {
    workspace->recovery->noteOrigins(*workspace->store);
    const auto anchor = workspace->store->currentAnchor();
    const auto response = co_await askForChanges(workspace, brain.brainId);
    const auto applied = applyChanges(*workspace, brain, response);
    co_return Step{applied, workspace->store->currentAnchor() != anchor};
}

void add(BrainPull& done, const Step& step) {
    if (step.applied.reset) {
        done.snapshot = step.applied.items;
    } else {
        done.entries += step.applied.items;
    }
    done.copies += step.applied.copies;
    done.changed = done.changed || step.changed;
}

Task<BrainReport> pullReported(WorkspaceRef workspace, BrainRecord brain) {
    BrainReport report{.brain = brain, .pull = {}, .failure = nullptr};
    try {
        co_await pullBrain(workspace, brain, report.pull);
    } catch (const CancelledError&) {
        throw;
    } catch (const TokenManagerError&) {
        throw;
    } catch (...) {
        report.failure = std::current_exception();
    }
    co_return report;
}

// What exists only here goes with its brain; its bytes are kept.
void keepWhatGoes(const Workspace& workspace, const std::vector<Brain>& granted) {
    std::set<UUID> staying;
    for (const auto& brain : granted)
        if (const auto id = UUID::parse(brain.id)) staying.insert(*id);
    for (const auto& brain : workspace.store->brains())
        if (!staying.contains(brain.brainId)) workspace.recovery->keepLocalOnly(*workspace.store, brain);
}

}  // namespace

Task<std::vector<BrainRecord>> pullGrants(WorkspaceRef workspace) {
    const auto hold = [workspace]() -> Task<bool> {
        const auto ask = [workspace] { return workspace->client->listBrains(); };
        const auto brains = co_await workspace->tokens->withAuthRetry<std::vector<Brain>>(ask);
        workspace->recovery->noteOrigins(*workspace->store);
        keepWhatGoes(*workspace, brains);
        co_return BrainGrants::apply(brains, *workspace->store);
    };
    if (co_await workspace->locked(hold)) workspace->signalWorkingSet();
    co_return workspace->store->brains();
}

Task<> pullBrain(WorkspaceRef workspace, BrainRecord brain, BrainPull& done) {
    for (int answers = 0; answers < maximumAnswers; ++answers) {
        const auto hold = [workspace, brain] { return pullStep(workspace, brain); };
        const auto step = co_await workspace->locked(hold);
        add(done, step);
        if (step.changed) workspace->signalWorkingSet();
        if (!step.applied.reset && step.applied.items == 0) co_return;
    }
    throw ChangesWithoutEnd(brain.slug);
}

Task<std::vector<BrainReport>> pullRound(WorkspaceRef workspace, PullObserver& observer) {
    workspace->requireSession();
    std::vector<BrainReport> reports;
    for (const auto& brain : co_await pullGrants(workspace)) {
        observer.willPull(brain);
        reports.push_back(co_await pullReported(workspace, brain));
        observer.didPull(reports.back());
    }
    co_return reports;
}

}  // namespace vorlinden::host
