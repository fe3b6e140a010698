#include "linux/host/mark.h"

namespace vorlinden::host {

std::unique_ptr<platform::LockFile> Mark::hold(const platform::System& system) const {
    system.files->createDirectories(file.parent_path());
    auto lock = system.files->openLockFile(file);
    return lock->tryLock() == 0 ? std::move(lock) : nullptr;
}

bool Mark::isHeld(const platform::System& system) const {
    if (!system.files->exists(file)) return false;
    return system.files->openLockFile(file)->tryLock() != 0;
}

}  // namespace vorlinden::host
