// Carries conflict copies, the local bytes that lost, to the server.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/system.h"
#include "synckit/conflicts/conflict_spool.h"
#include "synckit/types.h"

namespace vorlinden {

class ConflictResolver;
class MetadataStore;
class SyncAPIClient;
class TokenManager;

// What holds of PendingEditUploader (coroutines, the execution lock, what is thrown and what that leaves)
// holds here.
namespace ConflictCopyUploader {

// What became of one copy.
struct Result {
    // Given up for good; the copy stays as a local-only file that shows why. Of a row that is missing
    // already, `message` says so.
    struct Rejected {
        std::string message;
        bool operator==(const Rejected&) const = default;
    };
    // The server has the copy, and the row is gone: an ordinary file from here on.
    struct Uploaded {
        bool operator==(const Uploaded&) const = default;
    };
    // The folder is read-only for this user: the row is gone, the copy stays on this machine.
    struct NoWriteAccess {
        bool operator==(const NoWriteAccess&) const = default;
    };
    // A passing failure: the row and its bytes stay.
    struct RetryLater {
        bool operator==(const RetryLater&) const = default;
    };
    std::variant<Rejected, Uploaded, NoWriteAccess, RetryLater> value;
    bool operator==(const Result&) const = default;

    static Result rejected(std::string message) { return {Rejected{std::move(message)}}; }
    static Result uploaded() { return {Uploaded{}}; }
    static Result noWriteAccess() { return {NoWriteAccess{}}; }
    static Result retryLater() { return {RetryLater{}}; }
};

// Tries every copy that waits now, of one brain or of all, in journal order, and gives one result for each.
// Other rows are passed over, so a host that sends everything uses PendingEditUploader::drain() instead.
Task<std::vector<Result>> drain(platform::System system, std::shared_ptr<ConflictResolver> resolver,
                                std::shared_ptr<MetadataStore> store, ConflictSpool spool,
                                std::string deviceId, std::shared_ptr<SyncAPIClient> api,
                                std::shared_ptr<TokenManager> tokenManager, std::optional<UUID> brainId);

// Tries one copy; called at once after a bounce has made it.
Task<Result> upload(platform::System system, std::int64_t journalId,
                    std::shared_ptr<ConflictResolver> resolver, std::shared_ptr<MetadataStore> store,
                    ConflictSpool spool, std::string deviceId, std::shared_ptr<SyncAPIClient> api,
                    std::shared_ptr<TokenManager> tokenManager, Timestamp now);

}  // namespace ConflictCopyUploader

}  // namespace vorlinden
