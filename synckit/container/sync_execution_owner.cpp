#include "synckit/container/sync_execution_owner.h"

#include <cerrno>

namespace vorlinden {

Task<SyncExecutionOwner::Ownership> SyncExecutionOwner::acquire(std::shared_ptr<platform::FileSystem> files,
                                                                std::shared_ptr<platform::Timers> timers,
                                                                std::filesystem::path url) {
    std::unique_ptr<platform::LockFile> file = files->openLockFile(url);
    for (;;) {
        co_await platform::checkCancellation();
        const int code = file->tryLock();
        if (code == 0) break;
        if (code != EWOULDBLOCK && code != EINTR) throw FileError(code, url.string());
        co_await timers->sleep(pollInterval);
    }
    Ownership ownership(std::move(file));
    co_await platform::checkCancellation();
    co_return ownership;
}

}  // namespace vorlinden
