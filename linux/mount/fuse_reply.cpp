#include "linux/mount/fuse_reply.h"

#include <cerrno>
#include <chrono>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace vorlinden::mount {

namespace {

constexpr mode_t fileMode = S_IFREG | 0644;
constexpr mode_t folderMode = S_IFDIR | 0755;
constexpr std::uint64_t statBlock = 512;  // bytes, the unit of st_blocks

timespec timeOf(Timestamp time) {
    const auto sinceEpoch = time.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    return {seconds.count(), std::chrono::nanoseconds(sinceEpoch - seconds).count()};
}

bool areComplete(const Attributes& attributes) {
    return attributes.isFolder || attributes.size;
}

}  // namespace

struct stat statOf(const Attributes& attributes) {
    struct stat status {};
    status.st_ino = attributes.inode;
    status.st_mode = attributes.isFolder ? folderMode : fileMode;
    status.st_nlink = attributes.links;
    status.st_uid = geteuid();
    status.st_gid = getegid();
    status.st_size = static_cast<off_t>(attributes.size.value_or(0));
    status.st_blksize = 4096;
    status.st_blocks = static_cast<blkcnt_t>((attributes.size.value_or(0) + statBlock - 1) / statBlock);
    status.st_atim = status.st_mtim = status.st_ctim = timeOf(attributes.modified);
    return status;
}

FuseReply::~FuseReply() {
    if (request_) error(EIO);
}

void FuseReply::error(int code) {
    fuse_reply_err(take(), code);
}

void FuseReply::none() {
    fuse_reply_none(take());
}

bool FuseReply::entry(const Attributes& attributes) {
    fuse_entry_param found{};
    found.ino = attributes.inode;
    found.attr = statOf(attributes);
    found.entry_timeout = keepLong;
    found.attr_timeout = areComplete(attributes) ? keepLong : 0;
    return fuse_reply_entry(take(), &found) == 0;
}

void FuseReply::noEntry() {
    fuse_entry_param nothing{};
    nothing.entry_timeout = keepLong;
    fuse_reply_entry(take(), &nothing);
}

void FuseReply::attributes(const Attributes& attributes, bool mayBeKept) {
    const struct stat status = statOf(attributes);
    fuse_reply_attr(take(), &status, mayBeKept && areComplete(attributes) ? keepLong : 0);
}

bool FuseReply::opened(const fuse_file_info& file) {
    return fuse_reply_open(take(), &file) == 0;
}

bool FuseReply::bytes(std::string_view bytes) {
    return fuse_reply_buf(take(), bytes.data(), bytes.size()) == 0;
}

void FuseReply::fileRange(int descriptor, std::uint64_t offset, std::size_t size) {
    fuse_bufvec range = FUSE_BUFVEC_INIT(size);
    range.buf[0].flags = static_cast<fuse_buf_flags>(FUSE_BUF_IS_FD | FUSE_BUF_FD_SEEK);
    range.buf[0].fd = descriptor;
    range.buf[0].pos = static_cast<off_t>(offset);
    fuse_reply_data(take(), &range, FUSE_BUF_SPLICE_MOVE);
}

void FuseReply::fileSystem(const struct statvfs& status) {
    fuse_reply_statfs(take(), &status);
}

void FuseReply::attributeValue(std::string_view value, std::size_t room) {
    if (room == 0)
        fuse_reply_xattr(take(), value.size());
    else if (room < value.size())
        error(ERANGE);
    else
        bytes(value);
}

}  // namespace vorlinden::mount
