// A wait that ends by time or by a call, whichever comes first.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>

#include "platform/system.h"
#include "platform/task.h"

namespace vorlinden::host {

// One task waits, any thread rings. A ring while nobody waits ends the next wait at once; several count as
// one. Held by std::shared_ptr, since a ringer may be late.
class Alarm {
 public:
    void ring();
    // True if it was rung, false when `duration` passed first. CancelledError.
    platform::Task<bool> wait(const platform::System& system, std::chrono::milliseconds duration);

 private:
    platform::Signal current();

    std::mutex mutex_;  // guards the fields below
    platform::Signal signal_;
    bool rung_ = false;
};

}  // namespace vorlinden::host
