// What the daemon tells of itself to `vorlinden status`: one small file, replaced atomically at each change,
// and a lock file that is held as long as the daemon lives.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "platform/files.h"
#include "platform/timestamp.h"

namespace vorlinden::mount {

// A value.
struct MountState {
    struct FetchFailure {
        std::string path;      // below the mount point
        std::string sentence;  // why, for a person
        platform::Timestamp at;
        bool operator==(const FetchFailure&) const = default;
    };

    std::string mountPoint;
    std::int64_t processId = 0;
    platform::Timestamp since;
    std::string server = "unknown";               // "unknown", "reachable", "unreachable", "signed out"
    std::optional<std::string> extensionTrouble;  // why listings and content can't be had now
    std::optional<FetchFailure> lastFailedFetch;
    // What its operations have waited for the execution lock, as of the latest other change or the end.
    std::int64_t lockOperations = 0;
    std::int64_t lockMilliseconds = 0;
    bool operator==(const MountState&) const = default;
};

std::filesystem::path mountStateFile(const std::filesystem::path& stateFolder);
std::filesystem::path mountLockFile(const std::filesystem::path& stateFolder);

// The state of the daemon that runs now; absent if none does, or none has said anything yet. Throws
// platform::FileError.
std::optional<MountState> readMountState(platform::FileSystem& files,
                                         const std::filesystem::path& stateFolder);
// Throws platform::FileError.
void writeMountState(platform::FileSystem& files, const std::filesystem::path& stateFolder,
                     const MountState& state);

}  // namespace vorlinden::mount
