// The lock that admits one sync operation at a time across host and extension, and within each of them.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <type_traits>
#include <utility>

#include "platform/system.h"
#include "synckit/container/execution_line.h"
#include "synckit/types.h"

namespace vorlinden {

// What all operations of this process have waited for the lock since it began, each for itself: those that
// wait at once add up. A value.
struct ExecutionLockWaits {
    std::uint64_t operations = 0;
    std::chrono::microseconds waited{};
};
ExecutionLockWaits executionLockWaits();

// A value: it only names the lock file. The lock lives in the open file, one per call of withOwnership(), so
// it ends with its operation, with the process at the latest, and two operations of one process exclude each
// other like those of two. The file is never removed and never written to. Outermost of all locks.
struct SyncExecutionOwner {
    // How often a waiter looks whether the lock is free. Waiting holds no thread.
    static constexpr std::chrono::nanoseconds pollInterval = std::chrono::milliseconds{20};

    explicit SyncExecutionOwner(std::filesystem::path lockFile) : url(std::move(lockFile)) {}

    std::filesystem::path url;

    // Waits for the lock, without a time-out, runs `body` (which gives a Task<T>) and hands its result or
    // failure on unchanged, with the lock given back before. Without running `body` it throws CancelledError
    // when the task is cancelled before the lock is held, and FileError if the file can't be opened or
    // locked; its folder must exist. Not reentrant: `body` would wait for itself. Operations of this process
    // are served first come, first served; between processes there is no order.
    template <class Body>
    std::invoke_result_t<Body&> withOwnership(const platform::System& system, Body body) const {
        return runOwned(system, url, std::move(body));
    }

    bool operator==(const SyncExecutionOwner&) const = default;

 private:
    // The lock while it is held. Move-only; gives it back when it goes.
    class Ownership {
     public:
        Ownership(ExecutionLine::Turn turn, std::unique_ptr<platform::LockFile> locked)
            : turn_(std::move(turn)), file_(std::move(locked)) {}
        Ownership(Ownership&&) = default;
        Ownership& operator=(Ownership&&) = delete;
        ~Ownership() {
            if (file_) file_->unlock();
        }

     private:
        ExecutionLine::Turn turn_;  // ends after the lock was given back and the file closed
        std::unique_ptr<platform::LockFile> file_;
    };

    static Task<Ownership> acquire(platform::System system, std::filesystem::path url);

    template <class Body>
    static std::invoke_result_t<Body&> runOwned(platform::System system, std::filesystem::path url,
                                                Body body) {
        const Ownership ownership = co_await acquire(std::move(system), std::move(url));
        co_return co_await body();
    }
};

}  // namespace vorlinden
