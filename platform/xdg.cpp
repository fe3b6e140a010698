#include "platform/xdg.h"

#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <pwd.h>
#include <unistd.h>

namespace vorlinden::platform {

namespace {

std::optional<std::filesystem::path> absolutePath(const char* text) {
    if (text == nullptr || text[0] != '/') return std::nullopt;
    return std::filesystem::path(text);
}

std::filesystem::path homeFolder() {
    if (auto home = absolutePath(std::getenv("HOME"))) return *home;
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
        if (auto home = absolutePath(found->pw_dir)) return *home;
    }
    return "/";
}

std::filesystem::path folder(const char* variable, const char* belowHome) {
    if (auto path = absolutePath(std::getenv(variable))) return *path;
    return homeFolder() / belowHome;
}

}  // namespace

std::filesystem::path xdgDataHome() {
    return folder("XDG_DATA_HOME", ".local/share");
}
std::filesystem::path xdgConfigHome() {
    return folder("XDG_CONFIG_HOME", ".config");
}
std::filesystem::path xdgStateHome() {
    return folder("XDG_STATE_HOME", ".local/state");
}
std::filesystem::path xdgCacheHome() {
    return folder("XDG_CACHE_HOME", ".cache");
}

std::vector<std::filesystem::path> xdgDataFolders() {
    std::vector<std::filesystem::path> folders{xdgDataHome()};
    const char* variable = std::getenv("XDG_DATA_DIRS");
    const bool given = variable != nullptr && variable[0] != '\0';
    std::istringstream list(given ? variable : "/usr/local/share:/usr/share");
    for (std::string text; std::getline(list, text, ':');) {
        if (auto path = absolutePath(text.c_str())) folders.push_back(*path);
    }
    return folders;
}

}  // namespace vorlinden::platform
