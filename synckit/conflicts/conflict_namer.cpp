#include "synckit/conflicts/conflict_namer.h"

namespace vorlinden::ConflictNamer {

namespace {

// YYYY-MM-DD.
std::string dayText(Timestamp date, std::chrono::seconds timeZone) {
    return platform::formatTimestamp(date + timeZone).substr(0, 10);
}

// Where the extension begins, dot included; the end if the name has none. A dot at either end of the name
// makes none.
std::size_t extensionStart(std::string_view name) {
    const auto dot = name.rfind('.');
    const bool inside = dot != std::string_view::npos && dot != 0 && dot + 1 != name.size();
    return inside ? dot : name.size();
}

}  // namespace

std::string conflictCopyPath(std::string_view forPath, std::string_view deviceName, Timestamp date,
                             const std::function<bool(const std::string&)>& isTaken,
                             std::chrono::seconds timeZone) {
    const auto nameStart = forPath.rfind('/') + 1;
    const auto split = nameStart + extensionStart(forPath.substr(nameStart));
    const auto front = std::string(forPath.substr(0, split)) + " (conflicted copy " +
                       std::string(deviceName) + " " + dayText(date, timeZone);
    const auto back = ")" + std::string(forPath.substr(split));
    for (unsigned n = 1;; ++n) {
        auto candidate = front + (n == 1 ? "" : " " + std::to_string(n)) + back;
        if (!isTaken(candidate)) return candidate;
    }
}

std::string conflictCopyPath(std::string_view forPath, std::string_view deviceName, Timestamp date,
                             const CanonicalPathSet& existingPaths, std::chrono::seconds timeZone) {
    const auto isTaken = [&](const std::string& path) { return existingPaths.contains(path); };
    return conflictCopyPath(forPath, deviceName, date, isTaken, timeZone);
}

}  // namespace vorlinden::ConflictNamer
