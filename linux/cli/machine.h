// The real machine, wired for one run of the program.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "platform/system.h"
#include "platform/task.h"

namespace vorlinden::cli {

// Folders, threads and platform of this process. Made on the main thread before any other thread, since it
// blocks SIGINT and SIGTERM for all of them; runInterruptibly() then waits for those signals.
class Machine {
 public:
    Machine();
    // Work that nobody waits for, such as the refresh of a sign-in whose answer would be lost, gets a moment
    // to end. Whatever is still there after that keeps its threads until the process ends.
    ~Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    // Whether there is such work, so that the process has to end without unmaking what it may use.
    static bool hasLeftWorkBehind();

    const platform::Folders folders;

 private:
    std::unique_ptr<platform::TaskPool> pool_;

 public:
    const platform::System system;

    // Runs `body` to its end and rethrows its failure. The first SIGINT or SIGTERM cancels it, so that it
    // ends with CancelledError; the same one again ends the process at once.
    void runInterruptibly(std::function<platform::Task<>()> body) const;
    // The same, but the first signal calls `ask` (on the main thread), and only if `body` hasn't ended
    // `grace` later is it cancelled.
    void runUntilAsked(std::function<platform::Task<>()> body, std::function<void()> ask,
                       std::chrono::milliseconds grace) const;
};

}  // namespace vorlinden::cli
