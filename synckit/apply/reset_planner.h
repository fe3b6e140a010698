// Makes the catalogue of one brain equal to a full snapshot.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "synckit/apply/download_request.h"
#include "synckit/catalogue/item_identifier.h"
#include "synckit/server/wire_model.h"
#include "synckit/types.h"

namespace vorlinden {

class MetadataStore;

struct ResetPlan {
    std::vector<DownloadRequest> downloads;              // by path
    std::vector<SyncItemIdentifier> deletedIdentifiers;  // in the order of removal, rows by path
    bool isEmpty() const { return downloads.empty() && deletedIdentifiers.empty(); }
    bool operator==(const ResetPlan&) const = default;
};

namespace ResetPlanner {

// One transaction under the store's lock. Nodes are matched by the server's identifiers, so a changed path is
// a move. Local-only rows stay unless the snapshot claims their very path. An absent cursor empties the
// brain, whatever the snapshot holds. The journal is not looked at: with pending changes about,
// ConflictResolver::applyReset() is the one to call. Throws what the store throws
// (MetadataStoreError::unknownBrain if the brain has no row); the catalogue is then as it was.
ResetPlan applySnapshot(const std::vector<SnapshotNode>& snapshot, const UUID& brainId,
                        const std::optional<std::string>& responseCursor, MetadataStore& store);

}  // namespace ResetPlanner

}  // namespace vorlinden
