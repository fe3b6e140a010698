// A wall clock that stands still.
#pragma once

#include <atomic>

#include "platform/seams.h"

namespace vorlinden::tests {

// Starts at 2026-03-14T09:26:53.589Z and moves only when told. Thread-safe.
class ManualClock final : public platform::Clock {
 public:
    platform::Timestamp now() override { return platform::Timestamp(time_.load()); }
    void set(platform::Timestamp time) { time_ = time.time_since_epoch(); }
    void advance(std::chrono::milliseconds duration) { time_ = time_.load() + duration; }

 private:
    std::atomic<std::chrono::milliseconds> time_{std::chrono::milliseconds{1'773'480'413'589}};
};

}  // namespace vorlinden::tests
