#include "synckit/upload/content_delivery.h"

#include "synckit/catalogue/metadata_store.h"
#include "synckit/upload/content_uploader.h"
#include "synckit/upload/local_mutations.h"

namespace vorlinden {

Task<std::optional<ServerFailure>> deliverContent(const UploadContext& context, const PendingChange& change,
                                                  ContentUploadPlan plan, const std::string& spoolKey,
                                                  Timestamp now) {
    const auto attempt = co_await attempted(ContentUploader::send(
        std::move(plan), change.brainId, change.path, context.deviceId, context.api, context.tokenManager));
    if (const auto* failure = std::get_if<ServerFailure>(&attempt)) co_return *failure;
    co_await platform::checkCancellation();
    const auto& sent = std::get<UploadedContent>(attempt);
    LocalMutations::applyUpload(*context.system.random, *context.store, change.brainId, sent.result,
                                sent.kind, sent.blobHash, sent.blobSize, change.id, now);
    context.spool.remove(spoolKey);
    co_return std::nullopt;
}

}  // namespace vorlinden
