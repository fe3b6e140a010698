#define FUSE_USE_VERSION 314
#include "linux/mount/kernel_notifier.h"

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

KernelNotifier::~KernelNotifier() {
    stop();
}

void KernelNotifier::stop() {
    {
        std::lock_guard hold(mutex_);
        stopping_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) thread_.join();
    for (auto& [inode, pending] : std::exchange(pending_, {}))
        for (const auto& then : pending.waiting)
            then();
}

void KernelNotifier::notify(std::vector<Invalidation> invalidations) {
    {
        std::lock_guard hold(mutex_);
        if (stopping_) return;
        for (auto& invalidation : invalidations) {
            if (const auto* inode = std::get_if<InodeChanged>(&invalidation))
                ++pending_[inode->inode].notifications;
            queue_.push_back(std::move(invalidation));
        }
    }
    changed_.notify_one();
}

void KernelNotifier::whenHeard(Inode inode, std::function<void()> then) {
    {
        std::lock_guard hold(mutex_);
        const auto found = pending_.find(inode);
        if (found != pending_.end()) return found->second.waiting.push_back(std::move(then));
    }
    then();
}

void KernelNotifier::run() {
    std::unique_lock hold(mutex_);
    while (true) {
        changed_.wait(hold, [this] { return stopping_ || !queue_.empty(); });
        if (stopping_) return;
        const Invalidation next = std::move(queue_.front());
        queue_.pop_front();
        hold.unlock();
        send(next);
        hold.lock();
    }
}

void KernelNotifier::send(const Invalidation& invalidation) {
    std::visit(Send{session_}, invalidation);
    if (const auto* inode = std::get_if<InodeChanged>(&invalidation)) heard(inode->inode);
}

void KernelNotifier::heard(Inode inode) {
    std::vector<std::function<void()>> waiting;
    {
        std::lock_guard hold(mutex_);
        const auto found = pending_.find(inode);
        if (found == pending_.end() || --found->second.notifications > 0) return;
        waiting = std::move(found->second.waiting);
        pending_.erase(found);
    }
    for (const auto& then : waiting)
        then();
}

}  // namespace vorlinden::mount
