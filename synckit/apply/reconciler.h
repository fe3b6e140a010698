// Applies the server's feed to the catalogue of one brain.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/seams.h"
#include "synckit/apply/download_request.h"
#include "synckit/catalogue/records.h"
#include "synckit/server/wire_model.h"
#include "synckit/types.h"

namespace vorlinden {

class MetadataStore;

// What becomes of a pending local change that a remote one touches.
enum class ConflictResolution {
    remoteWins,  // the op is applied
    keepLocal,   // the batch fails and is fetched again later
};

// Decides one collision. Runs on the caller's thread inside the batch's transaction, may use the store
// freely, and ends the batch by throwing.
using ConflictHandler =
    std::function<ConflictResolution(const FeedEntry& entry, const Op& op, const PendingChange& pending)>;

struct ReconcileResult {
    std::vector<DownloadRequest> downloads;  // in the order of first need, each node once
    bool changedAnchors = false;             // whether an op of the batch changed the tree
    bool operator==(const ReconcileResult&) const = default;
};

namespace Reconciler {

// One batch as one atomic step, under the store's lock: each op is tested against the journal as it stood at
// the start, collisions go to the handler, then the op changes the tree; the cursor moves last, always (an
// absent one is stored as such). Throws what store and handler throw, MetadataStoreError::unknownBrain if the
// brain has no row, FileError::noSuchFile() after a `keepLocal`; the catalogue is then as it was. Retrying
// means calling again with a fresh fetch.
ReconcileResult applyFeedEntries(platform::Random& random, const std::vector<FeedEntry>& entries,
                                 const UUID& brainId, const std::optional<std::string>& responseCursor,
                                 MetadataStore& store, const ConflictHandler& conflictHandler);

}  // namespace Reconciler

}  // namespace vorlinden
