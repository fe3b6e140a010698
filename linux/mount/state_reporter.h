// Keeps the daemon's state file in step with what the daemon says of itself.
#pragma once

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "linux/mount/mount_state.h"
#include "platform/files.h"

namespace vorlinden::mount {

// Writes on a thread of its own, several changes at once when they come quickly: a state is of no use to
// anybody by the hundred in a second, and each costs a flush. `complete` adds to each what is no reason to
// write. A state that can't be written is passed over.
// Thread-safe.
class StateReporter {
 public:
    StateReporter(std::shared_ptr<platform::FileSystem> files, std::filesystem::path stateFolder,
                  MountState state, std::function<void(MountState&)> complete);
    // Writes what is left and joins.
    ~StateReporter();
    StateReporter(const StateReporter&) = delete;
    StateReporter& operator=(const StateReporter&) = delete;

    void change(const std::function<void(MountState&)>& edit);

 private:
    void run();

    const std::shared_ptr<platform::FileSystem> files_;
    const std::filesystem::path stateFolder_;
    const std::function<void(MountState&)> complete_;
    std::mutex mutex_;  // guards what follows; not held while writing
    std::condition_variable changed_;
    MountState state_;
    bool dirty_ = true;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace vorlinden::mount
