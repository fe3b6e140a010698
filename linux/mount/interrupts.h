// Requests that wait and may be given up by their caller (Ctrl-C): the kernel says so with an interrupt.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "linux/mount/content_store.h"
#include "linux/mount/fuse_reply.h"

namespace vorlinden::mount {

// A request that waits for content, and the wait. An interrupt may come while the answer is being given on
// another thread, when libfuse still holds on to what it was given; so it is given a number, and the wait is
// looked up here. Thread-safe; outlives the session.
class Interrupts {
 public:
    // Lets the kernel interrupt `request`, which is not answered before this returns. Gives its number.
    std::uint64_t watch(fuse_req_t request);
    // What an interrupt of that number cancels; if it came already, cancels at once.
    void waitsFor(std::uint64_t number, std::shared_ptr<ContentStore::Wait> wait);
    // The request has been answered.
    void done(std::uint64_t number);

 private:
    struct Request {
        bool interrupted = false;
        std::shared_ptr<ContentStore::Wait> wait;
    };
    static void interrupted(fuse_req_t request, void* number);
    void interrupt(std::uint64_t number);

    std::mutex mutex_;  // guards what follows; nothing is called with it held
    std::uint64_t last_ = 0;
    std::unordered_map<std::uint64_t, Request> requests_;
};

}  // namespace vorlinden::mount
