// The seams between the logic and the machine: time, chance. A program's `main` wires the real ones; a test
// or a simulation hands in its own, and then nothing in the library depends on the real clock or on luck.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/task.h"
#include "platform/timestamp.h"

namespace vorlinden::platform {

// Wall-clock time. Thread-safe. May jump in either direction.
class Clock {
 public:
    virtual ~Clock() = default;
    virtual Timestamp now() = 0;
};

// Waiting without holding a thread. Thread-safe.
class Timers {
 public:
    virtual ~Timers() = default;
    // Ends after `duration`, or with CancelledError as soon as the task is cancelled (at once if it already
    // is).
    virtual Task<> sleep(std::chrono::nanoseconds duration) = 0;
};

// Cryptographically secure bytes. Thread-safe. Ends the process if the source fails, since nothing secret can
// be made without it.
class Random {
 public:
    virtual ~Random() = default;
    virtual void fill(std::span<std::uint8_t> bytes) = 0;
};

std::shared_ptr<Clock> systemClock();
std::shared_ptr<Timers> systemTimers();
std::shared_ptr<Random> systemRandom();

}  // namespace vorlinden::platform
