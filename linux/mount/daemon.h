// The daemon: one domain, shown at one folder for as long as the object lives.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "linux/mount/content_store.h"
#include "linux/mount/mount_state.h"
#include "platform/fileprovider/protocol.h"
#include "platform/system.h"

namespace vorlinden::mount {

struct DaemonOptions {
    std::filesystem::path folder;  // where to show the domain
    std::uint64_t cacheBytes = std::uint64_t{10} << 30;
    std::chrono::milliseconds deadline{10'000};  // how long a reader waits for content
    unsigned threads = 4;                        // that serve the kernel's requests
};

struct DaemonSurroundings {
    platform::System system;
    platform::Folders folders;
    platform::fileprovider::Domain domain;
    std::function<std::shared_ptr<ReplicatedExtension>()> makeExtension;
    // In the extension's own words, why its catalogue didn't open; absent if it did or nothing is known.
    std::function<std::optional<std::string>()> openFailure;
    // Adds to the daemon's state what it doesn't know itself.
    std::function<void(MountState&)> completeState;
    // Somebody else unmounted the folder; called once, on a thread that may not destroy the daemon.
    std::function<void()> unmounted;
};

class Daemon {
 public:
    // Mounts and serves. Throws MountPointError and platform::FileError.
    Daemon(DaemonOptions options, DaemonSurroundings surroundings);
    // Ends every wait for content, stops, unmounts.
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    const std::filesystem::path& mountPoint() const;

 private:
    struct Parts;
    void end();
    std::unique_ptr<Parts> parts_;
};

}  // namespace vorlinden::mount
