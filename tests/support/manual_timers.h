// Timers whose time passes only when a test says so.
#pragma once

#include <list>
#include <mutex>

#include "platform/seams.h"

namespace vorlinden::tests {

// A sleeping task is released by the advance() that reaches its end, or by being cancelled. Thread-safe; the
// released task goes on when its executor runs.
class ManualTimers final : public platform::Timers {
 public:
    platform::Task<> sleep(std::chrono::nanoseconds duration) override;
    void advance(std::chrono::nanoseconds duration);

    // Tasks that sleep now.
    std::size_t sleeping() const;
    // How long the shortest of them has still to sleep; zero if there is none.
    std::chrono::nanoseconds untilNext() const;

 private:
    struct Sleeper {
        std::chrono::nanoseconds end;
        platform::Signal awake;
    };

    mutable std::mutex mutex_;  // guards the fields below
    std::chrono::nanoseconds now_{0};
    std::list<Sleeper> sleepers_;
};

}  // namespace vorlinden::tests
