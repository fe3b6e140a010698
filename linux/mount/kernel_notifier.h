// Tells the kernel to forget what has changed.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "linux/mount/change_batch.h"

struct fuse_session;

namespace vorlinden::mount {

// Notifications go out in order from a thread of its own that holds no lock and serves no request: the kernel
// takes a folder's lock to drop a name, and whoever holds that lock may be waiting for an answer of ours.
// Thread-safe.
class KernelNotifier {
 public:
    explicit KernelNotifier(fuse_session* session);
    ~KernelNotifier() { stop(); }
    KernelNotifier(const KernelNotifier&) = delete;
    KernelNotifier& operator=(const KernelNotifier&) = delete;

    void notify(std::vector<Invalidation> invalidations);
    // Ends the thread and drops what hasn't gone out. The session must still be served meanwhile: a
    // notification in flight may wait for a request in flight.
    void stop();
    // Whether the kernel has heard everything so far.
    bool isIdle() const;

 private:
    void run();

    fuse_session* const session_;
    mutable std::mutex mutex_;  // guards the fields below; not held while the kernel is called
    std::condition_variable changed_;
    std::vector<Invalidation> queue_;
    bool sending_ = false;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace vorlinden::mount
