// Named wake-ups between the processes of one user: no payload, fire and forget, lost when nobody listens.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace vorlinden::platform {

class NotificationCenter {
 public:
    // Dropping it ends the listening; no call of the listener runs or begins after the destructor returned.
    class Registration {
     public:
        virtual ~Registration() = default;
    };

    virtual ~NotificationCenter() = default;
    // Never fails and never blocks for long; the result is not looked at.
    virtual void post(const std::string& name) noexcept = 0;
    // `listener` runs on a thread of the centre's, once for one or several posts. Throws FileError when the
    // machine refuses (out of inotify watches, say).
    virtual std::unique_ptr<Registration> listen(const std::string& name, std::function<void()> listener) = 0;
};

// One file per name in `folder`, watched with inotify(7).
std::shared_ptr<NotificationCenter> fileNotificationCenter(const std::string& folder);

}  // namespace vorlinden::platform
