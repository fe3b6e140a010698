#define FUSE_USE_VERSION 314
#include "linux/mount/kernel_notifier.h"

#include <iterator>
#include <utility>

#include <fuse_lowlevel.h>
#include <unistd.h>

namespace vorlinden::mount {

namespace {

constexpr std::uint64_t shortFile = 64 << 10;  // bytes; given to the kernel whole
constexpr std::uint64_t page = 4096;           // bytes

// Up to the last byte, from a place where the kernel can begin a page.
std::uint64_t beginOfEnd(std::uint64_t size) {
    return size <= shortFile ? 0 : (size - 1) / page * page;
}

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

// Where it can't be read or taken, the kernel asks for the bytes as for any.
void store(fuse_session* session, Inode inode, const Content& content) {
    const std::uint64_t begin = beginOfEnd(content.size());
    std::vector<char> bytes(content.size() - begin);
    const auto got = ::pread(content.descriptor(), bytes.data(), bytes.size(), static_cast<off_t>(begin));
    if (got < 0 || static_cast<std::size_t>(got) != bytes.size()) return;
    fuse_bufvec buffer = FUSE_BUFVEC_INIT(bytes.size());
    buffer.buf[0].mem = bytes.data();
    fuse_lowlevel_notify_store(session, inode, static_cast<off_t>(begin), &buffer, {});
}

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
    add({std::move_iterator(invalidations.begin()), std::move_iterator(invalidations.end())});
}

void KernelNotifier::fill(Inode inode, std::shared_ptr<const Content> content) {
    add({Bytes{inode, std::move(content)}});
}

// Whom to wait for, as whenHeard() understands it; 0 for nobody.
Inode KernelNotifier::inodeOf(const News& news) {
    if (const auto* bytes = std::get_if<Bytes>(&news)) return bytes->inode;
    const auto* inode = std::get_if<InodeChanged>(&std::get<Invalidation>(news));
    return inode ? inode->inode : 0;
}

void KernelNotifier::add(std::vector<News> news) {
    {
        std::lock_guard hold(mutex_);
        if (stopping_) return;
        for (auto& one : news) {
            if (const Inode inode = inodeOf(one)) ++pending_[inode].notifications;
            queue_.push_back(std::move(one));
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
        News next = std::move(queue_.front());
        queue_.pop_front();
        hold.unlock();
        send(next);
        if (const Inode inode = inodeOf(next)) heard(inode);
        hold.lock();
    }
}

void KernelNotifier::send(const News& news) {
    if (const auto* invalidation = std::get_if<Invalidation>(&news))
        std::visit(Send{session_}, *invalidation);
    else
        store(session_, std::get<Bytes>(news).inode, *std::get<Bytes>(news).content);
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
