#include "fileprovider/item_content.h"

#include <algorithm>
#include <utility>

#include "fileprovider/content_upload.h"
#include "synckit/upload/local_mutations.h"

namespace vorlinden::fileprovider {

namespace {

UploadTarget targetOf(const NodeRecord& record) {
    return {record.brainId, record.path, record.nodeId};
}

void replace(MetadataStore& store, const NodeRecord& record) {
    store.upsert(record);
    store.appendChange(record.identifier(), false);
}

// Where the bytes of a local-only file are looked for: behind its newest row in the journal, if there is one.
void keepLocalBytes(const ExtensionCore& core, const WriteContext& context, const NodeRecord& record,
                    const Data& data) {
    context.store->inTransaction([&] {
        const auto journal = context.store->pendingChanges(record.brainId);
        const bool waits = std::ranges::any_of(
            journal, [&](const PendingChange& change) { return change.nodeId == record.nodeId; });
        if (waits) {
            journalContent(core, context, targetOf(record), data);
        } else {
            context.spool.write(data, ConflictSpool::nodeKey(record.nodeId));
        }
    });
}

NodeRecord editLocally(const ExtensionCore& core, const WriteContext& context, const NodeRecord& record,
                       const HandedContent& content) {
    const auto data = content.isPresent() ? std::optional(content.bytes()) : std::nullopt;
    NodeRecord edited = record;
    edited.contentVersion += 1;
    edited.updatedAt = now(core);
    context.store->inTransaction([&] {
        if (data) keepLocalBytes(core, context, record, *data);
        replace(*context.store, edited);
    });
    return edited;
}

// The file itself goes back to what the server has.
Task<ContentEdit> leaveToCopy(CorePtr core, const WriteContext& context, const NodeRecord& record,
                              const BounceResult& bounced) {
    co_await tryToSendCopy(core, context, bounced.copy);
    co_return ContentEdit{reloadNode(*context.store, record, record.path), true};
}

// From now on the node is local-only: its bytes lie under its own key, and further edits stay here.
void keepHere(const WriteContext& context, const NodeRecord& record, const std::string& message,
              const Data& data, std::int64_t journalId) {
    context.store->inTransaction([&] {
        context.spool.write(data, ConflictSpool::nodeKey(record.nodeId));
        NodeRecord kept = record;
        kept.localOnly = true;
        kept.uploadError = message;
        replace(*context.store, kept);
        context.store->removePending(journalId);
        withdrawOlderContent(context, targetOf(record), journalId);
    });
}

Task<ContentEdit> uploadEdit(CorePtr core, const WriteContext& context, const NodeRecord& record,
                             const HandedContent& content) {
    auto plan = content.plan();
    if (std::holds_alternative<ContentUploadPlan::TooLarge>(plan.value)) {
        LocalMutations::markUploadError(*context.store, record.brainId, record.nodeId,
                                        std::string(tooLargeMessage));
        co_return ContentEdit{reloadNode(*context.store, record, record.path), false};
    }
    const auto target = targetOf(record);
    const Data data = content.bytes();
    const auto journalId = journalContent(*core, context, target, data);
    auto outcome = co_await sendJournalled(core, context, target, std::move(plan), journalId);
    if (auto* uploaded = std::get_if<NodeRecord>(&outcome))
        co_return ContentEdit{std::move(*uploaded), false};
    if (const auto* forGood = std::get_if<RefusedForGood>(&std::get<Refusal>(outcome))) {
        keepHere(context, record, forGood->message, data, journalId);
        co_return ContentEdit{reloadNode(*context.store, record, record.path), false};
    }
    const auto bounced = context.resolver->bounceUpsert(record.brainId, record.path, journalId, data);
    co_return co_await leaveToCopy(core, context, record, bounced);
}

}  // namespace

NodeRecord reloadNode(MetadataStore& store, const NodeRecord& record, const std::string& path) {
    if (auto same = store.nodeById(record.brainId, record.nodeId)) return *std::move(same);
    if (auto there = store.nodeByPath(record.brainId, path)) return *std::move(there);
    throw providerError(platform::fileprovider::noSuchItem);
}

Task<ContentEdit> applyContentEdit(CorePtr core, const WriteContext& context, const NodeRecord& record,
                                   std::optional<std::int64_t> baseVersion, const HandedContent& content) {
    if (record.localOnly) co_return ContentEdit{editLocally(*core, context, record, content), false};
    if (baseVersion && record.contentVersion > *baseVersion) {
        const auto diverted =
            context.resolver->divertStaleEdit(record.brainId, record.path, std::nullopt, content.bytes());
        co_return co_await leaveToCopy(core, context, record, diverted);
    }
    co_return co_await uploadEdit(core, context, record, content);
}

}  // namespace vorlinden::fileprovider
