#include "synckit/container/execution_line.h"

#include <algorithm>
#include <exception>
#include <map>
#include <utility>

namespace vorlinden {

std::shared_ptr<ExecutionLine> ExecutionLine::of(const std::filesystem::path& lockFile) {
    static std::mutex mutex;
    static std::map<std::filesystem::path, std::weak_ptr<ExecutionLine>> lines;
    std::lock_guard hold(mutex);
    std::erase_if(lines, [](const auto& entry) { return entry.second.expired(); });
    std::weak_ptr<ExecutionLine>& line = lines[lockFile];
    auto found = line.lock();
    if (!found) line = found = std::make_shared<ExecutionLine>();
    return found;
}

Task<ExecutionLine::Turn> ExecutionLine::wait() {
    const auto self = shared_from_this();
    if (const Call call = self->enter()) {
        try {
            co_await call->wait();
        } catch (const CancelledError&) {
            self->leave(call);
            throw;
        }
    }
    co_return Turn(self);
}

ExecutionLine::Call ExecutionLine::enter() {
    std::lock_guard hold(mutex_);
    if (!std::exchange(taken_, true)) return nullptr;
    return waiting_.emplace_back(std::make_shared<platform::Signal>());
}

// The call may have come together with the cancellation; then it belongs to the next one.
void ExecutionLine::leave(const Call& call) {
    {
        std::lock_guard hold(mutex_);
        const auto place = std::find(waiting_.begin(), waiting_.end(), call);
        if (place != waiting_.end()) {
            waiting_.erase(place);
            return;
        }
    }
    callNext();
}

void ExecutionLine::callNext() {
    Call next;
    {
        std::lock_guard hold(mutex_);
        if (waiting_.empty()) {
            taken_ = false;
            runBegan_.reset();
            return;
        }
        next = std::move(waiting_.front());
        waiting_.pop_front();
    }
    next->set();
}

bool ExecutionLine::mustPause(Timestamp now) {
    std::lock_guard hold(mutex_);
    if (!runBegan_) runBegan_ = now;
    const bool hasRunLong = now < *runBegan_ || now - *runBegan_ > longestRun;  // the clock may jump
    if (hasRunLong) runBegan_ = now;
    return hasRunLong;
}

}  // namespace vorlinden
