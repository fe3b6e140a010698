#include "synckit/container/sync_execution_owner.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <deque>
#include <thread>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/fake_system.h"

namespace vorlinden {
namespace {

using namespace std::chrono_literals;
using tests::FakeSystem;
using tests::StartedTask;

// Lock attempts that end as scripted, with a word to the test before each.
class ScriptedLocks final : public tests::HookedFiles {
 public:
    ScriptedLocks() : HookedFiles(platform::posixFileSystem()) {}

    std::deque<int> codes;  // one per attempt; 0 when they run out
    std::function<void()> attempted = [] {};
    int unlocks = 0, open = 0;

    std::unique_ptr<platform::LockFile> openLockFile(const Path&) override {
        return std::make_unique<Lock>(*this);
    }

 private:
    class Lock final : public platform::LockFile {
     public:
        explicit Lock(ScriptedLocks& locks) : locks_(locks) { ++locks_.open; }
        ~Lock() override { --locks_.open; }
        int tryLock() override {
            locks_.attempted();
            if (locks_.codes.empty()) return 0;
            const int code = locks_.codes.front();
            locks_.codes.pop_front();
            return code;
        }
        void unlock() override { ++locks_.unlocks; }

     private:
        ScriptedLocks& locks_;
    };
};

class ExecutionLock : public ::testing::Test {
 protected:
    FakeSystem fake;
    platform::System system = fake.system();
    const SyncExecutionOwner owner{fake.folder / "sync-execution.lock"};
    platform::Signal mayEnd;  // what the bodies of hold() wait for
    int bodies = 0;

