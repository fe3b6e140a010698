#include "linux/mount/state_reporter.h"

#include <chrono>
#include <utility>

#include "platform/failure.h"

namespace vorlinden::mount {

namespace {
constexpr std::chrono::milliseconds gathering{200};  // between two writes
}

StateReporter::StateReporter(std::shared_ptr<platform::FileSystem> files, std::filesystem::path stateFolder,
                             MountState state, std::function<void(MountState&)> complete)
    : files_(std::move(files)),
      stateFolder_(std::move(stateFolder)),
      complete_(std::move(complete)),
      state_(std::move(state)),
      thread_([this] { run(); }) {}

StateReporter::~StateReporter() {
    {
        std::lock_guard hold(mutex_);
        stopping_ = dirty_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void StateReporter::change(const std::function<void(MountState&)>& edit) {
    {
        std::lock_guard hold(mutex_);
        MountState before = state_;
        edit(state_);
        if (state_ == before) return;
        dirty_ = true;
    }
    changed_.notify_one();
}

void StateReporter::run() {
    std::unique_lock hold(mutex_);
    while (true) {
        changed_.wait(hold, [this] { return dirty_ || stopping_; });
        if (!dirty_) return;
        dirty_ = false;
        MountState state = state_;
        hold.unlock();
        complete_(state);
        try {
            writeMountState(*files_, stateFolder_, state);
        } catch (const platform::FileError&) {
            // The mount is worth more than the word about it; the next change tries again.
        }
        hold.lock();
        changed_.wait_for(hold, gathering, [this] { return stopping_; });
    }
}

}  // namespace vorlinden::mount
