#include "synckit/upload/structural_replay.h"

#include "synckit/auth/token_manager.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/conflicts/conflict_namer.h"
#include "synckit/conflicts/conflict_resolver.h"
#include "synckit/server/sync_api_client.h"
#include "synckit/upload/local_mutations.h"
#include "synckit/upload/server_failure.h"

namespace vorlinden {

namespace {

using PendingEditUploader::Result;

void bounce(const UploadContext& context, const PendingChange& change) {
    context.store->inTransaction([&] {
        if (change.fromPath) {
            context.resolver->bounceMove(change.brainId, *change.fromPath, change.path, change.id);
        } else {
            context.resolver->bounceDelete(change.brainId, change.path, change.id);
        }
    });
}

void giveUp(const UploadContext& context, const PendingChange& change, const std::string& message) {
    const std::string prefix = change.changeKind == PendingChangeKind::move ? "Not moved: " : "Not deleted: ";
    context.store->inTransaction([&] {
        context.store->removePending(*change.id);
        if (!change.nodeId) return;
        LocalMutations::markUploadError(*context.store, change.brainId, *change.nodeId, prefix + message);
    });
}

Result settle(const UploadContext& context, const PendingChange& change, const ServerFailure& failure) {
    const auto setback = sorted(failure);
    switch (setback.kind) {
        case Setback::Kind::bounced:
            bounce(context, change);
            return Result::bounced();
        case Setback::Kind::givenUp:
            giveUp(context, change, setback.message);
            return Result::rejected(setback.message);
        case Setback::Kind::retryLater:
            break;
    }
    return Result::retryLater();
}

Result replayMakeFolder(const UploadContext& context, const PendingChange& change, Timestamp now) {
    context.store->inTransaction([&] {
        LocalMutations::applyLocalDirectory(*context.system.random, *context.store, change.brainId,
                                            change.path, now);
        context.store->removePending(*change.id);
    });
    return Result::uploaded();
}

Task<DeleteResult> deleteOnServer(const UploadContext& context, const PendingChange& change) {
    const std::function<Task<DeleteResult>()> request = [&] {
        return context.api->deleteFile(change.brainId.lowerText(), context.deviceId, change.path);
    };
    co_return co_await context.tokenManager->withAuthRetry<DeleteResult>(request);
}

Task<Result> replayDelete(const UploadContext& context, const PendingChange& change, Timestamp now) {
    const auto attempt = co_await attempted(deleteOnServer(context, change));
    if (const auto* failure = std::get_if<ServerFailure>(&attempt))
        co_return settle(context, change, *failure);
    co_await platform::checkCancellation();
    LocalMutations::applyDelete(*context.system.random, *context.store, change.brainId, change.path,
                                change.id, now);
    co_return Result::uploaded();
}

Task<WriteResult> moveOnServer(const UploadContext& context, const PendingChange& change) {
    const std::function<Task<WriteResult>()> request = [&] {
        return context.api->move(change.brainId.lowerText(), context.deviceId, *change.fromPath, change.path);
    };
    co_return co_await context.tokenManager->withAuthRetry<WriteResult>(request);
}

// The server's refusal, if it is one; null of an answer and of a lost connection.
const SyncAPIError* refusal(const Attempt<WriteResult>& attempt) {
    const auto* failure = std::get_if<ServerFailure>(&attempt);
    return failure ? std::get_if<SyncAPIError>(failure) : nullptr;
}

// What is no longer where it was has been moved before: most likely by this very row, whose answer was lost.
bool isMoved(const Attempt<WriteResult>& attempt) {
    if (std::holds_alternative<WriteResult>(attempt)) return true;
    const auto* error = refusal(attempt);
    return error && (error->status == 404 || error->isNotFound());
}

// A name for what can't have the one it was meant to have.
std::string nameBeside(const UploadContext& context, const PendingChange& change, Timestamp now) {
    CanonicalPathSet existingPaths;
    for (const auto& node : context.store->allNodes(change.brainId))
        existingPaths.insert(node.path);
    const auto deviceName = context.store->meta(MetaKey::deviceName).value_or(context.system.deviceName);
    return ConflictNamer::conflictCopyPath(change.path, deviceName, now, existingPaths);
}

// The catalogue takes the paths of the row, whatever the server answers: what it made of them comes with the
// feed. The new name is written down before it is tried, so that a second drain asks for the same.
Task<Result> replayMove(const UploadContext& context, PendingChange change, Timestamp now) {
    if (!change.fromPath) throw FileError::noSuchFile();
    auto attempt = co_await attempted(moveOnServer(context, change));
    const auto* error = refusal(attempt);
    if (!isMoved(attempt) && error && error->isConflict()) {
        change.path = nameBeside(context, change, now);
        context.store->redirectPendingMove(*change.id, change.path);
        attempt = co_await attempted(moveOnServer(context, change));
    }
    if (!isMoved(attempt)) co_return settle(context, change, std::get<ServerFailure>(attempt));
    co_await platform::checkCancellation();
    LocalMutations::applyMove(*context.system.random, *context.store, change.brainId, *change.fromPath,
                              change.path, change.id, now);
    co_return Result::uploaded();
}

}  // namespace

Task<Result> replayStructuralChange(const UploadContext& context, PendingChange change) {
    const auto now = context.system.clock->now();
    if (change.changeKind == PendingChangeKind::mkdir) co_return replayMakeFolder(context, change, now);
    if (change.changeKind == PendingChangeKind::move)
        co_return co_await replayMove(context, std::move(change), now);
    co_return co_await replayDelete(context, change, now);
}

}  // namespace vorlinden
