// Tells the kernel what has changed.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "linux/mount/change_batch.h"
#include "linux/mount/content_store.h"

struct fuse_session;

namespace vorlinden::mount {

// Notifications go out in order from a thread of its own that holds no lock and serves no request: the kernel
// takes a folder's lock to drop a name, and whoever holds that lock may be waiting for an answer of ours.
// Thread-safe.
class KernelNotifier {
 public:
    explicit KernelNotifier(fuse_session* session);
    ~KernelNotifier();
    KernelNotifier(const KernelNotifier&) = delete;
    KernelNotifier& operator=(const KernelNotifier&) = delete;

    void notify(std::vector<Invalidation> invalidations);
    // Gives the kernel the end of a file's content, all of it where it is short, and with it its size.
    void fill(Inode inode, std::shared_ptr<const Content> content);
    // Calls `then` once the kernel has heard all that is to be said of an inode's bytes and attributes so
    // far: at once where there is nothing, else on the notifier's thread, which `then` must not hold up.
    void whenHeard(Inode inode, std::function<void()> then);
    // Ends the thread, drops what hasn't gone out and lets go whoever waits for it. The session must still be
    // served meanwhile: a notification in flight may wait for a request in flight.
    void stop();

 private:
    struct Pending {
        unsigned notifications = 0;
        std::vector<std::function<void()>> waiting;
    };

    struct Bytes {
        Inode inode;
        std::shared_ptr<const Content> content;
    };
    using News = std::variant<Invalidation, Bytes>;

    static Inode inodeOf(const News& news);
    void add(std::vector<News> news);
    void run();
    void send(const News& news);
    void heard(Inode inode);

    fuse_session* const session_;
    std::mutex mutex_;  // guards the fields below; not held while the kernel or a waiter is called
    std::condition_variable changed_;
    std::deque<News> queue_;
    std::unordered_map<Inode, Pending> pending_;  // inodes whose bytes or attributes are in the queue
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace vorlinden::mount
