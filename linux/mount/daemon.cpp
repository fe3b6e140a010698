#include "linux/mount/daemon.h"

#include <utility>

#include <unistd.h>

#include "linux/mount/domain.h"
#include "linux/mount/fuse_session.h"
#include "linux/mount/mount_point.h"
#include "linux/mount/state_reporter.h"
#include "platform/fileprovider/manager.h"

namespace vorlinden::mount {

namespace {

// Two daemons over one container would fetch everything twice and write each other's state.
std::unique_ptr<platform::LockFile> lockAgainstOthers(platform::FileSystem& files,
                                                      const std::filesystem::path& stateFolder) {
    files.createDirectories(stateFolder);
    auto lock = files.openLockFile(mountLockFile(stateFolder));
    if (lock->tryLock() == 0) return lock;
    const auto other = readMountState(files, stateFolder);
    throw MountPointError("The brains are mounted already" +
                          (other ? ", at “" + other->mountPoint + "”" : std::string()) +
                          ". Unmount them there first.");
}

MountState initialState(const std::filesystem::path& mountPoint, platform::Clock& clock) {
    MountState state;
    state.mountPoint = mountPoint.string();
    state.processId = getpid();
    state.since = clock.now();
    return state;
}

std::filesystem::path domainFolder(const DaemonSurroundings& around) {
    return platform::fileprovider::domainCacheFolder(around.folders.cache, around.domain.identifier);
}

ContentStoreOptions contentOptions(const DaemonSurroundings& around, const DaemonOptions& options) {
    ContentStoreOptions result;
    result.folder = domainFolder(around) / "content";
    result.maximumBytes = options.cacheBytes;
    return result;
}

const char* wordFor(Reachability reachability) {
    switch (reachability) {
        case Reachability::unknown:
            return "unknown";
        case Reachability::reachable:
            return "reachable";
        case Reachability::unreachable:
            return "unreachable";
        case Reachability::signedOut:
            return "signed out";
    }
    return "unknown";
}

}  // namespace

// In the order in which they are made; unmade the other way round, so the session unmounts first.
struct Daemon::Parts {
    Parts(const DaemonOptions& options, DaemonSurroundings around);

    DomainSurroundings domainSurroundings();
    ContentStoreSurroundings contentSurroundings();

    const DaemonSurroundings surroundings;
    const std::unique_ptr<platform::LockFile> lock;  // held as long as the daemon lives
    const std::filesystem::path mountPoint;
    StateReporter reporter;
    Domain domain;
    const std::shared_ptr<ContentStore> contents;
    FuseOperations operations;
    FuseSession session;
};

Daemon::Parts::Parts(const DaemonOptions& options, DaemonSurroundings around)
    : surroundings(std::move(around)),
      lock(lockAgainstOthers(*surroundings.system.files, surroundings.folders.state)),
      mountPoint(prepareMountPoint(options.folder)),
      reporter(surroundings.system.files, surroundings.folders.state,
               initialState(mountPoint, *surroundings.system.clock), surroundings.completeState),
      domain(surroundings.system, surroundings.domain, domainSurroundings()),
      contents(openContentStore(surroundings.system, contentOptions(surroundings, options),
                                contentSurroundings())),
      operations(domain, *contents, {options.deadline, surroundings.folders.cache}),
      session(operations, mountPoint) {}

Daemon::Daemon(DaemonOptions options, DaemonSurroundings surroundings)
    : parts_(std::make_unique<Parts>(options, std::move(surroundings))) {
    // What a daemon that was killed had fetched and not yet taken over; only this one can use the folder now.
    std::error_code ignored;
    std::filesystem::remove_all(domainFolder(parts_->surroundings) / "temporary", ignored);
    parts_->domain.setContentStore(parts_->contents);
    try {
        parts_->domain.start();
        parts_->session.serve(options.threads, parts_->surroundings.unmounted);
    } catch (...) {
        end();
        throw;
    }
}

void Daemon::end() {
    parts_->contents->shutDown();
    parts_->domain.stop();
}

Daemon::~Daemon() {
    end();
}

const std::filesystem::path& Daemon::mountPoint() const {
    return parts_->mountPoint;
}

DomainSurroundings Daemon::Parts::domainSurroundings() {
    DomainSurroundings result;
    result.makeExtension = surroundings.makeExtension;
    result.memory = surroundings.folders.state / "mount-memory.json";
    result.invalidate = [this](std::vector<Invalidation> invalidations) {
        session.notifier().notify(std::move(invalidations));
    };
    result.fill = [this](Inode inode, std::shared_ptr<const Content> content) {
        session.notifier().fill(inode, std::move(content));
    };
    result.extensionTrouble = [this](std::optional<std::string> sentence) {
        if (sentence)
            if (auto words = surroundings.openFailure()) sentence = std::move(words);
        reporter.change([&](MountState& state) { state.extensionTrouble = std::move(sentence); });
    };
    return result;
}

ContentStoreSurroundings Daemon::Parts::contentSurroundings() {
    ContentStoreSurroundings result;
    result.extension = [this] { return domain.extension(); };
    result.failed = [this](const Item& item, const ContentFailure& failure) {
        MountState::FetchFailure last{domain.pathOf(item.itemIdentifier), failure.sentence,
                                      surroundings.system.clock->now()};
        reporter.change([&](MountState& state) { state.lastFailedFetch = std::move(last); });
    };
    result.reachabilityChanged = [this](Reachability reachability) {
        reporter.change([&](MountState& state) { state.server = wordFor(reachability); });
    };
    return result;
}

}  // namespace vorlinden::mount
