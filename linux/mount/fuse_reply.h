// One request of the kernel's, to be answered exactly once.
#pragma once

#define FUSE_USE_VERSION 314
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include <fuse_lowlevel.h>

#include "linux/mount/domain.h"

namespace vorlinden::mount {

// How long the kernel may keep what it was told. It is told of each change, so the time has no meaning but
// "long".
inline constexpr double keepLong = 31.0 * 24 * 3600;  // seconds

// How a file or folder looks to the kernel. A size that isn't known counts as 0; the caller then lets the
// attributes expire at once.
struct stat statOf(const Attributes& attributes);

// Move-only owner of a request. Each answer ends it; a request that was never answered is answered EIO by the
// destructor. May be answered on any thread.
class FuseReply {
 public:
    explicit FuseReply(fuse_req_t request) : request_(request) {}
    FuseReply(FuseReply&& other) noexcept : request_(std::exchange(other.request_, nullptr)) {}
    FuseReply& operator=(FuseReply&&) = delete;
    ~FuseReply();

    fuse_req_t request() const { return request_; }

    void error(int code);  // 0: done
    void none();           // for requests that want no answer (forget)
    // A found child; answers are true when the kernel took them.
    bool entry(const Attributes& attributes);
    void noEntry();  // not there, and the kernel may remember that
    void attributes(const Attributes& attributes, bool mayBeKept = true);
    bool opened(const fuse_file_info& file);
    bool bytes(std::string_view bytes);
    void fileRange(int descriptor, std::uint64_t offset, std::size_t size);
    void fileSystem(const struct statvfs& status);
    // The value of an extended attribute for a buffer of `room` bytes; 0 asks for the size.
    void attributeValue(std::string_view value, std::size_t room);

 private:
    fuse_req_t take() { return std::exchange(request_, nullptr); }
    fuse_req_t request_;
};

}  // namespace vorlinden::mount
