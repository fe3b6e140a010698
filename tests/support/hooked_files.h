// A file system that a test can make fail.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "platform/files.h"

namespace vorlinden::tests {

enum class FileOperation {
    exists,
    createDirectories,
    read,
    size,
    write,
    flush,
    remove,
    list,
    sweep,
    openLock
};

// The file system below it, with a look before each operation: `before` may throw a FileError, which then is
// the operation's outcome. Set `before` while no operation runs.
class HookedFiles : public platform::FileSystem {
 public:
    using Path = std::filesystem::path;

    explicit HookedFiles(std::shared_ptr<platform::FileSystem> below) : below_(std::move(below)) {}

    std::function<void(FileOperation, const Path&)> before;
    // From now on each `operation` on a path for which `concerns` holds fails with errno `code`.
    void failOn(FileOperation operation, int code, std::function<bool(const Path&)> concerns = {});

    bool exists(const Path& path) override;
    void createDirectories(const Path& path) override;
    platform::Data read(const Path& path) override;
    std::uint64_t size(const Path& path) override;
    platform::Data readOrMap(const Path& path) override;  // counts as a read
    void writeAtomically(const platform::Data& data, const Path& path) override;
    void writeUnflushed(const platform::Data& data, const Path& path) override;
    void flush(const std::vector<Path>& files) override;  // `before` sees each file
    void remove(const Path& path) override;
    std::vector<std::string> list(const Path& folder) override;
    void sweepTemporaries(const Path& folder) override;
    std::unique_ptr<platform::LockFile> openLockFile(const Path& path) override;

 private:
    platform::FileSystem& after(FileOperation operation, const Path& path);

    std::shared_ptr<platform::FileSystem> below_;
};

}  // namespace vorlinden::tests
