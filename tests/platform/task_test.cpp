#include "platform/task.h"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/seams.h"
#include "tests/support/manual_timers.h"
#include "tests/support/test_loop.h"

namespace vorlinden::platform {
namespace {

using namespace std::chrono_literals;

// What tasks came to, counted from any thread.
struct Tally {
    std::atomic<int> returned{0}, cancelled{0}, failed{0}, all{0};

    std::function<void(std::exception_ptr)> counter() {
        return [this](std::exception_ptr outcome) {
            try {
                if (outcome) std::rethrow_exception(outcome);
                ++returned;
            } catch (const CancelledError&) {
                ++cancelled;
            } catch (...) {
                ++failed;
            }
            ++all;
            all.notify_all();
        };
    }
    void waitFor(int count) {
        for (int now = all; now < count; now = all)
            all.wait(now);
    }
};

TEST(Spawn, HandsOverTheOutcomeOnceAndKeepsCapturesUntilTheBodyHasEnded) {
    tests::TestLoop loop;
    Signal mayEnd;
    auto captured = std::make_shared<int>(7);
    const std::weak_ptr<int> watched = captured;
    int seen = 0, ends = 0;
    const auto body = [&seen, mayEnd](std::shared_ptr<int> mine) -> Task<> {
        co_await mayEnd.wait();
        seen = *mine;
    };
    spawn(
        loop.executor(), [body, captured = std::move(captured)] { return body(captured); },
        [&](std::exception_ptr failure) { ends += !failure && watched.expired() ? 1 : 100; });
    EXPECT_EQ(ends, 0);
    loop.runUntilIdle();
    EXPECT_FALSE(watched.expired());
    mayEnd.set();
    loop.runUntilIdle();
    EXPECT_EQ(seen, 7);
    EXPECT_EQ(ends, 1);
    // Also of a body that fails before it has become a coroutine.
    EXPECT_THROW(loop.run([]() -> Task<int> { throw FileError(5, "x"); }), FileError);
}

TEST(Spawn, NeverRunsTheBodyBeforeItReturns) {
    tests::TestLoop loop;
    bool returned = false, late = false;
    loop.run([&]() -> Task<> {
        const auto body = [&]() -> Task<> {
            late = returned;
            co_return;
        };
        spawn(loop.executor(), body, [](std::exception_ptr) {});
        returned = true;
        co_return;
    });
    loop.runUntilIdle();
    EXPECT_TRUE(late);
}

TEST(Cancellation, IsFeltInsideThePrimitivesOnlyAndEachTime) {
    tests::TestLoop loop;
    tests::ManualTimers timers;
    Signal never;
    std::string story;
    const auto felt = [&](std::string name, Task<> wait) -> Task<> {
        try {
            co_await std::move(wait);
        } catch (const CancelledError&) {
            story += name + " ";
        }
    };
    const auto task = loop.start([&]() -> Task<> {
        co_await felt("manual", timers.sleep(1h));
        co_await felt("signal", never.wait());
        co_await felt("system", systemTimers()->sleep(1h));
        co_await checkCancellation();
        story += "not reached";
    });
    EXPECT_FALSE(task.done());
    task.cancel();
    task.cancel();
    loop.runUntilIdle();
    EXPECT_THROW(task.result(), CancelledError);
    EXPECT_EQ(story, "manual signal system ");
    task.cancel();  // of an ended task: nothing
    TaskHandle().cancel();
    loop.runUntilIdle();
}

TEST(Cancellation, RaceOfManyThreadsEndsEveryTaskOnce) {
    constexpr int count = 400, threads = 4;
    Tally tally;
    TaskPool pool(3);
    Signal open;
    std::vector<TaskHandle> handles;
    for (int i = 0; i < count; ++i) {
        const auto body = [i, open]() -> Task<> {
            if (i % 2 == 0) co_await open.wait();
            co_await systemTimers()->sleep(i % 4 < 2 ? 1h : 0ns);
        };
        handles.push_back(spawn(pool.executor(), body, tally.counter()));
    }
    std::vector<std::jthread> cancellers;
    for (int thread = 0; thread < threads; ++thread) {
        cancellers.emplace_back([&, thread] {
            if (thread == 0) open.set();
            for (const TaskHandle& handle : handles)
                handle.cancel();
        });
    }
    cancellers.clear();
    tally.waitFor(count);
    EXPECT_EQ(tally.all, count);
    EXPECT_EQ(tally.failed, 0);
    EXPECT_GE(tally.cancelled, count / 2);  // those that would have slept for an hour
}

TEST(TaskPools, KeepEachTaskToItselfAndEndOnlyAfterTheirWork) {
    constexpr int count = 50;
    Tally tally;
    int steps[count] = {};
    Signal last;
    TaskPool pool(4);
    for (int& mine : steps) {
        const auto body = [&mine, last]() -> Task<> {
            for (int i = 0; i < 20; ++i) {
                ++mine;  // unguarded: on one strand after another thread's turn
                co_await systemTimers()->sleep(10us);
            }
            co_await last.wait();
        };
        spawn(pool.executor(), body, tally.counter());
    }
    EXPECT_FALSE(pool.finish(0ms));
    last.set();
    EXPECT_TRUE(pool.finish(1h));
    EXPECT_EQ(tally.returned, count);
    EXPECT_EQ(std::vector<int>(steps, steps + count), std::vector<int>(count, 20));
}

TEST(TestLoops, TasksThatStillWaitGoWithTheLoopAndTheirHandlesStayHarmless) {
    Signal signal;
    tests::ManualTimers timers;
    const auto alive = std::make_shared<int>(0);
    std::optional<tests::TestLoop> loop(std::in_place);
    const auto waiter = loop->start([&, alive] { return signal.wait(); });
    const auto sleeper = loop->start([&, alive] { return timers.sleep(1s); });
    EXPECT_THROW(sleeper.result(), std::logic_error);
    loop.reset();
    EXPECT_EQ(alive.use_count(), 1);
    EXPECT_EQ(timers.sleeping(), 0u);
    waiter.cancel();
    signal.set();
}

}  // namespace
}  // namespace vorlinden::platform
