// Finishes later what could not be finished at once: the rows of the journal go up, in the order in which
// they were made.
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

// Coroutines over shared objects; `resolver` stands on the same store and spool. The caller holds the
// execution lock for the whole of a call, else one row can be sent twice. No lock of the store is held across
// a request. Whatever is thrown, no bytes are lost: the row in flight, or the copy that took its place, still
// waits or is done, and the rows before it are done; a process that dies leaves no more than that either.
//
// Thrown is what ends a drain: SyncAPIError for a request that this device or user may not make at all (401,
// "FORBIDDEN"), TokenManagerError, CancelledError, failures of catalogue, spool and secrets, answers that
// don't decode, and FileError::noSuchFile() for a row that lacks what it needs.
namespace PendingEditUploader {

// What became of one row.
struct Result {
    // Given up for good. The row is gone, but for one that upload() can't take: `message` then says so. An
    // edit stays readable as a local-only file; the node shows why.
    struct Rejected {
        std::string message;
        bool operator==(const Rejected&) const = default;
    };
    // The server has the change, and the row is gone.
    struct Uploaded {
        bool operator==(const Uploaded&) const = default;
    };
    // This user may not write there. The row is gone, the tree shows the server's state, an edit lives on as
    // a conflict copy or a local-only file.
    struct Bounced {
        bool operator==(const Bounced&) const = default;
    };
    // A passing failure: the row and its bytes stay for the next drain.
    struct RetryLater {
        bool operator==(const RetryLater&) const = default;
    };
    std::variant<Rejected, Uploaded, Bounced, RetryLater> value;
    bool operator==(const Result&) const = default;

    static Result rejected(std::string message) { return {Rejected{std::move(message)}}; }
    static Result uploaded() { return {Uploaded{}}; }
    static Result bounced() { return {Bounced{}}; }
    static Result retryLater() { return {RetryLater{}}; }
};

// Tries every row that waits now, of one brain or of all, conflict copies among them, and gives one result
// for each row it tried. A failure that passes stops no other row, except those that touch the same item or a
// path at, above or below that of a row that still waits: they are held back without a result, so that older
// bytes never follow newer ones. A row of content whose bytes are lost is passed over; it holds nothing back.
Task<std::vector<Result>> drain(platform::System system, std::shared_ptr<ConflictResolver> resolver,
                                std::shared_ptr<MetadataStore> store, ConflictSpool spool,
                                std::string deviceId, std::shared_ptr<SyncAPIClient> api,
                                std::shared_ptr<TokenManager> tokenManager, std::optional<UUID> brainId);

// Tries one edit. Bytes that bounce become a conflict copy, which is tried at once; its outcome is not part
// of the result.
Task<Result> upload(platform::System system, std::int64_t journalId,
                    std::shared_ptr<ConflictResolver> resolver, std::shared_ptr<MetadataStore> store,
                    ConflictSpool spool, std::string deviceId, std::shared_ptr<SyncAPIClient> api,
                    std::shared_ptr<TokenManager> tokenManager, Timestamp now);

}  // namespace PendingEditUploader

}  // namespace vorlinden
