// Keeping the catalogue and the server in step: round after round, at an interval, at a wake-up, and with
// growing pauses while the server doesn't answer or what waits has to wait.
#pragma once

#include <chrono>
#include <exception>
#include <memory>
#include <vector>

#include "linux/host/round.h"

namespace vorlinden::host {

// Hears how the loop goes on. Called on the loop's task; must not throw.
class SyncObserver : public RoundObserver {
 public:
    // A round could not be held, or brains of it failed for want of the server; the next try is after
    // `pause`.
    virtual void willRetry(const std::exception_ptr&, std::chrono::milliseconds /*pause*/) {}
    // Everything is as current as it gets; the next round is after `interval`, a wake-up, or sooner if
    // changes wait for the server.
    virtual void willRest(const std::vector<BrainReport>&) {}
    // Nobody is signed in; the loop waits for it. Told once.
    virtual void isSignedOut(const std::exception_ptr&) {}
};

// Rounds until `alarm` is ended, which lets the hold that is going on come to its end, or the task is
// cancelled (CancelledError). Ringing the alarm asks for a round, as a wake-up does. No failure of a round
// ends the loop. `observer` lives until the task has ended.
Task<> syncForever(WorkspaceRef workspace, std::chrono::milliseconds interval, SyncObserver& observer,
                   std::shared_ptr<Alarm> alarm);

}  // namespace vorlinden::host
