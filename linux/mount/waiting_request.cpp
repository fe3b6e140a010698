#include "linux/mount/waiting_request.h"

#include <cerrno>
#include <utility>

#include "linux/mount/fuse_operations.h"

namespace vorlinden::mount {

WaitingRequest::WaitingRequest(WaitingRequests& all, std::uint64_t number, FuseReply reply)
    : all_(all), number_(number), reply_(std::move(reply)) {}

WaitingRequest::~WaitingRequest() {
    std::lock_guard hold(all_.mutex_);
    all_.requests_.erase(number_);
}

std::optional<FuseReply> WaitingRequest::take() {
    std::lock_guard hold(mutex_);
    std::optional<FuseReply> reply;
    if (reply_) reply.emplace(*std::move(reply_));
    reply_.reset();
    wait_.reset();
    return reply;
}

void WaitingRequest::waitsFor(std::shared_ptr<ContentStore::Wait> wait) {
    {
        std::lock_guard hold(mutex_);
        if (reply_) wait_.swap(wait);
        if (wait_) return;
    }
    if (wait) wait->cancel();
}

void WaitingRequest::interrupt() {
    std::shared_ptr<ContentStore::Wait> wait;
    {
        std::lock_guard hold(mutex_);
        wait.swap(wait_);
    }
    if (auto reply = take()) reply->error(EINTR);
    if (wait) wait->cancel();
}

std::shared_ptr<WaitingRequest> WaitingRequests::add(FuseReply reply) {
    const fuse_req_t request = reply.request();
    std::unique_lock hold(mutex_);
    const std::uint64_t number = ++last_;
    auto waiting = std::make_shared<WaitingRequest>(*this, number, std::move(reply));
    requests_.emplace(number, waiting);
    hold.unlock();
    // libfuse calls back at once when the interrupt is here already.
    fuse_req_interrupt_func(request, &WaitingRequests::interrupted, reinterpret_cast<void*>(number));
    return waiting;
}

void WaitingRequests::interrupt(std::uint64_t number) {
    std::shared_ptr<WaitingRequest> waiting;
    {
        std::lock_guard hold(mutex_);
        const auto found = requests_.find(number);
        if (found != requests_.end()) waiting = found->second.lock();
    }
    if (waiting) waiting->interrupt();
}

void WaitingRequests::interrupted(fuse_req_t request, void* number) {
    auto& operations = *static_cast<FuseOperations*>(fuse_req_userdata(request));
    operations.waitingRequests().interrupt(reinterpret_cast<std::uint64_t>(number));
}

}  // namespace vorlinden::mount
