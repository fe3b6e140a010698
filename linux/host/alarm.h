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
    // For good: no wait lasts from now on.
    void end();
    bool hasEnded() const;

    // Until it is rung, or `duration` has passed. CancelledError.
    platform::Task<> wait(const platform::System& system, std::chrono::milliseconds duration);
    // The same, but deaf to rings: only end() makes it shorter.
    platform::Task<> sleep(const platform::System& system, std::chrono::milliseconds duration);

 private:
    static platform::Task<> either(platform::System system, std::chrono::milliseconds duration,
                                   platform::Signal signal);

    mutable std::mutex mutex_;  // guards the fields below
    platform::Signal rung_;
    platform::Signal sleeper_;
    bool ended_ = false;
};

}  // namespace vorlinden::host
