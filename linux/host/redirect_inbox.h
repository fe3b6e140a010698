// How the browser's redirect reaches the sign-in that waits for it: the desktop starts `vorlinden open-url
// URL`, which hands the URL over to the waiting process.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "linux/host/alarm.h"
#include "platform/data.h"
#include "platform/files.h"
#include "platform/notifications.h"
#include "platform/system.h"
#include "platform/task.h"

namespace vorlinden::host {

// The waiting side. At most one waits per user: that it does is a lock on a file, so that a dead one is never
// waited on. The hand-over is a file of mode 0600 and a wake-up.
class RedirectInbox {
 public:
    // Throws SignInError (alreadyWaiting) and FileError. What an earlier sign-in left behind is removed.
    RedirectInbox(const platform::System& system, const std::filesystem::path& stateFolder);

    // The URL handed over, also one that came before this call. CancelledError. The object outlives the task.
    platform::Task<std::string> receive();

    // The other side: false if nobody waits. Throws FileError.
    static bool deliver(const platform::System& system, const std::filesystem::path& stateFolder,
                        const std::string& url);

 private:
    const platform::System system_;
    const std::filesystem::path file_;
    const std::unique_ptr<platform::LockFile> lock_;
    const std::shared_ptr<Alarm> alarm_ = std::make_shared<Alarm>();
    std::unique_ptr<platform::NotificationCenter::Registration> registration_;
};

}  // namespace vorlinden::host
