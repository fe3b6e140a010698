#include "platform/task.h"

#include <atomic>
#include <future>
#include <latch>
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
    std::atomic<int> returned{0}, cancelled{0}, failed{0};
    std::atomic<int> all{0};

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

TEST(Spawn, HandsOverResultOrFailureOnceAndKeepsCapturesUntilTheBodyHasEnded) {
    tests::TestLoop loop;
    Signal mayEnd;
    auto captured = std::make_shared<int>(7);
    const std::weak_ptr<int> watched = captured;
    int seen = 0, ends = 0;
    bool goneBeforeEnd = false;
    spawn(
        loop.executor(),
        [&seen, mayEnd, captured = std::move(captured)]() -> Task<> {
            co_await mayEnd.wait();
            seen = *captured;
        },
        [&](std::exception_ptr failure) {
            EXPECT_FALSE(failure);
            goneBeforeEnd = watched.expired();
            ++ends;
        });
    EXPECT_EQ(ends, 0);
    loop.runUntilIdle();
    EXPECT_FALSE(watched.expired());
    mayEnd.set();
    loop.runUntilIdle();
    EXPECT_EQ(seen, 7);
    EXPECT_EQ(ends, 1);
    EXPECT_TRUE(goneBeforeEnd);

    const auto failing = loop.start([]() -> Task<int> {
        throw FileError(5, "x");
        co_return 1;
    });
    EXPECT_THROW(failing.result(), FileError);
    // A body that fails before it has become a coroutine.
    const auto early = loop.start([]() -> Task<int> { throw FileError(5, "x"); });
    EXPECT_THROW(early.result(), FileError);
}

TEST(Spawn, NeverRunsTheBodyBeforeItReturns) {
    tests::TestLoop loop;
    bool inside = false, nested = false;
    loop.run([&]() -> Task<> {
        inside = true;
        spawn(
            loop.executor(),
            [&]() -> Task<> {
                nested = !inside;
                co_return;
            },
            [](std::exception_ptr) {});
        inside = false;
        co_return;
    });
    loop.runUntilIdle();
    EXPECT_TRUE(nested);
}

TEST(Cancellation, IsFeltInsideThePrimitivesOnlyAndEachTime) {
    tests::TestLoop loop;
    tests::ManualTimers timers;
    Signal never;
    std::vector<std::string> story;
    const auto inner = [&]() -> Task<int> {
        story.push_back("inner");
        co_return 1;
    };
    const auto task = loop.start([&]() -> Task<> {
        try {
            co_await timers.sleep(1h);
        } catch (const CancelledError&) {
            story.push_back("sleep");
        }
        co_await inner();  // an ordinary co_await goes through
        try {
            co_await never.wait();
        } catch (const CancelledError&) {
            story.push_back("wait");
        }
        try {
            co_await systemTimers()->sleep(1h);
        } catch (const CancelledError&) {
            story.push_back("system sleep");
        }
        co_await checkCancellation();
        story.push_back("not reached");
    });
    EXPECT_FALSE(task.done());
    task.cancel();
    task.cancel();
    loop.runUntilIdle();
    EXPECT_THROW(task.result(), CancelledError);
    EXPECT_EQ(story, (std::vector<std::string>{"sleep", "inner", "wait", "system sleep"}));
    task.cancel();  // of an ended task: nothing
    loop.runUntilIdle();
}

TEST(Cancellation, RequestedFromInsideIsFeltByTheNextPrimitive) {
    tests::TestLoop loop;
    TaskHandle self;
    bool reached = false;
    std::exception_ptr outcome;
    self = spawn(
        loop.executor(),
        [&]() -> Task<> {
            self.cancel();
            co_await checkCancellation();
            reached = true;
        },
        [&](std::exception_ptr failure) { outcome = failure; });
    loop.runUntilIdle();
    EXPECT_FALSE(reached);
    ASSERT_TRUE(outcome);
    EXPECT_THROW(std::rethrow_exception(outcome), CancelledError);
    TaskHandle().cancel();
}

