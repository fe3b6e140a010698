// The file system operations of the mount (libfuse3's low-level interface): each turns one request into
// questions to the domain and the content store, and one answer.
//
// Read-only: what would write is refused with EROFS. Requests are served on several threads, and none of them
// ever waits: a folder that must be listed and content that must be fetched arrive through a handler that
// answers the request from wherever it is called.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "linux/mount/content_store.h"
#include "linux/mount/domain.h"
#include "linux/mount/fuse_reply.h"
#include "linux/mount/waiting_request.h"

namespace vorlinden::mount {

class KernelNotifier;

struct FuseOptions {
    std::chrono::milliseconds deadline{10'000};  // how long a reader waits for content that isn't here
    std::filesystem::path disk;                  // whose size and free space are shown as the mount's
};

class FuseOperations {
 public:
    // Both outlive the object, which outlives the session that it serves.
    FuseOperations(Domain& domain, ContentStore& contents, FuseOptions options);
    ~FuseOperations();

    // Which the session makes after this object; set before the first request.
    void setNotifier(KernelNotifier* notifier) { notifier_ = notifier; }
    WaitingRequests& waitingRequests() { return waitingRequests_; }
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
    struct OpenFile;
    using WaitingPtr = std::shared_ptr<WaitingRequest>;
    using ContentPtr = std::shared_ptr<const Content>;
    // What a request wants with a file's content. `use` is given it, and says no if it isn't the content of
    // what the inode shows now, unless it must take it `anyway`.
    struct Quest {
        Inode inode;
        std::function<bool(const WaitingPtr&, const ContentPtr&, bool anyway)> use;
        unsigned attempts = 0;
    };

    static OpenFile* openFileOf(const fuse_file_info& file);
    OpenFile* keepOpen(Inode inode, ContentPtr content);
    void close(OpenFile* file);

    void lookUp(FuseReply& reply, Inode folder, const std::string& name);
    void seek(const WaitingPtr& waiting, const Quest& quest);
    void found(const WaitingPtr& waiting, Quest quest, const ContentPtr& content);
    bool openOn(const WaitingPtr& waiting, Inode inode, fuse_file_info file, const ContentPtr& content,
                bool anyway);

    // Answers through `then` once the folder is listed, or with the error that kept it from that.
    void whenListed(FuseReply reply, Inode folder, std::function<void(FuseReply&)> then);
    void sendListing(FuseReply& reply, Inode folder, std::uint64_t offset, std::size_t size);
    void sendListingPlus(FuseReply& reply, Inode folder, std::uint64_t offset, std::size_t size);

    Domain& domain_;
    ContentStore& contents_;
    const FuseOptions options_;
    KernelNotifier* notifier_ = nullptr;
    bool opensFoldersItself_ = false;  // constant after the session's first request
    WaitingRequests waitingRequests_;

    std::mutex mutex_;  // guards the set, not what is in it
    // What the kernel holds handles on. It doesn't always give them back: a busy mount may be taken away.
    std::unordered_map<OpenFile*, std::unique_ptr<OpenFile>> openFiles_;
};

}  // namespace vorlinden::mount
