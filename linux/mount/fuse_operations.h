// The file system operations of the mount (libfuse3's low-level interface): each turns one request into
// questions to the domain and the content store, and one answer.
//
// Read-only: what would write is refused with EROFS. Requests are served on several threads; none of them
// ever waits for the network, since content arrives through a handler that answers the request from wherever
// it is called.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "linux/mount/content_store.h"
#include "linux/mount/domain.h"
#include "linux/mount/fuse_reply.h"
#include "linux/mount/interrupts.h"

namespace vorlinden::mount {

class KernelNotifier;

struct FuseOptions {
    std::chrono::milliseconds deadline{10'000};  // how long a reader waits for content that isn't here
    std::filesystem::path disk;                  // whose size and free space are shown as the mount's
};

class FuseOperations {
 public:
    // All three outlive the object, which outlives the session that it serves.
    FuseOperations(Domain& domain, ContentStore& contents, FuseOptions options);

    // Which the session makes after this object; set before the first request.
    void setNotifier(const KernelNotifier* notifier) { notifier_ = notifier; }
    Interrupts& interrupts() { return interrupts_; }
    // Whether the kernel can open folders without asking; found out when the session begins.
    void setOpensFoldersItself(bool can) { opensFoldersItself_ = can; }
    bool opensFoldersItself() const { return opensFoldersItself_; }

    static const fuse_lowlevel_ops& table();

    void lookup(FuseReply reply, Inode folder, const char* name);
    void getattr(FuseReply reply, Inode inode, const fuse_file_info* file);
    void open(FuseReply reply, Inode inode, const fuse_file_info& file);
    void read(FuseReply reply, const fuse_file_info& file, std::uint64_t offset, std::size_t size);
    void release(FuseReply reply, const fuse_file_info& file);
    void readdir(FuseReply reply, Inode folder, std::uint64_t offset, std::size_t size);
    void readdirplus(FuseReply reply, Inode folder, std::uint64_t offset, std::size_t size);
    void forget(Inode inode, std::uint64_t count) { domain_.forget(inode, count); }
    void statfs(FuseReply reply);
    void getxattr(FuseReply reply, Inode inode, const char* name, std::size_t room);
    void listxattr(FuseReply reply, Inode inode, std::size_t room);

 private:
    using Then = std::function<void(FuseReply&, std::shared_ptr<const Content>)>;

    // Answers the request through `then` once the file's content is here, or with the error that kept it
    // away.
    void withContent(FuseReply reply, Inode inode, Then then);
    void openOn(FuseReply& reply, Inode inode, fuse_file_info file, std::shared_ptr<const Content> content);

    Domain& domain_;
    ContentStore& contents_;
    const FuseOptions options_;
    const KernelNotifier* notifier_ = nullptr;
    bool opensFoldersItself_ = false;  // constant after the session's first request
    Interrupts interrupts_;
};

}  // namespace vorlinden::mount
