// Chance that repeats itself.
#pragma once

#include <mutex>
#include <random>

#include "platform/seams.h"

namespace vorlinden::tests {

// The same seed gives the same bytes. Thread-safe.
class SeededRandom final : public platform::Random {
 public:
    explicit SeededRandom(std::uint64_t seed = 1) : engine_(seed) {}
    void fill(std::span<std::uint8_t> bytes) override {
        const std::lock_guard lock(mutex_);
        for (std::uint8_t& byte : bytes)
            byte = static_cast<std::uint8_t>(engine_());
    }

 private:
    std::mutex mutex_;  // guards engine_
    std::mt19937_64 engine_;
};

}  // namespace vorlinden::tests
