#include "tests/support/recording_notification_center.h"

#include <algorithm>

namespace vorlinden::tests {

class RecordingNotificationCenter::Ended final : public Registration {
 public:
    Ended(std::shared_ptr<Listeners> listeners,
          std::multimap<std::string, std::function<void()>>::iterator entry)
        : listeners_(std::move(listeners)), entry_(entry) {}
    ~Ended() override {
        const std::lock_guard lock(listeners_->mutex);
        listeners_->all.erase(entry_);
    }

 private:
    std::shared_ptr<Listeners> listeners_;
    std::multimap<std::string, std::function<void()>>::iterator entry_;
};

void RecordingNotificationCenter::post(const std::string& name) noexcept {
    {
        const std::lock_guard lock(mutex_);
        posted_.push_back(name);
    }
    const std::lock_guard lock(listeners_->mutex);
    std::vector<std::function<void()>> called;
    const auto [first, last] = listeners_->all.equal_range(name);
    std::transform(first, last, std::back_inserter(called), [](const auto& entry) { return entry.second; });
    for (const auto& listener : called)
        listener();
}

std::unique_ptr<platform::NotificationCenter::Registration> RecordingNotificationCenter::listen(
    const std::string& name, std::function<void()> listener) {
    const std::lock_guard lock(listeners_->mutex);
    return std::make_unique<Ended>(listeners_, listeners_->all.emplace(name, std::move(listener)));
}

std::vector<std::string> RecordingNotificationCenter::posted() const {
    const std::lock_guard lock(mutex_);
    return posted_;
}

std::size_t RecordingNotificationCenter::count(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::ranges::count(posted_, name));
}

}  // namespace vorlinden::tests
