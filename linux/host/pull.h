// Asking the server what has changed, and bringing the catalogue up to it.
#pragma once

#include <cstddef>
#include <exception>
#include <optional>
#include <vector>

#include "linux/host/event_history.h"
#include "linux/host/workspace.h"
#include "synckit/catalogue/records.h"

namespace vorlinden::host {

struct BrainPull {
    std::size_t entries = 0;              // of the feed
    std::optional<std::size_t> snapshot;  // nodes of the snapshot that replaced the tree, if one did
    std::size_t copies = 0;               // conflict copies made of local work that lost
    bool changed = false;                 // whether anybody who looks at the tree can see a difference
};

struct BrainReport {
    BrainRecord brain;  // as it was before
    BrainPull pull;     // what was done, also before a failure
    std::exception_ptr failure;
};

// Hears of a round as it goes on, for a person at a terminal. Called on the round's task; must not throw.
class PullObserver {
 public:
    virtual ~PullObserver() = default;
    virtual void willPull(const BrainRecord&) {}
    virtual void didPull(const BrainReport&) {}
    virtual void didHear(const ToldEvent&) {}  // of a conflict that was settled
};

// Fetches and stores which brains there are, and gives them as they now stand. Signals the working set if the
// list changed.
Task<std::vector<BrainRecord>> pullGrants(WorkspaceRef workspace);

// Pulls until the server has nothing more. Each request and what comes of it is one hold of the execution
// lock, so that no local write falls between them; between two of them others get their turn.
Task<> pullBrain(WorkspaceRef workspace, BrainRecord brain, BrainPull& done);

// One round: the list of brains, then each of them. The failure of one brain stands in its report and doesn't
// stop the others; without the list, signed out or cancelled there is no round, and the failure passes on.
Task<std::vector<BrainReport>> pullRound(WorkspaceRef workspace, PullObserver& observer);

}  // namespace vorlinden::host
