// How things stand, from what lies on this machine alone: no request goes out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "linux/host/base_url.h"
#include "linux/host/host_state.h"
#include "platform/system.h"
#include "synckit/apply/brain_sync_status.h"
#include "synckit/catalogue/records.h"

namespace vorlinden::host {

struct BrainStatus {
    BrainRecord brain;
    BrainSyncStatus sync;
    std::size_t files = 0;
    std::size_t folders = 0;
    std::size_t waiting = 0;  // journal rows
};

// A journal row.
struct WaitingChange {
    std::string what;  // "new content of notes/a.md"
    platform::Timestamp since;
    std::string why;
};

// A file or folder whose last change was refused.
struct ItemTrouble {
    std::string place;  // "notes/a.md"
    std::string message;
};

// What a script acts on.
enum class Standing { inStep, somethingWaits, needsPerson };

// What the daemon tells of itself. The host doesn't know the daemon: whoever wants both fills this in.
struct MountStatus {
    std::string mountPoint;
    std::string server;                  // "unknown", "reachable", "unreachable", "signed out"
    std::optional<std::string> trouble;  // why listings can't be had now
    struct FailedFetch {
        std::string path;  // below the mount point
        std::string sentence;
        platform::Timestamp at;
    };
    std::optional<FailedFetch> failedFetch;  // the last one
    // What its operations have waited for the execution lock.
    std::int64_t lockOperations = 0;
    std::int64_t lockMilliseconds = 0;
};

struct Status {
    bool signedIn = false;
    std::optional<std::string> signInProblem;  // why the stored session doesn't read
    BaseURLSetting server;
    std::optional<std::string> deviceId;
    std::optional<std::string> deviceName;
    std::vector<BrainStatus> brains;
    std::vector<WaitingChange> waiting;          // those of brains that are gone among them
    std::optional<platform::Timestamp> nextTry;  // when they are tried again, if not with the next round
    std::vector<ItemTrouble> troubles;
    std::size_t recovered = 0;  // files in recoveredFolder
    std::string recoveredFolder;
    bool syncRuns = false;
    std::optional<std::string> roundFailure;  // why the last round could not be held
    std::optional<MountStatus> mount;         // absent: nothing is mounted

    // Of all brains together.
    BrainSyncStatus::State overall() const;
    Standing standing() const;
};

// A catalogue that isn't there is none of the failures: nothing was ever pulled. Throws CatalogueUnusable.
Status gatherStatus(const platform::System& system, const platform::Folders& folders);

// For a script: one line of JSON.
std::string statusJSON(const Status& status);
// For a person: some lines.
std::string statusText(const Status& status, platform::Timestamp now);

// "just now", "5 minutes ago", "2 days ago".
std::string ageText(platform::Timestamp then, platform::Timestamp now);

}  // namespace vorlinden::host
