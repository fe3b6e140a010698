// The real machine, wired for one run of the program.
#pragma once

#include <functional>

#include "platform/system.h"
#include "platform/task.h"

namespace vorlinden::cli {

// Folders, threads and platform of this process. Made on the main thread before any other thread, since it
// blocks SIGINT and SIGTERM for all of them; runInterruptibly() then waits for those signals.
class Machine {
 public:
    Machine();

    const platform::Folders folders;

 private:
    platform::TaskPool pool_;

 public:
    const platform::System system;

    // Runs `body` to its end and rethrows its failure. The first SIGINT or SIGTERM cancels it, so that it
    // ends with CancelledError; a second one ends the process at once.
    void runInterruptibly(std::function<platform::Task<>()> body) const;
};

}  // namespace vorlinden::cli
