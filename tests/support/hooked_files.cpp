#include "tests/support/hooked_files.h"

#include "platform/failure.h"

namespace vorlinden::tests {

void HookedFiles::failOn(FileOperation operation, int code, std::function<bool(const Path&)> concerns) {
    before = [operation, code, concerns = std::move(concerns)](FileOperation now, const Path& path) {
        if (now == operation && (!concerns || concerns(path))) throw platform::FileError(code, path.string());
    };
}

bool HookedFiles::exists(const Path& path) {
    return after(FileOperation::exists, path).exists(path);
}

void HookedFiles::createDirectories(const Path& path) {
    after(FileOperation::createDirectories, path).createDirectories(path);
}

platform::Data HookedFiles::read(const Path& path) {
    return after(FileOperation::read, path).read(path);
}

std::uint64_t HookedFiles::size(const Path& path) {
    return after(FileOperation::size, path).size(path);
}

platform::Data HookedFiles::readOrMap(const Path& path) {
    return after(FileOperation::read, path).readOrMap(path);
}

void HookedFiles::writeAtomically(const platform::Data& data, const Path& path) {
    after(FileOperation::write, path).writeAtomically(data, path);
}

void HookedFiles::writeUnflushed(const platform::Data& data, const Path& path) {
    after(FileOperation::write, path).writeUnflushed(data, path);
}

void HookedFiles::flush(const std::vector<Path>& files) {
    for (const Path& path : files)
        after(FileOperation::flush, path);
    below_->flush(files);
}

void HookedFiles::remove(const Path& path) {
    after(FileOperation::remove, path).remove(path);
}

std::vector<std::string> HookedFiles::list(const Path& folder) {
    return after(FileOperation::list, folder).list(folder);
}

void HookedFiles::sweepTemporaries(const Path& folder) {
    after(FileOperation::sweep, folder).sweepTemporaries(folder);
}

std::unique_ptr<platform::LockFile> HookedFiles::openLockFile(const Path& path) {
    return after(FileOperation::openLock, path).openLockFile(path);
}

platform::FileSystem& HookedFiles::after(FileOperation operation, const Path& path) {
    if (before) before(operation, path);
    return *below_;
}

}  // namespace vorlinden::tests
