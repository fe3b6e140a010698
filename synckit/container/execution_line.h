// Where the operations of one process wait for each other, before the one whose turn it is asks for the lock
// file.
#pragma once

#include <chrono>
#include <deque>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/seams.h"
#include "synckit/types.h"

namespace vorlinden {

// Polling is for other processes. A hundred operations of one process that all polled would find the lock
// taken together and sleep together, while it lies free; in line, the next one has it as soon as the last one
// lets go. One line per lock file in a process; thread-safe.
class ExecutionLine : public std::enable_shared_from_this<ExecutionLine> {
 public:
    // Having it is being first in line. Move-only; the next one is called when it goes.
    class Turn {
     public:
        explicit Turn(std::shared_ptr<ExecutionLine> line) : line_(std::move(line)) {}
        Turn(Turn&&) = default;
        Turn& operator=(Turn&&) = delete;
        ~Turn() {
            if (line_) line_->callNext();
        }

     private:
        std::shared_ptr<ExecutionLine> line_;
    };

    // How long one process may hand the lock from operation to operation before it leaves it free for as long
    // as another process needs to notice.
    static constexpr std::chrono::milliseconds longestRun{250};

    static std::shared_ptr<ExecutionLine> of(const std::filesystem::path& lockFile);

    // First come, first served. CancelledError when the waiting task is cancelled.
    Task<Turn> wait();
    // Whether whoever has the turn must first leave the lock free for a moment.
    bool mustPause(Timestamp now);

 private:
    using Call = std::shared_ptr<platform::Signal>;

    Call enter();  // null: it is one's turn at once
    void leave(const Call& call);
    void callNext();

    std::mutex mutex_;  // guards all below; a small lock
    bool taken_ = false;
    std::deque<Call> waiting_;
    std::optional<Timestamp> runBegan_;  // of turns that followed each other; absent when nobody has one
};

}  // namespace vorlinden
