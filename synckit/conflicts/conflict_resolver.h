// What becomes of a local change that lost: the server's state stands in the catalogue, and the local bytes
// survive beside it as a conflict copy, journalled as a new local file.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/seams.h"
#include "synckit/apply/reconciler.h"
#include "synckit/apply/reset_planner.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/conflicts/canonical_path_set.h"
#include "synckit/conflicts/conflict_event.h"
#include "synckit/conflicts/conflict_spool.h"

namespace vorlinden {

struct ConflictCopy {
    UUID brainId;
    std::string originalPath;  // of the file that lost
    std::string copyPath;
    std::string nodeId;          // of the copy, "local:" + UUID
    std::int64_t journalId = 0;  // of the copy's row in the journal; 0 if it is too large to go up
    bool operator==(const ConflictCopy&) const = default;
};

// Why a copy is made: selects the event's kind and sentence.
enum class ConflictCopyReason { remoteEdit, resetConflict, readOnly, staleEdit };

// What applyReset() did. A journal row that became a copy is in none of the lists of rows; all are in the
// order of the journal.
struct ResetReconciliation {
    ResetPlan plan;
    std::vector<ConflictCopy> copies;
    std::vector<PendingChange> requeued;    // rows that stay, with their new base
    std::vector<PendingChange> dropped;     // rows that went without a copy, as they stood
    std::vector<PendingChange> unresolved;  // always empty
    bool operator==(const ResetReconciliation&) const = default;
};

struct BounceResult {
    std::optional<NodeRecord> record;  // the node now at the bounced path
    ConflictCopy copy;
    bool operator==(const BounceResult&) const = default;
};

// Shared between threads, always by std::shared_ptr (conflictHandler() keeps it alive). Every operation is
// synchronous on the caller's thread, runs in one transaction of the store (or joins the caller's), and
// throws what store, spool and `localContent` throw; the catalogue is then as it was, while a spool file
// already written stays for the next sweep.
class ConflictResolver : public std::enable_shared_from_this<ConflictResolver> {
 public:
    using Now = std::function<Timestamp()>;
    // The local bytes of a journal row (the node's row is handed over where there is one); absent means that
    // they can't be had now.
    using LocalContent =
        std::function<std::optional<Data>(const PendingChange&, const std::optional<NodeRecord>&)>;

    // What an item shows whose folder is read-only for this user.
    static constexpr std::string_view noWriteAccessMessage = "No write access";

    ConflictResolver(std::shared_ptr<platform::Random> random, std::shared_ptr<MetadataStore> store,
                     std::string deviceName, ConflictSpool spool, Now now, LocalContent localContent);

    // Every copy that this object made, in order.
    std::vector<ConflictCopy> copies() const;

    // handle() as the function that Reconciler::applyFeedEntries() takes.
    ConflictHandler conflictHandler();
    // Settles one collision of a feed batch. Always answers `remoteWins`; FileError::noSuchFile() if the
    // bytes of an edit can't be had, so that the batch waits for them.
    ConflictResolution handle(const FeedEntry& entry, const Op& op, const PendingChange& pending);

    // The pending changes that at least one op collides with, in their own order. Changes nothing.
    static std::vector<PendingChange> collidingPending(const std::vector<FeedEntry>& entries,
                                                       const std::vector<PendingChange>& pending);

    // Judges every waiting change of the brain against the snapshot, then replaces the tree. A change that
    // still stands is based anew; an edit that was overtaken becomes a copy; everything else is dropped.
    ResetReconciliation applyReset(const std::vector<SnapshotNode>& snapshot, const UUID& brainId,
                                   const std::optional<std::string>& responseCursor);

    // The server refused an edit of a file that is there, or a new file.
    BounceResult bounceUpsert(const UUID& brainId, const std::string& path,
                              std::optional<std::int64_t> journalId, const Data& data);
    BounceResult bounceCreate(const UUID& brainId, const std::string& path,
                              std::optional<std::int64_t> journalId, const Data& data);
    // The edit was made on a version that is no longer current.
    BounceResult divertStaleEdit(const UUID& brainId, const std::string& path,
                                 std::optional<std::int64_t> journalId, const Data& data);
    void bounceMove(const UUID& brainId, const std::string& fromPath, const std::string& toPath,
                    std::optional<std::int64_t> journalId);
    void bounceDelete(const UUID& brainId, const std::string& path, std::optional<std::int64_t> journalId);
    // The upload of a copy was refused: it becomes a local-only file for good. FileError::noSuchFile() if its
    // bytes are gone; the journal row then stays.
    void copyUploadBounced(const UUID& brainId, const std::string& nodeId, const std::string& copyPath,
                           std::int64_t journalId);

 private:
    class Reset;

    // Inside the caller's transaction. Paths that `reserved` holds are not given to the copy, besides those
    // that the catalogue shows as taken.
    ConflictCopy makeConflictCopy(const UUID& brainId, const std::string& path, const Data& data,
                                  ConflictCopyReason reason, const CanonicalPathSet& reserved = {});
    void spoolCopy(const Data& data, std::int64_t journalId);
    std::string safeDeviceName() const;
    BounceResult keepAsCopy(const UUID& brainId, const std::string& path,
                            std::optional<std::int64_t> journalId, const Data& data,
                            ConflictCopyReason reason);
    void announceAgain(const UUID& brainId, const std::string& path);
    void putBack(const UUID& brainId, const std::string& fromPath, const std::string& toPath);
    void tell(ConflictEvent event);

    const std::shared_ptr<platform::Random> random_;
    const std::shared_ptr<MetadataStore> store_;
    const std::string deviceName_;
    const ConflictSpool spool_;
    const Now now_;
    const LocalContent localContent_;

    // The copies' spool keys that the running transaction has still to flush; gone with it. Guarded by the
    // store's lock.
    std::weak_ptr<std::vector<std::string>> unflushed_;

    mutable std::mutex stateLock_;  // innermost; guards createdCopies_, held across no other call
    std::vector<ConflictCopy> createdCopies_;
};

}  // namespace vorlinden
