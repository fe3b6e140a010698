#include "platform/fileprovider/progress.h"

#include <utility>

namespace vorlinden::platform::fileprovider {

std::int64_t Progress::totalUnitCount() const {
    std::lock_guard hold(mutex_);
    return total_;
}

std::int64_t Progress::completedUnitCount() const {
    std::lock_guard hold(mutex_);
    return completed_;
}

void Progress::setCompletedUnitCount(std::int64_t count) {
    std::lock_guard hold(mutex_);
    completed_ = count;
}

void Progress::setCancellationHandler(std::function<void()> handler) {
    {
        std::lock_guard hold(mutex_);
        if (!cancelled_) {
            handler_.swap(handler);
            return;
        }
    }
    if (handler) handler();
}

void Progress::cancel() {
    std::function<void()> handler;
    {
        std::lock_guard hold(mutex_);
        cancelled_ = true;
        handler.swap(handler_);
    }
    if (handler) handler();
}

bool Progress::isCancelled() const {
    std::lock_guard hold(mutex_);
    return cancelled_;
}

}  // namespace vorlinden::platform::fileprovider
