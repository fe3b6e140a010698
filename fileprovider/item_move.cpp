#include "fileprovider/item_move.h"

#include <utility>

#include "fileprovider/item_content.h"
#include "fileprovider/items.h"
#include "fileprovider/node_lookup.h"
#include "fileprovider/refusals.h"
#include "synckit/conflicts/conflict_namer.h"
#include "synckit/server/sync_errors.h"
#include "synckit/upload/ignore_list.h"
#include "synckit/upload/local_mutations.h"

namespace vorlinden::fileprovider {

namespace protocol = platform::fileprovider;

namespace {

constexpr const char* notThere = "Items can't be moved there.";

std::optional<ParentFolder> destination(const std::optional<ItemIdentifier>& newParent,
                                        MetadataStore& store) {
    if (!newParent) return {};
    if (!syncIdentifier(*newParent)) throw providerError(protocol::cannotSynchronize, notThere);
    return resolveParent(*newParent, store);
}

Task<WriteResult> sendMove(CorePtr core, const WriteContext& context, UUID brainId, std::string fromPath,
                           std::string toPath) {
    const std::function<Task<WriteResult>()> request = [&] {
        return core->api()->move(brainId.lowerText(), context.deviceId, fromPath, toPath);
    };
    co_return co_await core->tokenManager()->withAuthRetry<WriteResult>(request);
}

// What the server says of the two ends of a move.
enum class MoveFailure { sourceGone, destinationTaken, other };

MoveFailure moveFailure(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const SyncAPIError& error) {
        if (error.status == 404 || error.isNotFound()) return MoveFailure::sourceGone;
        return error.isConflict() ? MoveFailure::destinationTaken : MoveFailure::other;
    } catch (...) {
        return MoveFailure::other;
    }
}

std::string freePath(const ExtensionCore& core, const WriteContext& context, const UUID& brainId,
                     const std::string& toPath) {
    CanonicalPathSet taken;
    for (const auto& node : context.store->allNodes(brainId))
        taken.insert(node.path);
    return ConflictNamer::conflictCopyPath(toPath, context.deviceName, now(core), taken);
}

// Gives the path that the item has now. A source that the server doesn't have (any more: an earlier answer
// may have been lost) has moved as far as it can; a destination that is taken there gets another name, once.
Task<std::string> moveOnServer(CorePtr core, const WriteContext& context, UUID brainId, std::string fromPath,
                               std::string toPath) {
    const auto first = co_await attempt(sendMove(core, context, brainId, fromPath, toPath));
    if (!first.failure || moveFailure(first.failure) == MoveFailure::sourceGone) co_return toPath;
    if (moveFailure(first.failure) == MoveFailure::other) std::rethrow_exception(first.failure);
    const auto conflictPath = freePath(*core, context, brainId, toPath);
    const auto second = co_await attempt(sendMove(core, context, brainId, fromPath, conflictPath));
    if (second.failure && moveFailure(second.failure) != MoveFailure::sourceGone)
        std::rethrow_exception(second.failure);
    co_return conflictPath;
}

void mark(const WriteContext& context, const NodeRecord& record, const std::string& message) {
    LocalMutations::markUploadError(*context.store, record.brainId, record.nodeId, message);
}

void settleRefusedMove(const WriteContext& context, const NodeRecord& record, const MovePlan::Move& plan,
                       std::int64_t journalId, const Refusal& refusal) {
    if (const auto* forGood = std::get_if<RefusedForGood>(&refusal)) {
        context.store->inTransaction([&] {
            context.store->removePending(journalId);
            mark(context, record, forGood->message);
        });
    } else {
        context.resolver->bounceMove(plan.brainId, plan.fromPath, plan.toPath, journalId);
    }
}

Task<NodeRecord> moveThroughServer(CorePtr core, const WriteContext& context, const NodeRecord& record,
                                   const MovePlan::Move& plan) {
    MetadataStore& store = *context.store;
    const auto journalId = LocalMutations::journalMove(store, plan.brainId, record.nodeId, plan.fromPath,
                                                       plan.toPath, now(*core));
    const auto moved =
        co_await attempt(moveOnServer(core, context, plan.brainId, plan.fromPath, plan.toPath));
    if (moved.failure) {
        settleRefusedMove(context, record, plan, journalId, refusalOf(moved.failure, notMoved));
        co_return reloadNode(store, record, record.path);
    }
    LocalMutations::applyMove(*core->system().random, store, plan.brainId, plan.fromPath, *moved.value,
                              journalId, now(*core));
    co_return reloadNode(store, record, *moved.value);
}

// Names that are never synchronised are outside the server's tree, and so of the rules that move its rows.
void moveJunk(MetadataStore& store, const NodeRecord& record, const std::string& toPath) {
    store.inTransaction([&] {
        const auto there = store.nodeByPath(record.brainId, toPath);
        if (there && there->nodeId != record.nodeId) {
            store.deleteNode(there->brainId, there->nodeId);
            store.appendChange(there->identifier(), true);
        }
        store.updatePath(record.brainId, record.nodeId, toPath);
        store.appendChange(record.identifier(), false);
    });
}

NodeRecord moveHere(const ExtensionCore& core, const WriteContext& context, const NodeRecord& record,
                    const MovePlan::LocalOnly& plan) {
    if (IgnoreList::isJunk(plan.fromPath) || IgnoreList::isJunk(plan.toPath)) {
        moveJunk(*context.store, record, plan.toPath);
    } else {
        LocalMutations::applyMove(*core.system().random, *context.store, plan.brainId, plan.fromPath,
                                  plan.toPath, std::nullopt, now(core));
    }
    return reloadNode(*context.store, record, plan.toPath);
}

}  // namespace

Task<NodeRecord> applyNameAndParent(CorePtr core, const WriteContext& context, const NodeRecord& record,
                                    std::optional<std::string> newName,
                                    std::optional<ItemIdentifier> newParent) {
    const auto parent = destination(newParent, *context.store);
    const auto plan =
        UploadPlanner::planMove(record, newName, parent ? std::optional(parent->identifier) : std::nullopt,
                                parent ? parent->path : std::nullopt, context.inboxBrainId);
    if (std::holds_alternative<MovePlan::NoChange>(plan.value)) co_return record;
    if (std::holds_alternative<MovePlan::CrossBrainUnsupported>(plan.value)) {
        throw providerError(protocol::cannotSynchronize, std::string(UploadPlanner::crossBrainMessage));
    }
    if (const auto* rejected = std::get_if<MovePlan::Rejected>(&plan.value)) {
        mark(context, record, std::string(notMoved) + rejected->error.errorDescription());
        co_return reloadNode(*context.store, record, record.path);
    }
    if (const auto* local = std::get_if<MovePlan::LocalOnly>(&plan.value))
        co_return moveHere(*core, context, record, *local);
    co_return co_await moveThroughServer(core, context, record, std::get<MovePlan::Move>(plan.value));
}

}  // namespace vorlinden::fileprovider
