#include "tests/support/manual_timers.h"

#include <algorithm>

namespace vorlinden::tests {

platform::Task<> ManualTimers::sleep(std::chrono::nanoseconds duration) {
    co_await platform::checkCancellation();
    std::list<Sleeper>::iterator self;
    {
        const std::lock_guard lock(mutex_);
        self = sleepers_.insert(sleepers_.end(), {now_ + duration, {}});
    }
    struct Registration {
        ManualTimers& timers;
        std::list<Sleeper>::iterator self;
        ~Registration() {
            const std::lock_guard lock(timers.mutex_);
            timers.sleepers_.erase(self);
        }
    };
    const Registration registration{*this, self};
    if (duration > std::chrono::nanoseconds::zero()) co_await self->awake.wait();
}

void ManualTimers::advance(std::chrono::nanoseconds duration) {
    const std::lock_guard lock(mutex_);
    now_ += duration;
    for (Sleeper& sleeper : sleepers_) {
        if (sleeper.end <= now_) sleeper.awake.set();
    }
}

std::size_t ManualTimers::sleeping() const {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(
        std::ranges::count_if(sleepers_, [](const Sleeper& sleeper) { return !sleeper.awake.isSet(); }));
}

std::chrono::nanoseconds ManualTimers::untilNext() const {
    const std::lock_guard lock(mutex_);
    std::chrono::nanoseconds shortest = std::chrono::nanoseconds::max();
    for (const Sleeper& sleeper : sleepers_) {
        if (!sleeper.awake.isSet()) shortest = std::min(shortest, sleeper.end - now_);
    }
    return shortest == std::chrono::nanoseconds::max() ? std::chrono::nanoseconds::zero() : shortest;
}

}  // namespace vorlinden::tests
