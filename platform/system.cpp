#include "platform/system.h"

#include <array>
#include <fstream>

#include <unistd.h>

#include "platform/fileprovider/manager.h"
#include "platform/text.h"
#include "platform/xdg.h"

namespace vorlinden::platform {

namespace {

// The name that the user gave the machine (machine-info(5)), or else its network name.
std::string machineName() {
    constexpr std::string_view key = "PRETTY_HOSTNAME=";
    std::ifstream info("/etc/machine-info");
    for (std::string line; std::getline(info, line);) {
        if (!line.starts_with(key)) continue;
        std::string name = line.substr(key.size());
        if (name.size() >= 2 && name.front() == name.back() && (name.front() == '"' || name.front() == '\''))
            name = name.substr(1, name.size() - 2);
        if (std::string text = trimmed(name); !text.empty()) return text;
    }
    std::array<char, 256> host{};
    if (::gethostname(host.data(), host.size() - 1) != 0 || host[0] == '\0') return "Linux";
    return repairedUTF8(host.data());
}

}  // namespace

Folders Folders::ofUser() {
    return {xdgDataHome() / "vorlinden", xdgConfigHome() / "vorlinden", xdgStateHome() / "vorlinden",
            xdgCacheHome() / "vorlinden"};
}

System linuxSystem(Executor executor, const Folders& folders) {
    System system;
    system.executor = std::move(executor);
    system.clock = systemClock();
    system.timers = systemTimers();
    system.random = systemRandom();
    system.files = posixFileSystem();
    system.secrets = fileSecretStore(folders.data / "Secrets");
    system.notifications = fileNotificationCenter((folders.state / "Wakeups").string());
    system.groupContainer = [files = system.files, data = folders.data](const std::string& group) {
        const std::filesystem::path container = data / "Group Containers" / group;
        files->createDirectories(container);
        return std::optional(container);
    };
    system.sharedDefaults = [config = folders.config](const std::string& group) {
        return fileSharedDefaults(config / (group + ".json"));
    };
    system.urlSession = [] { return ephemeralURLSession(); };
    system.managerForDomain =
        fileprovider::managerSource(fileprovider::DomainRegistry(folders.state, system.files),
                                    system.notifications, system.files, folders.cache);
    system.deviceName = machineName();
    return system;
}

}  // namespace vorlinden::platform
