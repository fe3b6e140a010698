// Asynchronous operations: coroutines of Boost.Asio under the system's own rules of cancellation.
//
// A coroutine that outlives the caller's full expression takes its parameters by value. Cancellation is asked
// for by a task's owner through TaskHandle and felt only inside the waiting primitives (Timers::sleep,
// URLSession::send, Signal::wait, checkCancellation): each of them throws CancelledError, and nothing else
// does. So code between two of them is never torn apart, and a `catch` sees one type.
#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <utility>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>

#include "platform/failure.h"

namespace vorlinden::platform {

template <class T = void>
using Task = boost::asio::awaitable<T>;
using Executor = boost::asio::any_io_executor;

// Throws CancelledError if cancel() has been called for the running task, on whatever thread. The other
// primitives begin with it, so none of them succeeds that is entered after cancel() has returned.
Task<> checkCancellation();

// Cancels a running task from any thread, any number of times. Holding it keeps neither the task nor its
// executor alive; after the task has ended, cancelling does nothing. The executor must not be destroyed while
// cancel() runs.
class TaskHandle {
 public:
    TaskHandle() = default;  // of no task: cancelling it does nothing
    void cancel() const;

 private:
    struct State;
    explicit TaskHandle(const std::shared_ptr<State>& state) : state_(state) {}
    friend TaskHandle spawn(Executor, std::function<Task<>()>, std::function<void(std::exception_ptr)>);
    std::weak_ptr<State> state_;
};

// Starts `body` as an independent task on a strand of its own over `executor`, never on the calling thread
// before spawn() has returned, so a caller may hold a small lock. `finished` is called exactly
// once on that strand when the task has ended and `body` is gone, with what it threw or null; it must not
// throw.
TaskHandle spawn(Executor executor, std::function<Task<>()> body,
                 std::function<void(std::exception_ptr)> finished);

// Runs `body` to its end and gives its outcome, blocking the calling thread: for a program's `main` and for
// tests. Must not be called on a thread of `executor`.
void runBlocking(Executor executor, std::function<Task<>()> body);

template <class T>
T runBlocking(Executor executor, std::function<Task<T>()> body);

// Something that happens once, for which any number of tasks may wait. A value of shared state; thread-safe.
class Signal {
 public:
    Signal();
    void set();
    bool isSet() const;
    // Returns when set; CancelledError when the waiting task is cancelled first (other waiters aren't
    // touched).
    Task<> wait() const;

 private:
    struct State;
    static Task<> waitFor(std::shared_ptr<State> state);
    std::shared_ptr<State> state_;
};

// A pool of threads that runs tasks. Joins them in its destructor, after all its work has ended; so the
// destructor must not run on one of them, and somebody has to cancel tasks that would wait for ever.
class TaskPool {
 public:
    explicit TaskPool(unsigned threads);
    ~TaskPool();
    TaskPool(const TaskPool&) = delete;
    TaskPool& operator=(const TaskPool&) = delete;
    Executor executor() const;
    // Waits until all its work has ended, but no longer than `patience`; whether it has. Nothing may be
    // spawned from outside any more.
    bool finish(std::chrono::milliseconds patience);

 private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace vorlinden::platform

namespace vorlinden::platform {
template <class T>
T runBlocking(Executor executor, std::function<Task<T>()> body) {
    std::shared_ptr<T> value;
    runBlocking(std::move(executor), std::function<Task<>()>([&value, &body]() -> Task<> {
                    value = std::make_shared<T>(co_await body());
                }));
    return std::move(*value);
}
}  // namespace vorlinden::platform