TEST(Cancellation, RaceOfManyThreadsEndsEveryTaskOnce) {
    constexpr int count = 400, threads = 4;
    Tally tally;
    TaskPool pool(3);
    Signal open;
    std::vector<TaskHandle> handles;
    for (int i = 0; i < count; ++i) {
        handles.push_back(spawn(
            pool.executor(),
            [i, open]() -> Task<> {
                if (i % 2 == 0) co_await open.wait();
                co_await systemTimers()->sleep(i % 4 < 2 ? 1h : 0ns);
            },
            tally.counter()));
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

TEST(SignalWaits, SettingReleasesAllButTheCancelledAndLaterWaitersPass) {
    constexpr int count = 300;
    Tally cancelled, kept;
    TaskPool pool(3);
    Signal signal;
    std::latch waiting(2 * count);
    const auto body = [&waiting, signal]() -> Task<> {
        waiting.count_down();
        co_await signal.wait();
    };
    std::vector<TaskHandle> handles;
    for (int i = 0; i < count; ++i) {
        handles.push_back(spawn(pool.executor(), body, cancelled.counter()));
        spawn(pool.executor(), body, kept.counter());
    }
    waiting.wait();
    for (const TaskHandle& handle : handles)
        handle.cancel();
    cancelled.waitFor(count);
    EXPECT_EQ(cancelled.cancelled, count);
    EXPECT_EQ(kept.all, 0);

    EXPECT_FALSE(signal.isSet());
    std::jthread([&] { signal.set(); });
    kept.waitFor(count);
    EXPECT_EQ(kept.returned, count);
    runBlocking(pool.executor(), std::function<Task<>()>([signal] { return signal.wait(); }));
}

TEST(SignalWaits, RaceOfSetAndCancelLeavesNoWaiterBehind) {
    constexpr int rounds = 200;
    Tally tally;
    TaskPool pool(2);
    for (int round = 0; round < rounds; ++round) {
        Signal signal;
        const TaskHandle handle = spawn(
            pool.executor(), [signal] { return signal.wait(); }, tally.counter());
        std::jthread canceller([&] { handle.cancel(); });
        signal.set();
    }
    tally.waitFor(rounds);
    EXPECT_EQ(tally.returned + tally.cancelled, rounds);
}

TEST(TaskPools, EndOnlyAfterTheirWorkAndKeepEachTaskToItself) {
    constexpr int count = 50;
    Tally tally;
    int steps[count] = {};
    {
        TaskPool pool(4);
        for (int& mine : steps) {
            spawn(
                pool.executor(),
                [&mine]() -> Task<> {
                    for (int i = 0; i < 20; ++i) {
                        ++mine;  // unguarded: on one strand after another thread's turn
                        co_await systemTimers()->sleep(10us);
                    }
                },
                tally.counter());
        }
    }
    EXPECT_EQ(tally.returned, count);
    for (const int mine : steps)
        EXPECT_EQ(mine, 20);
}

TEST(TaskPools, BlockingCallerGetsTheOutcome) {
    TaskPool pool(1);
    const std::function<Task<std::string>()> giving = []() -> Task<std::string> { co_return "done"; };
    const std::function<Task<>()> failing = []() -> Task<> {
        throw FileError(5, "x");
        co_return;
    };
    EXPECT_EQ(runBlocking(pool.executor(), giving), "done");
    EXPECT_THROW(runBlocking(pool.executor(), failing), FileError);
}

TEST(TestLoops, TasksThatStillWaitGoWithTheLoopAndTheirHandlesStayHarmless) {
    Signal signal;
    tests::ManualTimers timers;
    const auto alive = std::make_shared<int>(0);
    TaskHandle handle;
    {
        tests::TestLoop loop;
        handle = spawn(
            loop.executor(),
            [&, alive]() -> Task<> {
                const auto local = alive;
                co_await signal.wait();
            },
            [alive](std::exception_ptr) { ADD_FAILURE() << "it never ended"; });
        const auto sleeper = loop.start([&, alive] { return timers.sleep(1s); });
        EXPECT_FALSE(sleeper.done());
        EXPECT_THROW(sleeper.result(), std::logic_error);
    }
    EXPECT_EQ(alive.use_count(), 1);
    EXPECT_EQ(timers.sleeping(), 0u);
    handle.cancel();
    signal.set();
}

TEST(ManualTime, ReleasesWhoseTimeHasComeInAnyOrderOfStarting) {
    tests::TestLoop loop;
    tests::ManualTimers timers;
    std::vector<int> woken;
    for (const int seconds : {3, 1, 2}) {
        loop.start([&woken, &timers, seconds]() -> Task<> {
            co_await timers.sleep(std::chrono::seconds(seconds));
            woken.push_back(seconds);
        });
    }
    EXPECT_EQ(timers.untilNext(), 1s);
    timers.advance(1s);
    loop.runUntilIdle();
    EXPECT_EQ(woken, std::vector<int>{1});
    EXPECT_EQ(timers.sleeping(), 2u);
    timers.advance(5s);
    loop.runUntilIdle();
    EXPECT_EQ(woken.size(), 3u);
    EXPECT_TRUE(loop.start([&] { return timers.sleep(0s); }).done());
}

}  // namespace
}  // namespace vorlinden::platform