    // Takes the lock and keeps it until `mayEnd`.
    StartedTask<> hold() {
        return fake.loop.start([this] {
            return owner.withOwnership(system, [this]() -> Task<> {
                ++bodies;
                co_await mayEnd.wait();
            });
        });
    }
    // Takes the lock and gives `value`.
    StartedTask<int> take(int value) {
        return fake.loop.start([this, value] {
            return owner.withOwnership(system, [this, value]() -> Task<int> {
                ++bodies;
                co_return value;
            });
        });
    }
    void letEnd() {
        mayEnd.set();
        fake.loop.runUntilIdle();
    }
};

TEST_F(ExecutionLock, WaitersPollForAnotherProcessInTurnAndFollowEachOtherAtOnce) {
    const auto elsewhere = system.files->openLockFile(owner.url);  // as another process would hold it
    ASSERT_EQ(elsewhere->tryLock(), 0);
    std::vector<StartedTask<int>> waiters;
    for (int i = 0; i < 100; ++i)
        waiters.push_back(take(i));
    EXPECT_EQ(fake.timers->sleeping(), 1u);  // the first in line asks for all; none of them holds a thread
    EXPECT_EQ(fake.timers->untilNext(), 20ms);
    fake.advance(20ms);
    EXPECT_EQ(bodies, 0);
    waiters[1].cancel();  // leaves the line without holding it up
    fake.loop.runUntilIdle();
    EXPECT_THROW(waiters[1].result(), CancelledError);

    elsewhere->unlock();
    fake.advance(20ms);
    EXPECT_EQ(bodies, 99);
    for (int i = 2; i < 100; ++i)
        EXPECT_EQ(waiters[static_cast<std::size_t>(i)].result(), i);
}

TEST_F(ExecutionLock, LongRunOfOneProcessLeavesItFreeForAnotherNowAndThen) {
    const auto holder = hold();
    const auto first = take(1);
    fake.clock->advance(1s);
    letEnd();
    EXPECT_TRUE(holder.done());
    EXPECT_FALSE(first.done());
    EXPECT_GT(fake.timers->untilNext(), SyncExecutionOwner::pollInterval);
    const auto elsewhere = system.files->openLockFile(owner.url);
    EXPECT_EQ(elsewhere->tryLock(), 0);  // free meanwhile
    elsewhere->unlock();
    fake.advance(25ms);
    EXPECT_EQ(first.result(), 1);
}

TEST_F(ExecutionLock, CancelledWaiterLeavesWithoutDisturbingTheHolder) {
    const auto holder = hold();
    const auto waiter = take(1), second = take(2);
    waiter.cancel();
    fake.advance(20ms);
    EXPECT_THROW(waiter.result(), CancelledError);
    EXPECT_FALSE(second.done());  // still held
    letEnd();
    fake.advance(20ms);
    EXPECT_EQ(second.result(), 2);
    EXPECT_NO_THROW(holder.result());
    EXPECT_EQ(bodies, 2);
}

TEST_F(ExecutionLock, FailureAndCancellationInsideTheBodyPassThroughAndFreeIt) {
    const auto failing = fake.loop.start([this] {
        return owner.withOwnership(system, []() -> Task<> {
            throw FileError(ENOSPC, "spool");
            co_return;
        });
    });
    EXPECT_THROW(failing.result(), FileError);
    const auto holder = hold();
    holder.cancel();
    fake.loop.runUntilIdle();
    EXPECT_THROW(holder.result(), CancelledError);
    EXPECT_EQ(take(3).result(), 3);  // at once
    EXPECT_EQ(std::filesystem::file_size(owner.url), 0u);
}

TEST_F(ExecutionLock, InterruptedAttemptsAreRepeatedAndWhateverEndsTheWaitGivesItBack) {
    const auto locks = std::make_shared<ScriptedLocks>();
    system.files = locks;
    locks->codes = {EINTR, EWOULDBLOCK, 0};
    const auto patient = take(1);
    fake.advance(20ms);
    EXPECT_FALSE(patient.done());
    fake.advance(20ms);
    EXPECT_EQ(patient.result(), 1);

    locks->codes = {EWOULDBLOCK, ENOLCK};
    const auto refused = take(2);
    fake.advance(20ms);
    EXPECT_THROW(refused.result(), FileError);

    locks->codes = {EWOULDBLOCK};
    const auto cancelled = take(3);
    locks->attempted = [&cancelled] { cancelled.cancel(); };  // between lock and body
    fake.advance(20ms);
    EXPECT_THROW(cancelled.result(), CancelledError);
    EXPECT_EQ(bodies, 1);
    EXPECT_EQ(locks->unlocks, 2);
    EXPECT_EQ(locks->open, 0);
}

// Runs `body` in a process of its own, on two real threads and with the real clock; its exit status is 0 if
// it returned.
template <class Body>
pid_t inAnotherProcess(platform::System system, Body body) {
    const pid_t child = ::fork();
    if (child != 0) return child;
    try {
        platform::TaskPool pool(2);
        system.executor = pool.executor();
        system.timers = platform::systemTimers();
        body(system);
    } catch (...) {
        ::_exit(1);
    }
    ::_exit(0);
}

int exitStatusOf(pid_t child) {
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(ExecutionLock, DeathOfTheHoldingProcessFreesIt) {
    const auto held = fake.folder / "held";
    const pid_t child = inAnotherProcess(system, [&](const platform::System& there) {
        const auto body = [&]() -> Task<> {
            there.files->writeAtomically(Data(), held);
            co_await platform::Signal().wait();
        };
        const auto operation = [&] { return owner.withOwnership(there, body); };
        platform::runBlocking(there.executor, std::function<Task<>()>(operation));
    });
    while (!system.files->exists(held))
        std::this_thread::yield();
    const auto waiter = take(1);
    fake.advance(20ms);
    EXPECT_FALSE(waiter.done());
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    EXPECT_EQ(exitStatusOf(child), -1);
    fake.advance(20ms);
    EXPECT_EQ(waiter.result(), 1);
}

TEST_F(ExecutionLock, NoTwoBodiesOverlapInOrBetweenProcesses) {
    struct Shared {
        std::atomic<int> inside{0};
        std::atomic<int> overlaps{0};
        int rounds = 0;  // guarded by the lock under test
    };
    void* memory = ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    auto* shared = new (memory) Shared;

    constexpr int processes = 3, tasks = 4, rounds = 5;
    std::vector<pid_t> children;
    for (int process = 0; process < processes; ++process) {
        children.push_back(inAnotherProcess(system, [&](const platform::System& there) {
            const auto round = [&]() -> Task<> {
                if (shared->inside.fetch_add(1) != 0) ++shared->overlaps;
                const int before = shared->rounds;
                co_await there.timers->sleep(1ms);
                shared->rounds = before + 1;
                shared->inside.fetch_sub(1);
            };
            const auto task = [&]() -> Task<> {
                for (int i = 0; i < rounds; ++i)
                    co_await owner.withOwnership(there, round);
            };
            std::vector<std::jthread> threads;
            for (int i = 0; i < tasks; ++i)
                threads.emplace_back(
                    [&] { platform::runBlocking(there.executor, std::function<Task<>()>(task)); });
        }));
    }
    for (const pid_t child : children)
        EXPECT_EQ(exitStatusOf(child), 0);
    EXPECT_EQ(shared->overlaps.load(), 0);
    EXPECT_EQ(shared->rounds, processes * tasks * rounds);
    ::munmap(memory, sizeof(Shared));
}

}  // namespace
}  // namespace vorlinden
