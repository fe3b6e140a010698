#include "platform/descriptor.h"

#include <fcntl.h>
#include <unistd.h>

namespace vorlinden::platform {

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this != &other) {
        close();
        fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
}

Descriptor Descriptor::open(const std::filesystem::path& path, int flags, unsigned mode) {
    Descriptor file(uninterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); }));
    if (!file) throw errnoFailure(path);
    return file;
}

// Never repeated: on Linux the descriptor is gone even when close(2) was interrupted.
void Descriptor::close() noexcept {
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
}

// Some file systems don't know how to flush a folder and say EINVAL; then there is nothing to be flushed.
void flushFolder(const std::filesystem::path& folder) {
    const Descriptor file = Descriptor::open(folder, O_RDONLY | O_DIRECTORY);
    if (::fsync(file.get()) != 0 && errno != EINVAL) throw errnoFailure(folder);
}

}  // namespace vorlinden::platform
