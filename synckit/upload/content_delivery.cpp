#include "synckit/upload/content_delivery.h"

#include "synckit/catalogue/metadata_store.h"
#include "synckit/upload/content_uploader.h"
#include "synckit/upload/local_mutations.h"

namespace vorlinden {

namespace {

// A local file that was moved while its row waited goes up to the path of the row, where another node takes
// its place. What still stands here must stay readable: its bytes go where they are kept for good.
void keepBytesOfMovedNode(const UploadContext& context, const PendingChange& change,
                          const std::string& spoolKey) {
    const auto node = change.nodeId ? context.store->nodeById(change.brainId, *change.nodeId) : std::nullopt;
    if (!node || !node->localOnly) return;
    if (const auto bytes = context.spool.read(spoolKey))
        context.spool.write(*bytes, ConflictSpool::nodeKey(node->nodeId));
}

}  // namespace

Task<std::optional<ServerFailure>> deliverContent(const UploadContext& context, const PendingChange& change,
                                                  ContentUploadPlan plan, const std::string& spoolKey,
                                                  Timestamp now) {
    const auto attempt = co_await attempted(ContentUploader::send(
        std::move(plan), change.brainId, change.path, context.deviceId, context.api, context.tokenManager));
    if (const auto* failure = std::get_if<ServerFailure>(&attempt)) co_return *failure;
    co_await platform::checkCancellation();
    const auto& sent = std::get<UploadedContent>(attempt);
    context.store->inTransaction([&] {
        LocalMutations::applyUpload(*context.system.random, *context.store, change.brainId, sent.result,
                                    sent.kind, sent.blobHash, sent.blobSize, change.id, now);
        keepBytesOfMovedNode(context, change, spoolKey);
    });
    context.spool.remove(spoolKey);
    co_return std::nullopt;
}

}  // namespace vorlinden
