#include "platform/files.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <set>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/descriptor.h"
#include "platform/seams.h"

namespace vorlinden::platform {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view temporaryPrefix = ".vorlinden-";
constexpr std::string_view temporarySuffix = ".tmp";
constexpr std::size_t uniqueDigits = 32;

fs::path folderOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

void writeAll(const Descriptor& file, std::span<const std::uint8_t> bytes, const fs::path& path) {
    while (!bytes.empty()) {
        const ssize_t written =
            uninterrupted([&] { return ::write(file.get(), bytes.data(), bytes.size()); });
        if (written < 0) throw errnoFailure(path);
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
}

// Reads into `room` until it is full or the file ends; gives the bytes read.
std::size_t readInto(const Descriptor& file, std::span<std::uint8_t> room, const fs::path& path) {
    std::size_t filled = 0;
    while (filled < room.size()) {
        const ssize_t got =
            uninterrupted([&] { return ::read(file.get(), room.data() + filled, room.size() - filled); });
        if (got < 0) throw errnoFailure(path);
        if (got == 0) break;
        filled += static_cast<std::size_t>(got);
    }
    return filled;
}

struct stat statusOf(const Descriptor& file, const fs::path& path) {
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) throw errnoFailure(path);
    return status;
}

bool isFrozen(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_uid == ::geteuid() && (status.st_mode & 07777) == 0400;
}

// Empty where the file can't be mapped.
Data mapped(const Descriptor& file, std::size_t size) {
    void* bytes = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, file.get(), 0);
    if (bytes == MAP_FAILED) return {};
    const std::shared_ptr<const void> owner(bytes, [size](void* start) { ::munmap(start, size); });
    return {owner, static_cast<const std::uint8_t*>(bytes), size};
}

// What a file holds beyond the size it claimed: it grew, or is of the kind that claims nothing.
Data readRest(const Descriptor& file, std::string bytes, const fs::path& path) {
    std::array<std::uint8_t, 65536> chunk;
    for (std::size_t got = chunk.size(); got == chunk.size();) {
        got = readInto(file, chunk, path);
        bytes.append(reinterpret_cast<const char*>(chunk.data()), got);
    }
    return Data(std::move(bytes));
}

Data readWhole(const Descriptor& file, std::size_t size, const fs::path& path) {
    // Uninitialised on purpose: a hundred megabytes of zeros would be written only to be overwritten.
    const auto bytes = std::make_shared_for_overwrite<std::uint8_t[]>(size + 1);
    const std::size_t got = readInto(file, {bytes.get(), size + 1}, path);
    if (got <= size) return {bytes, bytes.get(), got};
    return readRest(file, std::string(reinterpret_cast<const char*>(bytes.get()), got), path);
}

// A temporary file that is locked for as long as its writer lives: how a sweep tells it from one that a crash
// left behind, whatever became of process ids. Unlinked by the destructor unless it was renamed.
class Temporary {
 public:
    explicit Temporary(const fs::path& folder) {
        while (!create(folder)) {
        }
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;
    ~Temporary() {
        if (!renamed_) ::unlink(path_.c_str());
    }

    const Descriptor& file() const { return file_; }
    const fs::path& path() const { return path_; }

    void renameTo(const fs::path& target) {
        if (::rename(path_.c_str(), target.c_str()) != 0) throw errnoFailure(target);
        renamed_ = true;
    }

 private:
    // False if a sweep came between open and lock and took the file for a dead one.
    bool create(const fs::path& folder) {
        path_ = folder / uniqueName();
        file_ = Descriptor::open(path_, O_WRONLY | O_CREAT | O_EXCL, 0600);
        struct stat status {};
        const int locked = uninterrupted([&] { return ::flock(file_.get(), LOCK_EX | LOCK_NB); });
        const bool ours = locked == 0 || errno != EWOULDBLOCK;  // a file system without locks has no sweeps
        return ours && ::fstat(file_.get(), &status) == 0 && status.st_nlink > 0;
    }

    static std::string uniqueName() {
        std::array<std::uint8_t, uniqueDigits / 2> bytes;
        systemRandom()->fill(bytes);
        std::string name(temporaryPrefix);
        for (const std::uint8_t byte : bytes) {
            name += "0123456789abcdef"[byte >> 4];
            name += "0123456789abcdef"[byte & 15];
        }
        return name += temporarySuffix;
    }

    fs::path path_;
    Descriptor file_;
    bool renamed_ = false;
};

class PosixLockFile final : public LockFile {
 public:
    explicit PosixLockFile(Descriptor file) : file_(std::move(file)) {}

