#include "fileprovider/item_deletion.h"

#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "fileprovider/items.h"
#include "fileprovider/node_lookup.h"
#include "fileprovider/refusals.h"
#include "fileprovider/write_frame.h"
#include "synckit/conflicts/change_rules.h"
#include "synckit/upload/local_mutations.h"

namespace vorlinden::fileprovider {

namespace {

Task<DeleteResult> sendDelete(CorePtr core, const WriteContext& context, const NodeRecord& record) {
    const std::function<Task<DeleteResult>()> request = [&] {
        return core->api()->deleteFile(record.brainId.lowerText(), context.deviceId, record.path);
    };
    co_return co_await core->tokenManager()->withAuthRetry<DeleteResult>(request);
}

void settleRefusedDelete(const WriteContext& context, const NodeRecord& record, std::int64_t journalId,
                         const Refusal& refusal) {
    if (const auto* forGood = std::get_if<RefusedForGood>(&refusal)) {
        context.store->inTransaction([&] {
            context.store->removePending(journalId);
            LocalMutations::markUploadError(*context.store, record.brainId, record.nodeId, forGood->message);
        });
    } else {
        context.resolver->bounceDelete(record.brainId, record.path, journalId);
    }
}

// Files that exist only here, conflict copies above all, may wait to go up: they would come back for
// everybody.
void withdrawLocalFiles(MetadataStore& store, const NodeRecord& deleted) {
    std::unordered_set<std::string> ids;
    for (const auto& node : store.subtree(deleted.brainId, deleted.path))
        if (node.localOnly) ids.insert(node.nodeId);
    if (ids.empty()) return;
    for (const auto& change : store.pendingChanges(deleted.brainId))
        if (change.id && carriesContent(change) && change.nodeId && ids.contains(*change.nodeId))
            store.removePending(*change.id);
}

Task<> deleteNode(CorePtr core, const WriteContext& context, const NodeRecord& record) {
    MetadataStore& store = *context.store;
    std::optional<std::int64_t> journalId;
    if (!record.localOnly) {
        journalId =
            LocalMutations::journalDelete(store, record.brainId, record.nodeId, record.path, now(*core));
        const auto sent = co_await attempt(sendDelete(core, context, record));
        if (sent.failure) {
            settleRefusedDelete(context, record, *journalId, refusalOf(sent.failure, notDeleted));
            co_return;
        }
    }
    store.inTransaction([&] {
        withdrawLocalFiles(store, record);
        LocalMutations::applyDelete(*core->system().random, store, record.brainId, record.path, journalId,
                                    now(*core));
    });
}

using DeleteReply = std::shared_ptr<Reply<DeleteHandler>>;

Task<> performDelete(CorePtr core, ItemIdentifier identifier, DeleteReply reply) {
    std::vector<ItemIdentifier> containers;
    const std::function<Task<>()> body = [&]() -> Task<> {
        const WriteContext context = makeWriteContext(*core);
        auto parent = existingParent(identifier, *context.store);
        if (parent) containers.push_back(*std::move(parent));
        const NodeRecord record = requireNode(identifier, *context.store);
        co_await deleteNode(core, context, record);
    };
    const std::exception_ptr failure = co_await runOwned(core, body);
    co_await announceWrite(core, std::move(containers));
    if (failure) {
        reply->fail(mapWriteError(failure));
    } else {
        reply->succeed(std::nullopt);
    }
}

}  // namespace

std::shared_ptr<Progress> deleteItem(const CorePtr& core, const ItemIdentifier& identifier,
                                     DeleteHandler handler) {
    return core->track([core, identifier, reply = makeReply(std::move(handler))] {
        return performDelete(core, identifier, reply);
    });
}

}  // namespace vorlinden::fileprovider
