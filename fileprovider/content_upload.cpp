#include "fileprovider/content_upload.h"

#include <utility>

#include "synckit/conflicts/change_rules.h"
#include "synckit/upload/conflict_copy_uploader.h"
#include "synckit/upload/local_mutations.h"

namespace vorlinden::fileprovider {

std::int64_t journalContent(const ExtensionCore& core, const WriteContext& context,
                            const UploadTarget& target, const Data& data) {
    return context.store->inTransaction([&] {
        const auto journalId = LocalMutations::journalUpsert(*context.store, target.brainId, target.path,
                                                             target.nodeId, !target.nodeId, now(core));
        context.spool.writeNewEdit(data, journalId);
        return journalId;
    });
}

void withdrawOlderContent(const WriteContext& context, const UploadTarget& target, std::int64_t journalId) {
    for (const auto& change : context.store->pendingChanges(target.brainId)) {
        if (!change.id || *change.id >= journalId || !carriesContent(change)) continue;
        const bool isOfTarget =
            target.nodeId ? change.nodeId == target.nodeId : !change.nodeId && change.path == target.path;
        if (isOfTarget) context.store->removePending(*change.id);
    }
}

Task<UploadedContent> sendContent(CorePtr core, ContentUploadPlan plan, UUID brainId, std::string path,
                                  const WriteContext& context) {
    return ContentUploader::send(std::move(plan), brainId, std::move(path), context.deviceId, core->api(),
                                 core->tokenManager());
}

Task<std::variant<NodeRecord, Refusal>> sendJournalled(CorePtr core, const WriteContext& context,
                                                       const UploadTarget& target, ContentUploadPlan plan,
                                                       std::int64_t journalId) {
    const auto sent =
        co_await attempt(sendContent(core, std::move(plan), target.brainId, target.path, context));
    if (sent.failure) co_return refusalOf(sent.failure, notUploaded);
    auto record = LocalMutations::applyUpload(*core->system().random, *context.store, target.brainId,
                                              sent.value->result, sent.value->kind, sent.value->blobHash,
                                              sent.value->blobSize, journalId, now(*core));
    context.spool.remove(ConflictSpool::editKey(journalId));
    co_return record;
}

Task<> tryToSendCopy(CorePtr core, const WriteContext& context, const ConflictCopy& copy) {
    if (copy.journalId == 0) co_return;  // too large to go up
    try {
        co_await ConflictCopyUploader::upload(core->system(), copy.journalId, context.resolver, context.store,
                                              context.spool, context.deviceId, core->api(),
                                              core->tokenManager(), now(*core));
    } catch (...) {
        // Row and bytes of the copy stay.
    }
}

}  // namespace vorlinden::fileprovider
