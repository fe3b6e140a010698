// File descriptors and the failures of the calls that take them.
#pragma once

#include <cerrno>
#include <filesystem>
#include <utility>

#include "platform/failure.h"

namespace vorlinden::platform {

// Owns one open file descriptor and closes it. Move-only; empty by default.
class Descriptor {
 public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor() { close(); }

    // open(2) with O_CLOEXEC, begun again when a signal interrupts it. Throws FileError.
    static Descriptor open(const std::filesystem::path& path, int flags, unsigned mode = 0);

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    void close() noexcept;

 private:
    int fd_ = -1;
};

// Makes the entries of a folder durable. Throws FileError.
void flushFolder(const std::filesystem::path& folder);

// The failure that errno tells of, about `path`. EIO where errno says nothing.
inline FileError errnoFailure(const std::filesystem::path& path) {
    return {errno == 0 ? EIO : errno, path.string()};
}

// Repeats a call that gives -1 for as long as a signal interrupts it.
template <class Call>
auto uninterrupted(Call call) {
    decltype(call()) result;
    do {
        result = call();
    } while (result == -1 && errno == EINTR);
    return result;
}

}  // namespace vorlinden::platform
