#include "synckit/container/sync_execution_owner.h"

#include <cerrno>

namespace vorlinden {

Task<SyncExecutionOwner::Ownership> SyncExecutionOwner::acquire(platform::System system,
                                                                std::filesystem::path url) {
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
    Ownership ownership(std::move(turn), std::move(file));
    co_await platform::checkCancellation();
    co_return ownership;
}

}  // namespace vorlinden
