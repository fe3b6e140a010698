// Wake-ups inside one test.
#pragma once

#include <map>
#include <mutex>
#include <vector>

#include "platform/notifications.h"

namespace vorlinden::tests {

// Remembers what was posted and calls the listeners of that name at once, on the posting thread. Thread-safe.
class RecordingNotificationCenter final : public platform::NotificationCenter {
 public:
    void post(const std::string& name) noexcept override;
    std::unique_ptr<Registration> listen(const std::string& name, std::function<void()> listener) override;

    std::vector<std::string> posted() const;  // all names, in order
    std::size_t count(const std::string& name) const;

 private:
    struct Listeners {
        std::recursive_mutex mutex;  // guards `all`; held while a listener runs, so that ending waits for it
        std::multimap<std::string, std::function<void()>> all;
    };
    class Ended;

    std::shared_ptr<Listeners> listeners_ = std::make_shared<Listeners>();
    mutable std::mutex mutex_;  // guards posted_
    std::vector<std::string> posted_;
};

}  // namespace vorlinden::tests
