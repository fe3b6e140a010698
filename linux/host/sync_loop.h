// Keeping the catalogue current: round after round, at an interval, at a wake-up, and with growing pauses
// while the server doesn't answer.
#pragma once

#include <chrono>
#include <exception>
#include <vector>

#include "linux/host/pull.h"

namespace vorlinden::host {

// Hears how the loop goes on. Called on the loop's task; must not throw.
class SyncObserver : public PullObserver {
 public:
    // A round could not be held, or brains of it failed for want of the server; the next try is after
    // `pause`.
    virtual void willRetry(const std::exception_ptr&, std::chrono::milliseconds /*pause*/) {}
    // Everything is as current as it gets; the next round is after `interval` or a wake-up.
    virtual void willRest(const std::vector<BrainReport>&) {}
    // Nobody is signed in; the loop waits for it. Told once.
    virtual void isSignedOut(const std::exception_ptr&) {}
};

// One round, whose outcome is remembered for `status`. Throws where there was no round.
Task<std::vector<BrainReport>> syncOnce(WorkspaceRef workspace, PullObserver& observer);

// Rounds until the task is cancelled; then CancelledError. One failing brain doesn't stop the others, and no
// failure of a round ends the loop. `observer` lives until the task has ended.
Task<> syncForever(WorkspaceRef workspace, std::chrono::milliseconds interval, SyncObserver& observer);

// Whether some process of this user runs syncForever() on these folders.
bool isSyncRunning(const platform::System& system, const platform::Folders& folders);

}  // namespace vorlinden::host
