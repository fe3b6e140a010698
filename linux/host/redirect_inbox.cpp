#include "linux/host/redirect_inbox.h"

#include <cerrno>
#include <chrono>
#include <optional>

#include "linux/host/failures.h"

namespace vorlinden::host {
namespace {

using namespace std::chrono_literals;

constexpr const char* notificationName = "ai.vorlinden.desktop.redirect";
// A wake-up may be lost; then the file is found at the next look.
constexpr auto lookInterval = 1s;

std::filesystem::path folder(const std::filesystem::path& stateFolder) {
    return stateFolder / "sign-in";
}

std::filesystem::path redirectFile(const std::filesystem::path& stateFolder) {
    return folder(stateFolder) / "redirect";
}

std::unique_ptr<platform::LockFile> openLock(platform::FileSystem& files,
                                             const std::filesystem::path& stateFolder) {
    files.createDirectories(folder(stateFolder));
    return files.openLockFile(folder(stateFolder) / "waiting.lock");
}

// Reads and removes the file; absent if there is none.
std::optional<std::string> take(platform::FileSystem& files, const std::filesystem::path& file) {
    try {
        const auto data = files.read(file);
        files.remove(file);
        return std::string(data.view());
    } catch (const platform::FileError& error) {
        if (error.code == ENOENT) return std::nullopt;
        throw;
    }
}

}  // namespace

RedirectInbox::RedirectInbox(const platform::System& system, const std::filesystem::path& stateFolder)
    : system_(system), file_(redirectFile(stateFolder)), lock_(openLock(*system.files, stateFolder)) {
    if (lock_->tryLock() != 0) throw SignInError(SignInError::Reason::alreadyWaiting);
    take(*system_.files, file_);
    registration_ = system_.notifications->listen(notificationName, [alarm = alarm_] { alarm->ring(); });
}

platform::Task<std::string> RedirectInbox::receive() {
    while (true) {
        if (auto url = take(*system_.files, file_)) co_return *url;
        co_await alarm_->wait(system_, lookInterval);
    }
}

bool RedirectInbox::deliver(const platform::System& system, const std::filesystem::path& stateFolder,
                            const std::string& url) {
    const auto lock = openLock(*system.files, stateFolder);
    if (lock->tryLock() == 0) {
        lock->unlock();
        return false;
    }
    system.files->writeAtomically(platform::Data::copyOf(url), redirectFile(stateFolder));
    system.notifications->post(notificationName);
    return true;
}

}  // namespace vorlinden::host
