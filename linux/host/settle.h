// How an answer to "what has changed?" meets what waits on this machine.
#pragma once

#include <cstddef>

#include "linux/host/workspace.h"
#include "synckit/catalogue/records.h"
#include "synckit/server/wire_model.h"

namespace vorlinden::host {

struct Applied {
    bool reset = false;      // a snapshot took the place of the brain's tree
    std::size_t items = 0;   // entries of the feed, or nodes of the snapshot
    std::size_t copies = 0;  // conflict copies made of local work that lost
};

// Applies one answer to the catalogue, in one transaction, and with it decides every collision with local
// work. The caller holds the execution lock. What the result says of downloads needs nothing more: the raised
// version and the signal make the daemon fetch.
Applied applyChanges(const Workspace& workspace, const BrainRecord& brain, const ChangesResponse& response);

}  // namespace vorlinden::host
