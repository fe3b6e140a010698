#include "linux/host/pull.h"

#include <exception>
#include <set>
#include <utility>

#include "linux/host/explain.h"
#include "linux/host/settle.h"
#include "platform/json.h"
#include "synckit/apply/brain_grants.h"

namespace vorlinden::host {
namespace {

// More answers in a row than any feed needs.
constexpr std::size_t maximumAnswers = 100;
constexpr int answersPerHold = 8;
constexpr int refusalsOfABatch = 2;

// SQLite's primary result codes for rows that it won't have.
constexpr int tooBig = 18;
constexpr int constraint = 19;
constexpr int mismatch = 20;

// Whether the answer itself is what the catalogue can't take, so that it would refuse it for ever.
bool isRefusal(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const SQLiteError& error) {
        const int code = error.code & 0xff;
        return code == constraint || code == mismatch || code == tooBig;
    } catch (const platform::JSONError&) {
        return true;
    } catch (...) {
        return false;
    }
}

Task<ChangesResponse> askForChanges(WorkspaceRef workspace, UUID brainId, std::optional<std::string> cursor) {
    const auto body = [workspace, brainId, cursor] {
        return workspace->client->changes(brainId.lowerText(), cursor, workspace->deviceId());
    };
    co_return co_await workspace->tokens->withAuthRetry<ChangesResponse>(body);
}

// One request and what comes of it.
Task<Applied> step(WorkspaceRef workspace, BrainRecord brain, std::optional<std::string> cursor) {
    const auto response = co_await askForChanges(workspace, brain.brainId, cursor);
    std::vector<OwnEcho> echoes;
    if (const auto* feed = std::get_if<ChangesResponse::Incremental>(&response.value)) {
        echoes = co_await ownEchoes(workspace, brain.brainId, *feed);
    }
    co_return applyChanges(*workspace, brain, response, echoes);
}

Task<std::exception_ptr> refusalOf(WorkspaceRef workspace, BrainRecord brain, Applied& applied) {
    try {
        applied = co_await step(workspace, brain, workspace->store->cursor(brain.brainId));
    } catch (...) {
        const auto failure = std::current_exception();
        if (!isRefusal(failure)) throw;
        co_return failure;
    }
    co_return nullptr;
}

Task<Applied> stepPastRefusals(WorkspaceRef workspace, BrainRecord brain, BrainPull& done) {
    std::exception_ptr refusal;
    for (int refusals = 0; refusals < refusalsOfABatch; ++refusals) {
        Applied applied;
        refusal = co_await refusalOf(workspace, brain, applied);
        if (!refusal) co_return applied;
    }
    const auto applied = co_await step(workspace, brain, std::nullopt);
    done.refusal = explain(refusal).sentence;
    co_return applied;
}

void add(BrainPull& done, const Applied& applied) {
    if (applied.reset) {
        done.snapshot = applied.items;
    } else {
        done.entries += applied.items;
    }
    done.copies += applied.copies;
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

Task<bool> pullInHold(WorkspaceRef workspace, BrainRecord brain, BrainPull& done) {
    for (int answers = 0; answers < answersPerHold; ++answers) {
        if (++done.answers > maximumAnswers) throw ChangesWithoutEnd(brain.slug);
        const auto applied = co_await stepPastRefusals(workspace, brain, done);
        add(done, applied);
        if (!applied.reset && applied.items == 0) co_return true;
    }
    co_return false;
}

}  // namespace vorlinden::host
