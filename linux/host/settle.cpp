#include "linux/host/settle.h"

#include <variant>

#include "synckit/apply/reconciler.h"
#include "synckit/conflicts/conflict_resolver.h"
#include "synckit/conflicts/conflict_spool.h"

namespace vorlinden::host {
namespace {

struct Apply {
    const Workspace& workspace;
    const UUID& brainId;
    const std::vector<OwnEcho>& echoes;

    Applied operator()(const ChangesResponse::Incremental& feed) const {
        // The usual answer to an idle machine: not worth a write to the disk.
        if (feed.entries.empty() && feed.cursor == workspace.store->cursor(brainId)) return {};
        const auto resolver = makeResolver(workspace);
        // With the batch or not at all: an edit based anew on a batch that isn't applied would take later
        // changes of others for its own.
        workspace.store->inTransaction([&] {
            for (const auto& echo : echoes)
                workspace.store->rebasePending(echo.row, echo.cursor);
            Reconciler::applyFeedEntries(*workspace.system.random, feed.entries, brainId, feed.cursor,
                                         *workspace.store, resolver->conflictHandler());
        });
        return {.reset = false, .items = feed.entries.size(), .copies = resolver->copies().size()};
    }
    Applied operator()(const ChangesResponse::Reset& reset) const {
        const auto result = makeResolver(workspace)->applyReset(reset.snapshot, brainId, reset.cursor);
        return {.reset = true, .items = reset.snapshot.size(), .copies = result.copies.size()};
    }
};

}  // namespace

std::shared_ptr<ConflictResolver> makeResolver(const Workspace& workspace) {
    const auto spool = ConflictSpool::inAppGroup(workspace.system);
    const auto deviceName = workspace.store->meta(MetaKey::deviceName).value_or(workspace.system.deviceName);
    const auto now = [clock = workspace.system.clock] { return clock->now(); };
    const auto localContent = [spool](const PendingChange& change, const std::optional<NodeRecord>&) {
        return change.id ? spool.pendingBytes(*change.id) : std::nullopt;
    };
    return std::make_shared<ConflictResolver>(workspace.system.random, workspace.store, deviceName, spool,
                                              now, localContent);
}

Applied applyChanges(const Workspace& workspace, const BrainRecord& brain, const ChangesResponse& response,
                     const std::vector<OwnEcho>& echoes) {
    return std::visit(Apply{workspace, brain.brainId, echoes}, response.value);
}

}  // namespace vorlinden::host
