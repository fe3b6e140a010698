#include "synckit/upload/pending_edit_uploader.h"

#include "synckit/catalogue/metadata_store.h"
#include "synckit/conflicts/change_rules.h"
#include "synckit/conflicts/conflict_resolver.h"
#include "synckit/upload/conflict_copy_uploader.h"
#include "synckit/upload/content_delivery.h"
#include "synckit/upload/local_mutations.h"
#include "synckit/upload/structural_replay.h"
#include "synckit/upload/waiting_changes.h"

namespace vorlinden::PendingEditUploader {

namespace {

const std::string tooLargeMessage = "File is too large to sync (limit 100 MB)";

std::optional<NodeRecord> nodeOf(const PendingChange& change, MetadataStore& store) {
    if (change.nodeId)
        if (auto node = store.nodeById(change.brainId, *change.nodeId)) return node;
    return store.nodeByPath(change.brainId, change.path);
}

// The node that keeps the bytes of a refused edit, showing why: a new file's is made for it.
std::optional<NodeRecord> markRejected(const UploadContext& context, const PendingChange& change,
                                       const std::string& message, Timestamp now) {
    auto& store = *context.store;
    if (change.changeKind == PendingChangeKind::create)
        return LocalMutations::applyLocalOnly(*context.system.random, store, change.brainId, change.path,
                                              message, now);
    auto node = nodeOf(change, store);
    if (!node) return std::nullopt;
    node->localOnly = true;
    node->uploadError = message;
    store.upsert(*node);
    store.appendChange(node->identifier(), false);
    return node;
}

void parkRejectedEdit(const UploadContext& context, const PendingChange& change, const std::string& message,
                      const Data& data, Timestamp now) {
    context.store->inTransaction([&] {
        context.store->removePending(*change.id);
        const auto node = markRejected(context, change, message, now);
        if (!node) throw FileError::noSuchFile();
        context.spool.write(data, ConflictSpool::nodeKey(node->nodeId));
    });
}

Task<ConflictCopyUploader::Result> sendCopy(const UploadContext& context, std::int64_t journalId,
                                            Timestamp now) {
    return ConflictCopyUploader::upload(context.system, journalId, context.resolver, context.store,
                                        context.spool, context.deviceId, context.api, context.tokenManager,
                                        now);
}

Result asEditResult(const ConflictCopyUploader::Result& result) {
    using Copy = ConflictCopyUploader::Result;
    if (const auto* rejected = std::get_if<Copy::Rejected>(&result.value))
        return Result::rejected(rejected->message);
    if (std::holds_alternative<Copy::Uploaded>(result.value)) return Result::uploaded();
    if (std::holds_alternative<Copy::NoWriteAccess>(result.value)) return Result::bounced();
    return Result::retryLater();
}

Task<Result> bounce(const UploadContext& context, const PendingChange& change, const Data& data,
                    Timestamp now) {
    const auto bounced = context.store->inTransaction([&] {
        if (change.changeKind == PendingChangeKind::create)
            return context.resolver->bounceCreate(change.brainId, change.path, change.id, data);
        return context.resolver->bounceUpsert(change.brainId, change.path, change.id, data);
    });
    if (bounced.copy.journalId != 0) co_await sendCopy(context, bounced.copy.journalId, now);
    co_return Result::bounced();
}

Task<Result> settle(const UploadContext& context, const PendingChange& change, const Data& data,
                    const ServerFailure& failure, Timestamp now) {
    const auto setback = sorted(failure);
    switch (setback.kind) {
        case Setback::Kind::bounced:
            co_return co_await bounce(context, change, data, now);
        case Setback::Kind::givenUp:
            parkRejectedEdit(context, change, "Not uploaded: " + setback.message, data, now);
            co_return Result::rejected(setback.message);
        case Setback::Kind::retryLater:
            break;
    }
    co_return Result::retryLater();
}

// Whether the user is known not to be able to write there, so that the server needn't be asked.
bool isReadOnlyHere(const PendingChange& change, MetadataStore& store) {
    const auto node = nodeOf(change, store);
    return node && node->localOnly && node->uploadError == ConflictResolver::noWriteAccessMessage;
}

Task<Result> sendEdit(const UploadContext& context, const PendingChange& change, Timestamp now) {
    const auto key = ConflictSpool::editKey(*change.id);
    const auto data = context.spool.read(key);
    if (!data) throw FileError::noSuchFile();
    if (isReadOnlyHere(change, *context.store)) {
        parkRejectedEdit(context, change, std::string(ConflictResolver::noWriteAccessMessage), *data, now);
        co_return Result::bounced();
    }
    auto plan = UploadPlanner::planContentUpload(*data);
    if (std::holds_alternative<ContentUploadPlan::TooLarge>(plan.value)) {
        parkRejectedEdit(context, change, tooLargeMessage, *data, now);
        co_return Result::rejected(tooLargeMessage);
    }
    const auto failure = co_await deliverContent(context, change, std::move(plan), key, now);
    if (failure) co_return co_await settle(context, change, *data, *failure, now);
    co_return Result::uploaded();
}

Task<Result> uploadEdit(const UploadContext& context, std::int64_t journalId, Timestamp now) {
    co_await platform::checkCancellation();
    const auto change = context.store->pendingChange(journalId);
    if (!change) co_return Result::rejected("The queued edit no longer exists.");
    if (!carriesContent(*change)) co_return Result::rejected("The queued change is not a file edit.");
    co_return co_await sendEdit(context, *change, now);
}

enum class Road { structure, copy, edit, none };

Road roadOf(const PendingChange& change, const ConflictSpool& spool) {
    if (!carriesContent(change)) return Road::structure;
    if (spool.exists(ConflictSpool::copyKey(*change.id))) return Road::copy;
    if (spool.exists(ConflictSpool::editKey(*change.id))) return Road::edit;
    return Road::none;
}

Task<Result> sendBy(Road road, const UploadContext& context, const PendingChange& change) {
    if (road == Road::structure) co_return co_await replayStructuralChange(context, change);
    const auto now = context.system.clock->now();
    if (road == Road::edit) co_return co_await uploadEdit(context, *change.id, now);
    const auto result = co_await sendCopy(context, *change.id, now);
    co_return asEditResult(result);
}

}  // namespace

Task<std::vector<Result>> drain(platform::System system, std::shared_ptr<ConflictResolver> resolver,
                                std::shared_ptr<MetadataStore> store, ConflictSpool spool,
                                std::string deviceId, std::shared_ptr<SyncAPIClient> api,
                                std::shared_ptr<TokenManager> tokenManager, std::optional<UUID> brainId) {
    co_await platform::checkCancellation();
    const UploadContext context{system, resolver, store, spool, deviceId, api, tokenManager};
    const auto journal = store->pendingChanges(brainId);
    std::vector<Result> results;
    WaitingChanges waiting;
    for (const auto& listed : journal) {
        const auto change = listed.id ? store->pendingChange(*listed.id) : std::nullopt;
        if (!change) continue;  // an earlier step took it
        const auto road = roadOf(*change, spool);
        if (road == Road::none) continue;
        if (!waiting.holdBack(*change)) {
            auto result = co_await sendBy(road, context, *change);
            results.push_back(std::move(result));
        }
        if (const auto left = store->pendingChange(*change->id)) waiting.add(*left);
    }
    co_return results;
}

Task<Result> upload(platform::System system, std::int64_t journalId,
                    std::shared_ptr<ConflictResolver> resolver, std::shared_ptr<MetadataStore> store,
                    ConflictSpool spool, std::string deviceId, std::shared_ptr<SyncAPIClient> api,
                    std::shared_ptr<TokenManager> tokenManager, Timestamp now) {
    const UploadContext context{system, resolver, store, spool, deviceId, api, tokenManager};
    co_return co_await uploadEdit(context, journalId, now);
}

}  // namespace vorlinden::PendingEditUploader
