// A domain's manager inside one test.
#pragma once

#include <mutex>
#include <vector>

#include "platform/fileprovider/protocol.h"

namespace vorlinden::tests {

// Remembers the containers that were signalled; each handler hears `answer` at once. Thread-safe, but for
// `answer`, which is set beforehand.
class RecordingManager final : public platform::fileprovider::Manager {
 public:
    explicit RecordingManager(std::filesystem::path temporary) : temporary_(std::move(temporary)) {}

    std::optional<platform::fileprovider::Error> answer;

    void signalEnumerator(
        const platform::fileprovider::ItemIdentifier& container,
        std::function<void(std::optional<platform::fileprovider::Error>)> handler) override {
        {
            const std::lock_guard lock(mutex_);
            signalled_.push_back(container);
        }
        if (handler) handler(answer);
    }
    std::filesystem::path temporaryDirectory() override {
        std::filesystem::create_directories(temporary_);
        return temporary_;
    }

    std::vector<platform::fileprovider::ItemIdentifier> signalled() const {
        const std::lock_guard lock(mutex_);
        return signalled_;
    }

 private:
    const std::filesystem::path temporary_;
    mutable std::mutex mutex_;  // guards signalled_
    std::vector<platform::fileprovider::ItemIdentifier> signalled_;
};

}  // namespace vorlinden::tests
