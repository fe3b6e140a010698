// How an answer to "what has changed?" meets what waits on this machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "linux/host/workspace.h"
#include "synckit/catalogue/records.h"
#include "synckit/server/wire_model.h"

namespace vorlinden {
class ConflictResolver;
}

namespace vorlinden::host {

// The resolver of this device: its name stands in the names of conflict copies, and the local bytes lie in
// the spool.
std::shared_ptr<ConflictResolver> makeResolver(const Workspace& workspace);

// A waiting edit that the server holds already: its answer was lost, and the feed now tells of it.
struct OwnEcho {
    std::int64_t row = 0;
    std::string cursor;  // of the entry that tells of it: what the edit is based on from now on
    bool operator==(const OwnEcho&) const = default;
};

// The waiting edits among those that a batch collides with whose bytes the server holds at the batch's end.
// An edit that was made on top of such a one counts too. Asks the server for each path concerned; a path that
// it doesn't give holds no echo. Throws what a request throws when nobody could say.
Task<std::vector<OwnEcho>> ownEchoes(WorkspaceRef workspace, UUID brainId, ChangesResponse::Incremental feed);

struct Applied {
    bool reset = false;      // a snapshot took the place of the brain's tree
    std::size_t items = 0;   // entries of the feed, or nodes of the snapshot
    std::size_t copies = 0;  // conflict copies made of local work that lost
};

// Applies one answer to the catalogue, in one transaction, and with it decides every collision with local
// work. The caller holds the execution lock. What the result says of downloads needs nothing more: the raised
// version and the signal make the daemon fetch.
Applied applyChanges(const Workspace& workspace, const BrainRecord& brain, const ChangesResponse& response,
                     const std::vector<OwnEcho>& echoes);

}  // namespace vorlinden::host
