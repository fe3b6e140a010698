#include "synckit/upload/conflict_copy_uploader.h"

#include "synckit/apply/tree_rules.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/conflicts/conflict_resolver.h"
#include "synckit/upload/content_delivery.h"

namespace vorlinden::ConflictCopyUploader {

namespace {

constexpr std::string_view notUploaded = "Not uploaded: ";

// The copy stays on this machine: its bytes move to where they are kept for good, and it shows why.
void parkRejectedCopy(const UploadContext& context, const PendingChange& change, const std::string& message) {
    context.store->inTransaction([&] {
        context.store->removePending(*change.id);
        auto node = change.nodeId ? context.store->nodeById(change.brainId, *change.nodeId) : std::nullopt;
        const auto bytes = context.spool.read(ConflictSpool::copyKey(*change.id));
        if (!node || !bytes) throw FileError::noSuchFile();
        context.spool.write(*bytes, ConflictSpool::nodeKey(node->nodeId));
        node->localOnly = true;
        node->uploadError = message;
        context.store->upsert(*node);
        context.store->appendChange(node->identifier(), false);
    });
}

void bounce(const UploadContext& context, const PendingChange& change) {
    auto nodeId = change.nodeId;
    if (!nodeId)
        if (const auto node = context.store->nodeByPath(change.brainId, change.path)) nodeId = node->nodeId;
    context.resolver->copyUploadBounced(change.brainId, nodeId.value_or(""), change.path, *change.id);
}

Result settle(const UploadContext& context, const PendingChange& change, const ServerFailure& failure) {
    const auto setback = sorted(failure);
    switch (setback.kind) {
        case Setback::Kind::bounced:
            bounce(context, change);
            return Result::noWriteAccess();
        case Setback::Kind::givenUp:
            parkRejectedCopy(context, change, std::string(notUploaded) + setback.message);
            return Result::rejected(setback.message);
        case Setback::Kind::retryLater:
            break;
    }
    return Result::retryLater();
}

Task<Result> uploadCopy(const UploadContext& context, std::int64_t journalId, Timestamp now) {
    co_await platform::checkCancellation();
    const auto change = context.store->pendingChange(journalId);
    if (!change) co_return Result::rejected("The queued copy no longer exists.");
    const auto key = ConflictSpool::copyKey(journalId);
    const auto data = context.spool.read(key);
    if (!data) throw FileError::noSuchFile();
    auto plan = UploadPlanner::planContentUpload(*data);
    if (const auto* tooLarge = std::get_if<ContentUploadPlan::TooLarge>(&plan.value)) {
        const auto message =
            std::string(notUploaded) + UploadPlanError::tooLarge(tooLarge->size).errorDescription();
        parkRejectedCopy(context, *change, message);
        co_return Result::rejected(message);
    }
    const auto failure = co_await deliverContent(context, *change, std::move(plan), key, now);
    if (failure) co_return settle(context, *change, *failure);
    co_return Result::uploaded();
}

bool isCopy(const PendingChange& change, const ConflictSpool& spool) {
    return change.id && change.changeKind == PendingChangeKind::create && change.nodeId &&
           isLocalId(*change.nodeId) && spool.exists(ConflictSpool::copyKey(*change.id));
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
    for (const auto& change : journal)
        if (isCopy(change, spool))
            results.push_back(co_await uploadCopy(context, *change.id, system.clock->now()));
    co_return results;
}

Task<Result> upload(platform::System system, std::int64_t journalId,
                    std::shared_ptr<ConflictResolver> resolver, std::shared_ptr<MetadataStore> store,
                    ConflictSpool spool, std::string deviceId, std::shared_ptr<SyncAPIClient> api,
                    std::shared_ptr<TokenManager> tokenManager, Timestamp now) {
    const UploadContext context{system, resolver, store, spool, deviceId, api, tokenManager};
    co_return co_await uploadCopy(context, journalId, now);
}

}  // namespace vorlinden::ConflictCopyUploader
