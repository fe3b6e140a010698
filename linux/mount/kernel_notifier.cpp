#define FUSE_USE_VERSION 314
#include "linux/mount/kernel_notifier.h"

#include <iterator>
#include <utility>

#include <fuse_lowlevel.h>

namespace vorlinden::mount {

namespace {

// The kernel answers ENOENT for what it doesn't know; that is as good as done.
struct Send {
    fuse_session* session;

    void operator()(const EntryChanged& entry) const {
        fuse_lowlevel_notify_inval_entry(session, entry.folder, entry.name.data(), entry.name.size());
    }
    void operator()(const EntryDeleted& entry) const {
        fuse_lowlevel_notify_delete(session, entry.folder, entry.inode, entry.name.data(), entry.name.size());
    }
    void operator()(const InodeChanged& inode) const {
        const off_t attributesOnly = -1;
        const off_t wholeFile = 0;
        fuse_lowlevel_notify_inval_inode(session, inode.inode, inode.data ? wholeFile : attributesOnly, 0);
    }
};

}  // namespace

KernelNotifier::KernelNotifier(fuse_session* session) : session_(session), thread_([this] { run(); }) {}

void KernelNotifier::stop() {
    {
        std::lock_guard hold(mutex_);
        stopping_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) thread_.join();
}

void KernelNotifier::notify(std::vector<Invalidation> invalidations) {
    {
        std::lock_guard hold(mutex_);
        queue_.insert(queue_.end(), std::make_move_iterator(invalidations.begin()),
                      std::make_move_iterator(invalidations.end()));
    }
    changed_.notify_one();
}

bool KernelNotifier::isIdle() const {
    std::lock_guard hold(mutex_);
    return queue_.empty() && !sending_;
}

void KernelNotifier::run() {
    std::unique_lock hold(mutex_);
    while (true) {
        changed_.wait(hold, [this] { return stopping_ || !queue_.empty(); });
        if (stopping_) return;
        const std::vector<Invalidation> batch = std::exchange(queue_, {});
        sending_ = true;
        hold.unlock();
        for (const Invalidation& invalidation : batch) {
            std::visit(Send{session_}, invalidation);
            hold.lock();
            const bool goOn = !stopping_;
            hold.unlock();
            if (!goOn) break;
        }
        hold.lock();
        sending_ = false;
    }
}

}  // namespace vorlinden::mount
