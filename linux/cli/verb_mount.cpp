// vorlinden mount DIR [--cache-size SIZE] [--deadline SECONDS]
#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "fileprovider/file_provider_extension.h"
#include "linux/cli/child_sync.h"
#include "linux/cli/machine.h"
#include "linux/cli/verbs.h"
#include "linux/host/mark.h"
#include "linux/host/workspace.h"
#include "linux/mount/daemon.h"
#include "platform/fileprovider/domain_registry.h"
#include "synckit/container/sync_execution_owner.h"

namespace vorlinden::cli {
namespace {

struct Options {
    std::string folder;
    std::uint64_t cacheSize = std::uint64_t{10} << 30;  // bytes
    double deadline = 10;                               // seconds
    bool noSync = false;
};

// Makes extension objects and remembers why the latest one's catalogue didn't open.
class Extensions {
 public:
    explicit Extensions(const platform::System& system) : system_(system) {}

    std::shared_ptr<platform::fileprovider::ReplicatedExtension> make() {
        auto made = std::make_shared<fileprovider::FileProviderExtension>(host::productDomain(), system_);
        std::lock_guard hold(mutex_);
        openFailure_ = made->openFailure();
        return made;
    }

    std::optional<std::string> openFailure() {
        std::lock_guard hold(mutex_);
        if (!openFailure_) return std::nullopt;
        try {
            std::rethrow_exception(openFailure_);
        } catch (const std::exception& failure) {
            return "The catalogue can't be opened: " + std::string(failure.what());
        }
    }

 private:
    const platform::System system_;
    std::mutex mutex_;  // guards openFailure_
    std::exception_ptr openFailure_;
};

mount::DaemonSurroundings surroundings(const Machine& machine, const std::shared_ptr<Extensions>& extensions,
                                       platform::Signal unmounted) {
    mount::DaemonSurroundings result;
    result.system = machine.system;
    result.folders = machine.folders;
    result.domain = host::productDomain();
    result.makeExtension = [extensions] { return extensions->make(); };
    result.openFailure = [extensions] { return extensions->openFailure(); };
    result.completeState = [](mount::MountState& state) {
        const auto waits = executionLockWaits();
        state.lockOperations = static_cast<std::int64_t>(waits.operations);
        state.lockMilliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(waits.waited).count();
    };
    result.unmounted = [unmounted]() mutable { unmounted.set(); };
    return result;
}

int run(const Options& options) {
    const Machine machine;
    const platform::fileprovider::DomainRegistry registry(machine.folders.state, machine.system.files);
    if (!registry.isRegistered(host::productDomain().identifier)) {
        std::cerr << "There is nothing to show before the first sign-in. Run “vorlinden login”.\n";
        return needsPerson;
    }
    const platform::Signal unmounted;
    mount::DaemonOptions daemonOptions;
    daemonOptions.folder = options.folder;
    daemonOptions.cacheBytes = options.cacheSize;
    daemonOptions.deadline = std::chrono::milliseconds(static_cast<std::int64_t>(options.deadline * 1000));
    const mount::Daemon daemon(
        daemonOptions, surroundings(machine, std::make_shared<Extensions>(machine.system), unmounted));
    std::cout << "mounted at " << daemon.mountPoint().string() << std::endl;
    std::optional<ChildSync> sync;
    if (!options.noSync && !host::Mark::syncRuns(machine.folders).isHeld(machine.system)) sync.emplace();
    try {
        machine.runInterruptibly([unmounted] { return unmounted.wait(); });
        std::cerr << "The folder was unmounted from outside.\n";
    } catch (const platform::CancelledError&) {
        // SIGINT or SIGTERM: the way it is meant to end.
    }
    return done;
}

}  // namespace

void addMount(Program& program) {
    const auto options = std::make_shared<Options>();
    auto& verb = program.addVerb("mount", "Show the brains as a folder until SIGINT or SIGTERM",
                                 [options] { return run(*options); });
    verb.add_option("DIR", options->folder, "An empty folder")->required();
    verb.add_option("--cache-size", options->cacheSize,
                    "Bytes of fetched content to keep, like 500MB or 10GB")
        ->transform(CLI::AsSizeValue(false))
        ->capture_default_str();
    verb.add_option("--deadline", options->deadline,
                    "Seconds that a reader waits for content that isn't here")
        ->check(CLI::Range(0.1, 3600.0))
        ->capture_default_str();
    verb.add_flag("--no-sync", options->noSync,
                  "Don't keep the tree and the server in step; without this, `vorlinden sync` is started if "
                  "none runs, and ended with the mount");
}

}  // namespace vorlinden::cli
