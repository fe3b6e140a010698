// One round of the host: which brains there are, then each of them pulled and drained, then the tidying up.
#pragma once

#include <exception>
#include <memory>
#include <set>
#include <vector>

#include "linux/host/alarm.h"
#include "linux/host/drain.h"
#include "linux/host/event_history.h"
#include "linux/host/pull.h"
#include "linux/host/workspace.h"

namespace vorlinden::host {

struct BrainReport {
    BrainRecord brain;  // as it was before
    BrainPull pull;     // what was done, also before a failure
    BrainDrain drain;
    std::exception_ptr failure;
};

// Hears of a round as it goes on, for a person at a terminal. Called on the round's task; must not throw.
class RoundObserver {
 public:
    virtual ~RoundObserver() = default;
    virtual void willSync(const BrainRecord&) {}
    virtual void didSync(const BrainReport&) {}
    virtual void didHear(const ToldEvent&) {}  // of a conflict that was settled
};

// Pulls a brain until it is current and drains it, in one hold of the execution lock: whatever waits is
// judged against all that the server has before it goes up. A long feed takes several holds, the last of
// which drains. Leaves the lock free for others before each. A brain whose pull fails isn't drained. The
// failure stands in the report; signed out or cancelled there is none, and the failure passes on.
Task<BrainReport> syncBrain(WorkspaceRef workspace, BrainRecord brain, bool drains = true);

struct RoundPlan {
    std::shared_ptr<const Alarm> ending = nullptr;  // when it has ended, no further brain is begun
    std::set<UUID> onlyPulled = {};                 // brains whose changes wait for a later round
};

// One failing brain stops no other. What came of the round is remembered for `status`, the person hears of
// the conflicts that were settled, and the spool is swept, also where there was no round because the server
// is away or nobody is signed in: that is thrown afterwards.
Task<std::vector<BrainReport>> syncRound(WorkspaceRef workspace, RoundObserver& observer,
                                         RoundPlan plan = {});

}  // namespace vorlinden::host
