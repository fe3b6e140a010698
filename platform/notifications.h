// Named wake-ups between the processes of one user: no payload, fire and forget, lost when nobody listens.
// A name may be that of a file: not empty, no "/" in it, no "." at its start.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace vorlinden::platform {

class NotificationCenter {
 public:
    // Dropping it ends the listening; no call of the listener runs or begins after the destructor returned
    // (but for the one that drops it). So it is not to be dropped under a lock that the listener takes.
    class Registration {
     public:
        virtual ~Registration() = default;
    };

    virtual ~NotificationCenter() = default;
    // Never fails and never blocks for long; the result is not looked at.
    virtual void post(const std::string& name) noexcept = 0;
    // `listener` runs on a thread of the centre's, once for one or several posts, sometimes for none; it must
    // not throw. Throws FileError when the machine refuses (out of inotify watches, say).
    virtual std::unique_ptr<Registration> listen(const std::string& name, std::function<void()> listener) = 0;
};

// One file per name in `folder`, watched with inotify(7). Only who listens makes files; a post touches what
// is there. The centre has one thread, from the first listen() on, and ends it in its destructor, which must
// not run in a listener; registrations may outlive it.
std::shared_ptr<NotificationCenter> fileNotificationCenter(const std::string& folder);

}  // namespace vorlinden::platform
