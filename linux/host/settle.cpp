#include "linux/host/settle.h"

#include <variant>

#include "synckit/apply/reconciler.h"
#include "synckit/apply/reset_planner.h"

namespace vorlinden::host {
namespace {

// Local work is never given up for a remote change: the batch is refused, and fetched again later.
ConflictResolution keepLocal(const FeedEntry&, const Op&, const PendingChange&) {
    return ConflictResolution::keepLocal;
}

struct Apply {
    const Workspace& workspace;
    const UUID& brainId;

    Applied operator()(const ChangesResponse::Incremental& feed) const {
        // The usual answer to an idle machine: not worth a write to the disk.
        if (feed.entries.empty() && feed.cursor == workspace.store->cursor(brainId)) return {};
        Reconciler::applyFeedEntries(*workspace.system.random, feed.entries, brainId, feed.cursor,
                                     *workspace.store, keepLocal);
        return {.reset = false, .items = feed.entries.size()};
    }
    Applied operator()(const ChangesResponse::Reset& reset) const {
        ResetPlanner::applySnapshot(reset.snapshot, brainId, reset.cursor, *workspace.store);
        return {.reset = true, .items = reset.snapshot.size()};
    }
};

}  // namespace

Applied applyChanges(const Workspace& workspace, const BrainRecord& brain, const ChangesResponse& response) {
    return std::visit(Apply{workspace, brain.brainId}, response.value);
}

}  // namespace vorlinden::host