    int tryLock() override {
        if (::flock(file_.get(), LOCK_EX | LOCK_NB) == 0) return 0;
        return errno == 0 ? EIO : errno;
    }
    void unlock() override { ::flock(file_.get(), LOCK_UN); }

 private:
    Descriptor file_;
};

bool isFolder(const fs::path& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

void makeFolder(const fs::path& path) {
    if (::mkdir(path.c_str(), 0700) == 0) {
        flushFolder(folderOf(path));
        return;
    }
    const int code = errno;
    if (!isFolder(path)) throw FileError(code == EEXIST ? ENOTDIR : code, path.string());
}

class PosixFileSystem final : public FileSystem {
 public:
    bool exists(const fs::path& path) override {
        struct stat status {};
        if (::stat(path.c_str(), &status) == 0) return true;
        if (errno == ENOENT || errno == ENOTDIR || errno == ENAMETOOLONG) return false;
        throw errnoFailure(path);
    }

    void createDirectories(const fs::path& path) override {
        if (isFolder(path)) return;
        fs::path level;
        for (const fs::path& component : path) {
            level /= component;
            if (!component.empty() && !exists(level)) makeFolder(level);
        }
        makeFolder(path.has_filename() ? path : folderOf(path));  // what exists must be a folder, too
    }

    Data read(const fs::path& path) override {
        const Descriptor file = Descriptor::open(path, O_RDONLY);
        return readWhole(file, static_cast<std::size_t>(statusOf(file, path).st_size), path);
    }

    std::uint64_t size(const fs::path& path) override {
        struct stat status {};
        if (::stat(path.c_str(), &status) != 0) throw errnoFailure(path);
        return static_cast<std::uint64_t>(status.st_size);
    }

    Data readOrMap(const fs::path& path) override {
        const Descriptor file = Descriptor::open(path, O_RDONLY);
        const struct stat status = statusOf(file, path);
        const auto size = static_cast<std::size_t>(status.st_size);
        if (isFrozen(status) && size > 0) {
            Data bytes = mapped(file, size);
            if (!bytes.empty()) return bytes;
        }
        return readWhole(file, size, path);
    }

    void writeAtomically(const Data& data, const fs::path& path) override {
        const fs::path folder = folderOf(path);
        Temporary temporary(folder);
        writeAll(temporary.file(), data.span(), temporary.path());
        if (::fsync(temporary.file().get()) != 0) throw errnoFailure(temporary.path());
        temporary.renameTo(path);
        flushFolder(folder);
    }

    void writeUnflushed(const Data& data, const fs::path& path) override {
        Temporary temporary(folderOf(path));
        writeAll(temporary.file(), data.span(), temporary.path());
        temporary.renameTo(path);
    }

    void flush(const std::vector<fs::path>& files) override {
        std::set<fs::path> folders;
        for (const fs::path& path : files) {
            if (::fsync(Descriptor::open(path, O_RDONLY).get()) != 0) throw errnoFailure(path);
            folders.insert(folderOf(path));
        }
        for (const fs::path& folder : folders)
            flushFolder(folder);
    }

    void remove(const fs::path& path) override {
        if (::unlink(path.c_str()) != 0) throw errnoFailure(path);
    }

    std::vector<std::string> list(const fs::path& folder) override {
        std::error_code error;
        std::vector<std::string> names;
        for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
            names.push_back(entry->path().filename().string());
        if (error) throw FileError(error.value(), folder.string());
        return names;
    }

    void sweepTemporaries(const fs::path& folder) override {
        for (const std::string& name : list(folder)) {
            if (isTemporaryName(name)) removeIfAbandoned(folder / name);
        }
    }

    std::unique_ptr<LockFile> openLockFile(const fs::path& path) override {
        return std::make_unique<PosixLockFile>(Descriptor::open(path, O_RDWR | O_CREAT, 0600));
    }

 private:
    static void removeIfAbandoned(const fs::path& path) {
        const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
        if (!file) {
            if (errno == ENOENT) return;  // its writer has just finished
            throw errnoFailure(path);
        }
        if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) return;
        if (::unlink(path.c_str()) != 0 && errno != ENOENT) throw errnoFailure(path);
    }
};

}  // namespace

bool isTemporaryName(const std::string& name) {
    if (name.size() != temporaryPrefix.size() + uniqueDigits + temporarySuffix.size()) return false;
    const std::string_view unique = std::string_view(name).substr(temporaryPrefix.size(), uniqueDigits);
    return name.starts_with(temporaryPrefix) && name.ends_with(temporarySuffix) &&
           unique.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::shared_ptr<FileSystem> posixFileSystem() {
    static const std::shared_ptr<FileSystem> shared = std::make_shared<PosixFileSystem>();
    return shared;
}

}  // namespace vorlinden::platform
