// The names of conflict copies. Pure functions, any thread.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "synckit/conflicts/canonical_path_set.h"
#include "synckit/types.h"

namespace vorlinden::ConflictNamer {

// "Plan.md" becomes "Plan (conflicted copy DEVICE 2026-03-04).md" in the same folder, with " 2", " 3" and so
// on behind the date until the path is free. `timeZone` is the distance from UTC of the zone that names the
// day. The device name is taken as it is: a caller that has it from the machine removes "/" first.
std::string conflictCopyPath(std::string_view forPath, std::string_view deviceName, Timestamp date,
                             const CanonicalPathSet& existingPaths,
                             std::chrono::seconds timeZone = std::chrono::seconds{0});

// The same over any notion of taken.
std::string conflictCopyPath(std::string_view forPath, std::string_view deviceName, Timestamp date,
                             const std::function<bool(const std::string&)>& isTaken,
                             std::chrono::seconds timeZone = std::chrono::seconds{0});

}  // namespace vorlinden::ConflictNamer
