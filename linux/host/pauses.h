// How long the host waits before it asks again.
#pragma once

#include <chrono>
#include <exception>
#include <map>
#include <optional>
#include <set>

#include "platform/timestamp.h"
#include "platform/uuid.h"

namespace vorlinden::host {

// After `failures` rounds in a row to which the server gave no answer: 1 s, 2 s, 4 s and so on up to 5
// minutes, times 0.8 to 1.2 by `chance` (0 up to 1), so that many clients don't come back at the same moment.
// Pure.
std::chrono::milliseconds pauseAfterFailures(unsigned failures, double chance);

// Whether an HTTP status says that the same request may succeed later.
bool isPassing(int status);

// Whether a failure means that the server is out of reach or overloaded, so that asking soon again is no use.
bool serverIsAway(const std::exception_ptr& failure);

// When the changes that wait for a brain are sent again, after the server put them off. Rounds go on
// meanwhile. A value; belongs to one task.
class DrainPauses {
 public:
    void putOff(const platform::UUID& brain, platform::Timestamp now, double chance);
    void forget(const platform::UUID& brain) { pauses_.erase(brain); }
    // The brains that still pause.
    std::set<platform::UUID> pausing(platform::Timestamp now) const;
    // When the first pause is over; absent if there is none.
    std::optional<platform::Timestamp> next() const;

 private:
    struct Pause {
        unsigned failures = 0;
        platform::Timestamp from;
        platform::Timestamp until;
    };
    std::map<platform::UUID, Pause> pauses_;
};

}  // namespace vorlinden::host
