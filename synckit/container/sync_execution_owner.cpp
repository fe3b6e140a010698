#include "synckit/container/sync_execution_owner.h"

#include <atomic>
#include <cerrno>

namespace vorlinden {

namespace {

std::atomic<std::uint64_t> operationsSoFar = 0;
std::atomic<std::int64_t> microsecondsWaited = 0;

void countWait(std::chrono::steady_clock::duration waited) {
    ++operationsSoFar;
    microsecondsWaited += std::chrono::duration_cast<std::chrono::microseconds>(waited).count();
}

}  // namespace

ExecutionLockWaits executionLockWaits() {
    return {operationsSoFar, std::chrono::microseconds(microsecondsWaited)};
}

Task<SyncExecutionOwner::Ownership> SyncExecutionOwner::acquire(platform::System system,
                                                                std::filesystem::path url) {
    const auto asked = std::chrono::steady_clock::now();
    std::unique_ptr<platform::LockFile> file = system.files->openLockFile(url);
    const auto line = ExecutionLine::of(url);
    ExecutionLine::Turn turn = co_await line->wait();
    if (line->mustPause(system.clock->now())) co_await system.timers->sleep(pollInterval + pollInterval / 4);
    for (;;) {
        co_await platform::checkCancellation();
        const int code = file->tryLock();
        if (code == 0) break;
        if (code != EWOULDBLOCK && code != EINTR) throw FileError(code, url.string());
        co_await system.timers->sleep(pollInterval);
    }
    countWait(std::chrono::steady_clock::now() - asked);
    Ownership ownership(std::move(turn), std::move(file));
    co_await platform::checkCancellation();
    co_return ownership;
}

}  // namespace vorlinden
