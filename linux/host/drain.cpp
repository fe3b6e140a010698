#include "linux/host/drain.h"

#include <variant>
#include <vector>

#include "linux/host/settle.h"
#include "synckit/conflicts/conflict_resolver.h"
#include "synckit/upload/pending_edit_uploader.h"

namespace vorlinden::host {
namespace {

using Result = PendingEditUploader::Result;

struct Count {
    BrainDrain& drain;
    void operator()(const Result::Rejected&) const { ++drain.refused; }
    void operator()(const Result::Uploaded&) const { ++drain.sent; }
    void operator()(const Result::Bounced&) const { ++drain.bounced; }
    void operator()(const Result::RetryLater&) const { drain.later = true; }
};

}  // namespace

Task<BrainDrain> drainInHold(WorkspaceRef workspace, UUID brainId) {
    BrainDrain drain;
    if (workspace->store->pendingChanges(brainId).empty()) co_return drain;
    workspace->transport->forget();
    const auto results = co_await PendingEditUploader::drain(
        workspace->system, makeResolver(*workspace), workspace->store,
        ConflictSpool::inAppGroup(workspace->system), workspace->deviceId(), workspace->client,
        workspace->tokens, brainId);
    for (const auto& result : results)
        std::visit(Count{drain}, result.value);
    drain.waiting = workspace->store->pendingChanges(brainId).size();
    if (drain.later) drain.reason = workspace->transport->trouble();
    co_return drain;
}

}  // namespace vorlinden::host
