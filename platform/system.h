// Everything that the library and the extension take from the machine, in one value.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/files.h"
#include "platform/http.h"
#include "platform/notifications.h"
#include "platform/seams.h"
#include "platform/secrets.h"
#include "platform/shared_defaults.h"
#include "platform/task.h"

namespace vorlinden::platform {

namespace fileprovider {
class Manager;
struct Domain;
}  // namespace fileprovider

// A value; every member is shared and thread-safe. Held by whoever needs it; `main`, a test or a simulation
// makes it.
struct System {
    Executor executor;
    std::shared_ptr<Clock> clock;
    std::shared_ptr<Timers> timers;
    std::shared_ptr<Random> random;
    std::shared_ptr<FileSystem> files;
    std::shared_ptr<SecretStore> secrets;
    std::shared_ptr<NotificationCenter> notifications;
    // The folder shared by the processes of a group; absent if there is none. Throws FileError when it can't
    // be made.
    std::function<std::optional<std::filesystem::path>(const std::string& group)> groupContainer;
    // The settings of a group; null if there are none.
    std::function<std::shared_ptr<SharedDefaults>(const std::string& group)> sharedDefaults;
    // A fresh session for requests.
    std::function<std::shared_ptr<URLSession>()> urlSession;
    // The manager of a file provider domain; null if it can't be had.
    std::function<std::shared_ptr<fileprovider::Manager>(const fileprovider::Domain&)> managerForDomain;
    // The machine's name as its user knows it.
    std::string deviceName;
};

// Where this user's files of the product lie (XDG Base Directory). Environment variables are read once, here.
struct Folders {
    std::filesystem::path data;    // $XDG_DATA_HOME/vorlinden: group containers, secrets
    std::filesystem::path config;  // $XDG_CONFIG_HOME/vorlinden: shared settings
    std::filesystem::path state;   // $XDG_STATE_HOME/vorlinden: the daemon's own state, wake-ups
    std::filesystem::path cache;   // $XDG_CACHE_HOME/vorlinden: content that can be fetched again
    static Folders ofUser();
};

// The real machine over `folders`, running tasks on `executor`.
System linuxSystem(Executor executor, const Folders& folders);

}  // namespace vorlinden::platform
