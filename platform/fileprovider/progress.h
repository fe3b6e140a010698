// The progress of one operation, and the way to give it up.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>

namespace vorlinden::platform::fileprovider {

// Shared by the operation, which reports, and the caller, who watches or cancels. Thread-safe. The
// cancellation handler runs at most once, on the thread that cancels, outside the object's lock; set after
// cancel(), it runs at once.
class Progress {
 public:
    explicit Progress(std::int64_t totalUnitCount) : total_(totalUnitCount) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    std::int64_t totalUnitCount() const;
    std::int64_t completedUnitCount() const;
    void setCompletedUnitCount(std::int64_t count);
    void setCancellationHandler(std::function<void()> handler);
    void cancel();
    bool isCancelled() const;

 private:
    mutable std::mutex mutex_;  // guards the fields below
    std::int64_t total_;
    std::int64_t completed_ = 0;
    bool cancelled_ = false;
    std::function<void()> handler_;
};

}  // namespace vorlinden::platform::fileprovider
