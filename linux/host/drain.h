// Sending what waits in the journal.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "linux/host/workspace.h"

namespace vorlinden::host {

// What became of a brain's waiting changes in one drain.
struct BrainDrain {
    std::size_t sent = 0;
    std::size_t refused = 0;  // given up: the item shows why
    std::size_t bounced = 0;  // no write access: what the user wrote stays beside it, or on this machine
    std::size_t waiting = 0;  // rows that are left
    bool later = false;       // some of them for a passing failure
    bool tried = true;        // false: this round only pulled
    std::optional<std::string> reason;  // of that failure, for a person
};

// Tries everything that waits for the brain. The caller holds the execution lock and has brought the brain up
// to the server's state in the same hold, so that nothing older goes over something newer. Throws what ends a
// drain; what was sent before stands.
Task<BrainDrain> drainInHold(WorkspaceRef workspace, UUID brainId);

}  // namespace vorlinden::host
