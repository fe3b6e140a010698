// The disk as this system uses it: whole files, atomic writes, lock files. Behind an interface, so that a
// simulated disk can lose what was not flushed. All operations block, throw FileError, and may be called from
// any thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/data.h"

namespace vorlinden::platform {

// An open lock file with an advisory lock of its own (flock(2)): closing it, or the death of the process,
// releases the lock.
class LockFile {
 public:
    virtual ~LockFile() = default;
    // 0 when the exclusive lock is held now, else the errno of the attempt (EWOULDBLOCK: held elsewhere).
    virtual int tryLock() = 0;
    virtual void unlock() = 0;
};

class FileSystem {
 public:
    virtual ~FileSystem() = default;

    virtual bool exists(const std::filesystem::path& path) = 0;
    // With all intermediate folders, mode 0700; no error if it exists.
    virtual void createDirectories(const std::filesystem::path& path) = 0;
    // The whole file. FileError ENOENT if there is none.
    virtual Data read(const std::filesystem::path& path) = 0;
    // Its bytes, without reading them. FileError ENOENT if there is none.
    virtual std::uint64_t size(const std::filesystem::path& path) { return read(path).size(); }
    // As read(), but a frozen file is mapped where the machine can, and so takes no memory. Frozen is a
    // regular file of this user's with the mode 0400: whoever gave it that mode promises that nobody writes
    // or truncates it any more. It may be removed at any time.
    virtual Data readOrMap(const std::filesystem::path& path) { return read(path); }
    // Readers see the old file or the new, never a part, also after a crash: a temporary file beside it (mode
    // 0600), flushed, renamed over `path`, its folder flushed. A temporary file that a crash leaves behind
    // has a name that isTemporaryName() knows, for sweepTemporaries().
    virtual void writeAtomically(const Data& data, const std::filesystem::path& path) = 0;
    // The same for readers and for the death of this process, but without a flush: a power cut may leave the
    // file damaged or missing. For what can be had again.
    virtual void writeUnflushed(const Data& data, const std::filesystem::path& path) {
        writeAtomically(data, path);
    }
    // Makes durable what writeUnflushed() wrote to these files, names included: for many of them at once this
    // costs a fraction of as many atomic writes.
    virtual void flush(const std::vector<std::filesystem::path>& files) {
        for (const auto& file : files)
            writeAtomically(read(file), file);
    }
    // FileError ENOENT if there is none.
    virtual void remove(const std::filesystem::path& path) = 0;
    // Names in a folder, without "." and "..", in no particular order. FileError if it can't be read.
    virtual std::vector<std::string> list(const std::filesystem::path& folder) = 0;
    // Removes temporaries of writeAtomically() that no living write of this machine owns; one that is being
    // written just now is left alone, in whatever process.
    virtual void sweepTemporaries(const std::filesystem::path& folder) = 0;
    // open(2) with O_RDWR | O_CREAT | O_CLOEXEC, mode 0600.
    virtual std::unique_ptr<LockFile> openLockFile(const std::filesystem::path& path) = 0;
};

bool isTemporaryName(const std::string& name);
std::shared_ptr<FileSystem> posixFileSystem();

}  // namespace vorlinden::platform
