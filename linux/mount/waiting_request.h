// Requests that have to wait, and may be given up by their caller (Ctrl-C): the kernel says so with an
// interrupt.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "linux/mount/content_store.h"
#include "linux/mount/fuse_reply.h"

namespace vorlinden::mount {

class WaitingRequests;

// A request between its question and its answer. It is answered by whoever takes the reply: the answer, or an
// interrupt, which answers EINTR and ends the wait. Shared; thread-safe; its registry outlives it.
class WaitingRequest {
 public:
    WaitingRequest(WaitingRequests& all, std::uint64_t number, FuseReply reply);
    ~WaitingRequest();
    WaitingRequest(const WaitingRequest&) = delete;
    WaitingRequest& operator=(const WaitingRequest&) = delete;

    // The reply, for the one who comes first; absent for everybody after.
    std::optional<FuseReply> take();
    // What an interrupt cancels; if it came already, cancelled at once.
    void waitsFor(std::shared_ptr<ContentStore::Wait> wait);
    void interrupt();

 private:
    WaitingRequests& all_;
    const std::uint64_t number_;
    std::mutex mutex_;  // guards what follows; nothing is called with it held
    std::optional<FuseReply> reply_;
    std::shared_ptr<ContentStore::Wait> wait_;
};

// An interrupt may come while the answer is being given on another thread, when libfuse still holds on to
// what it was given; so it is given a number, and the request is looked up here. Thread-safe; outlives the
// session.
class WaitingRequests {
 public:
    std::shared_ptr<WaitingRequest> add(FuseReply reply);
    void interrupt(std::uint64_t number);

 private:
    friend class WaitingRequest;
    static void interrupted(fuse_req_t request, void* number);

    std::mutex mutex_;  // guards what follows; nothing is called with it held
    std::uint64_t last_ = 0;
    std::unordered_map<std::uint64_t, std::weak_ptr<WaitingRequest>> requests_;
};

}  // namespace vorlinden::mount
