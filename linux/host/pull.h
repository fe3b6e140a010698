// Asking the server what has changed, and bringing the catalogue up to it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "linux/host/workspace.h"
#include "synckit/catalogue/records.h"

namespace vorlinden::host {

struct BrainPull {
    std::size_t answers = 0;
    std::size_t entries = 0;              // of the feed
    std::optional<std::size_t> snapshot;  // nodes of the snapshot that replaced the tree, if one did
    std::size_t copies = 0;               // conflict copies made of local work that lost
    // Why the snapshot was asked for, if the catalogue could not take what the server sent; for a person.
    std::optional<std::string> refusal;
};

// Fetches and stores which brains there are, and gives them as they now stand. One hold of the execution
// lock; signals the working set if the list changed.
Task<std::vector<BrainRecord>> pullGrants(WorkspaceRef workspace);

// Asks and applies until the server has nothing more, or long enough for others to have waited: gives whether
// the brain is current. A batch that the catalogue refuses twice is passed over by a snapshot. The caller
// holds the execution lock. Throws ChangesWithoutEnd when `done` counts more answers than any feed needs.
Task<bool> pullInHold(WorkspaceRef workspace, BrainRecord brain, BrainPull& done);

}  // namespace vorlinden::host
