#include "platform/task.h"

#include <condition_variable>
#include <future>
#include <list>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace vorlinden::platform {

namespace asio = boost::asio;

Task<> checkCancellation() {
    // cancel() works by a post to the task's strand: after one turn of the strand, one that came before has
    // been heard.
    co_await asio::post(asio::use_awaitable);
    const asio::cancellation_state state = co_await asio::this_coro::cancellation_state;
    if (state.cancelled() != asio::cancellation_type::none) throw CancelledError();
}

// Owned by the task's completion handler, so that it goes with the task. All but `strand` is touched on the
// strand alone: emitting a signal beside a running coroutine is a race.
struct TaskHandle::State {
    explicit State(const Executor& executor) : strand(asio::make_strand(executor)) {}

    asio::strand<Executor> strand;
    asio::cancellation_signal signal;
    bool finished = false;
};

void TaskHandle::cancel() const {
    const std::shared_ptr<State> state = state_.lock();
    if (!state) return;
    asio::post(state->strand, [state] {
        if (!state->finished) state->signal.emit(asio::cancellation_type::terminal);
    });
}

namespace {

// The body is this coroutine's own parameter: what it captures lives until the coroutine has ended.
Task<> runBody(std::function<Task<>()> body) {
    // Asio would otherwise throw an error of its own at every co_await of a cancelled task.
    co_await asio::this_coro::throw_if_cancelled(false);
    co_await body();
}

}  // namespace

TaskHandle spawn(Executor executor, std::function<Task<>()> body,
                 std::function<void(std::exception_ptr)> finished) {
    const auto state = std::make_shared<TaskHandle::State>(executor);
    auto whenEnded = [state, finished = std::move(finished)](std::exception_ptr outcome) {
        state->finished = true;
        finished(outcome);
    };
    // Started on the strand as well: co_spawn() itself connects the signal.
    asio::post(state->strand, [state, body = std::move(body), whenEnded = std::move(whenEnded)]() mutable {
        asio::co_spawn(state->strand, runBody(std::move(body)),
                       asio::bind_cancellation_slot(state->signal.slot(), std::move(whenEnded)));
    });
    return TaskHandle(state);
}

void runBlocking(Executor executor, std::function<Task<>()> body) {
    // Shared, since the task may still be inside set_value() when this thread already goes on.
    const auto ended = std::make_shared<std::promise<void>>();
    std::future<void> outcome = ended->get_future();
    spawn(std::move(executor), std::move(body), [ended](std::exception_ptr failure) {
        if (failure) {
            ended->set_exception(failure);
        } else {
            ended->set_value();
        }
    });
    outcome.get();
}

// Each waiter is a timer without an end, on the waiter's own executor, which set() cuts short there.
struct Signal::State {
    std::mutex mutex;  // guards the fields below; innermost
    bool isSet = false;
    std::list<std::shared_ptr<asio::steady_timer>> waiters;
};

Signal::Signal() : state_(std::make_shared<State>()) {}

void Signal::set() {
    const std::lock_guard lock(state_->mutex);
    state_->isSet = true;
    // Posted under the lock: a waiter that is being destroyed together with its executor has to take the lock
    // first, so the executor is still there.
    for (const auto& waiter : state_->waiters)
        asio::post(waiter->get_executor(), [waiter] { waiter->cancel(); });
    state_->waiters.clear();
}

bool Signal::isSet() const {
    const std::lock_guard lock(state_->mutex);
    return state_->isSet;
}

Task<> Signal::wait() const {
    return waitFor(state_);
}

Task<> Signal::waitFor(std::shared_ptr<State> state) {
    co_await checkCancellation();
    const auto timer = std::make_shared<asio::steady_timer>(co_await asio::this_coro::executor,
                                                            asio::steady_timer::time_point::max());
    struct Registration {
        State& state;
        const std::shared_ptr<asio::steady_timer>& timer;
        ~Registration() {
            const std::lock_guard lock(state.mutex);
            state.waiters.remove(timer);
        }
    };
    {
        const std::lock_guard lock(state->mutex);
        if (state->isSet) co_return;
        state->waiters.push_back(timer);
    }
    const Registration registration{*state, timer};
    boost::system::error_code ended;
    co_await timer->async_wait(asio::redirect_error(asio::use_awaitable, ended));
    {
        const std::lock_guard lock(state->mutex);
        if (state->isSet) co_return;
    }
    throw CancelledError();
}

struct TaskPool::State {
    explicit State(unsigned count) : running(count) {
        for (unsigned i = 0; i < count; ++i)
            threads.emplace_back([this] { run(); });
    }
    void run() {
        context.run();
        const std::lock_guard lock(mutex);
        --running;
        ended.notify_all();
    }

    asio::io_context context;
    std::optional<asio::executor_work_guard<asio::io_context::executor_type>> work{
        asio::make_work_guard(context)};
    std::mutex mutex;  // guards `running`; innermost
    std::condition_variable ended;
    unsigned running;
    std::vector<std::jthread> threads;  // last, so that it ends before the rest goes
};

TaskPool::TaskPool(unsigned threads) : state_(std::make_unique<State>(threads)) {}

TaskPool::~TaskPool() {
    state_->work.reset();
}

bool TaskPool::finish(std::chrono::milliseconds patience) {
    state_->work.reset();
    std::unique_lock lock(state_->mutex);
    return state_->ended.wait_for(lock, patience, [this] { return state_->running == 0; });
}

Executor TaskPool::executor() const {
    return state_->context.get_executor();
}

}  // namespace vorlinden::platform
