// Small settings shared by the processes of a group.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "platform/failure.h"

namespace vorlinden::platform {

// What stands where settings should be is none: to be repaired or removed by a person, since writing over it
// would destroy what they meant.
struct SettingsError : Failure {
    explicit SettingsError(std::string path);
    std::string path;
    bool operator==(const SettingsError&) const = default;
};

// One string per key. Thread-safe, and between processes the last write of a key wins.
class SharedDefaults {
 public:
    virtual ~SharedDefaults() = default;
    // Absent also where the settings can't be read: a reader goes on without them.
    virtual std::optional<std::string> string(const std::string& key) = 0;
    // Absent removes the key. Throws FileError and SettingsError.
    virtual void set(const std::string& key, std::optional<std::string> value) = 0;
};

// One JSON object in `file`, replaced atomically; keys and values of others are kept. No file is no settings;
// the first set() makes it, and its folder.
std::shared_ptr<SharedDefaults> fileSharedDefaults(std::filesystem::path file);

}  // namespace vorlinden::platform
