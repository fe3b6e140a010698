// One thread's executor, driven by the test itself: nothing runs in between, and nothing can hang.
#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <variant>

#include <boost/asio/io_context.hpp>

#include "platform/task.h"

namespace vorlinden::tests {

// A task that a test has started on a TestLoop. A value of shared state.
template <class T = void>
class StartedTask {
 public:
    bool done() const { return outcome_->done; }
    void cancel() const { handle_.cancel(); }
    // What the task gave or threw. std::logic_error if it hasn't ended: it waits for something that the test
    // has not brought about.
    T result() const {
        if (!done()) throw std::logic_error("the task is still waiting");
        if (outcome_->failure) std::rethrow_exception(outcome_->failure);
        if constexpr (!std::is_void_v<T>) return std::move(*outcome_->value);
    }

 private:
    friend class TestLoop;
    using Value = std::conditional_t<std::is_void_v<T>, std::monostate, T>;
    struct Outcome {
        bool done = false;
        std::exception_ptr failure;
        std::optional<Value> value;
    };
    std::shared_ptr<Outcome> outcome_ = std::make_shared<Outcome>();
    platform::TaskHandle handle_;
};

// Not thread-safe. Tasks that still wait when it goes are destroyed with it, so it must go before what they
// refer to.
class TestLoop {
 public:
    platform::Executor executor() { return context_.get_executor(); }

    // Runs all that can run now.
    void runUntilIdle() {
        context_.restart();
        context_.poll();
    }

    // Runs one piece of work between two waits, if there is any.
    bool step() {
        context_.restart();
        return context_.poll_one() != 0;
    }

    // Starts `body` (a callable that gives a Task<T>) and runs until idle.
    template <class Body>
    auto start(Body body) {
        using T = typename std::invoke_result_t<Body&>::value_type;
        StartedTask<T> task;
        task.handle_ = platform::spawn(
            executor(), [outcome = task.outcome_, body] { return keep<T>(outcome, body); },
            [outcome = task.outcome_](std::exception_ptr failure) {
                outcome->failure = std::move(failure);
                outcome->done = true;
            });
        runUntilIdle();
        return task;
    }

    // The outcome of a task that needs nothing from outside.
    template <class Body>
    auto run(Body body) {
        return start(std::move(body)).result();
    }

 private:
    template <class T, class Outcome, class Body>
    static platform::Task<> keep(std::shared_ptr<Outcome> outcome, Body body) {
        if constexpr (std::is_void_v<T>) {
            co_await body();
        } else {
            outcome->value.emplace(co_await body());
        }
    }

    boost::asio::io_context context_{1};
};

}  // namespace vorlinden::tests
