// One at a time, in the order of coming, without holding a thread.
#pragma once

#include <list>
#include <memory>
#include <mutex>

#include "platform/task.h"

namespace vorlinden::fileprovider {

// Lets the tasks of one process queue for a lock between processes whose waiters only poll: with all of them
// polling, each would sleep through most of the moments at which the lock is free. Held by std::shared_ptr by
// who gives it out; thread-safe.
class Turnstile {
 public:
    // A place in the queue from its construction to its destruction, whatever becomes of its task.
    class Ticket {
     public:
        explicit Ticket(std::shared_ptr<Turnstile> turnstile);
        ~Ticket();
        Ticket(const Ticket&) = delete;
        Ticket& operator=(const Ticket&) = delete;

        // Ends when all who came before have gone. CancelledError.
        platform::Task<> turn() const { return turn_.wait(); }

     private:
        friend class Turnstile;
        const std::shared_ptr<Turnstile> turnstile_;
        platform::Signal turn_;
        std::list<Ticket*>::iterator place_;
    };

 private:
    std::mutex mutex_;          // guards queue_
    std::list<Ticket*> queue_;  // the first one has its turn
};

}  // namespace vorlinden::fileprovider
