#include "platform/notifications.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "platform/descriptor.h"
#include "platform/files.h"

namespace vorlinden::platform {

namespace {

namespace fs = std::filesystem;

bool isFileName(const std::string& name) {
    return !name.empty() && name.front() != '.' && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

// One registered listener, shared by its registration and the centre.
struct Listener {
    Listener(std::string ofName, std::function<void()> toCall)
        : name(std::move(ofName)), call(std::move(toCall)) {}

    void run() {
        const std::lock_guard lock(mutex);
        if (!ended) call();
    }
    void end() {
        const std::lock_guard lock(mutex);
        ended = true;
    }

    const std::string name;
    const std::function<void()> call;
    // Held while the listener runs, so that ending it waits for that; recursive, so that it may end itself.
    std::recursive_mutex mutex;  // guards `ended`
    bool ended = false;
};

class ListenerRegistration final : public NotificationCenter::Registration {
 public:
    explicit ListenerRegistration(std::shared_ptr<Listener> listener) : listener_(std::move(listener)) {}
    ~ListenerRegistration() override { listener_->end(); }

 private:
    std::shared_ptr<Listener> listener_;
};

// What one read of the watch brought.
struct Events {
    std::set<std::string> posted;
    bool anything = false;  // events were lost, or the folder itself changed: all may have been posted
};

class Watch {
 public:
    explicit Watch(fs::path folder)
        : folder_(std::move(folder)), events_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        if (!events_) throw errnoFailure(folder_);
    }

    int descriptor() const { return events_.get(); }

    // Makes what is missing: folder, watch, the name's file. Safe to repeat.
    void cover(const std::string& name) {
        posixFileSystem()->createDirectories(folder_);
        constexpr std::uint32_t mask =
            IN_CLOSE_WRITE | IN_DELETE | IN_MOVED_FROM | IN_DELETE_SELF | IN_MOVE_SELF;
        if (::inotify_add_watch(events_.get(), folder_.c_str(), mask | IN_ONLYDIR) < 0)
            throw errnoFailure(folder_);
        // Opened for reading: making the file must not look like a post to others.
        Descriptor::open(folder_ / name, O_RDONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK, 0600);
    }

    Events take() {
        Events events;
        alignas(inotify_event) std::array<char, 16384> buffer;
        for (;;) {
            const ssize_t got =
                uninterrupted([&] { return ::read(events_.get(), buffer.data(), buffer.size()); });
            if (got <= 0) return events;
            for (std::size_t at = 0; at < static_cast<std::size_t>(got);)
                at += note(events, buffer.data() + at);
        }
    }

 private:
    static std::size_t note(Events& events, const char* bytes) {
        inotify_event event;
        std::memcpy(&event, bytes, sizeof event);
        if (event.mask == IN_CLOSE_WRITE && event.len > 0) {
            events.posted.insert(bytes + sizeof event);
        } else {
            events.anything = true;
        }
        return sizeof event + event.len;
    }

    const fs::path folder_;
    const Descriptor events_;
};

class FileNotificationCenter final : public NotificationCenter {
 public:
    explicit FileNotificationCenter(fs::path folder) : folder_(std::move(folder)) {}

    ~FileNotificationCenter() override {
        if (!thread_.joinable()) return;
        ::eventfd_write(stop_.get(), 1);
        thread_.join();
    }

    void post(const std::string& name) noexcept override {
        if (!isFileName(name)) return;
        // Closing what was opened for writing is the event; ENOENT means that nobody ever listened.
        Descriptor(::open((folder_ / name).c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    }

    std::unique_ptr<Registration> listen(const std::string& name, std::function<void()> call) override {
        if (!isFileName(name)) throw FileError(EINVAL, (folder_ / name).string());
        auto listener = std::make_shared<Listener>(name, std::move(call));
        const std::lock_guard lock(mutex_);
        if (!watch_) watch_ = std::make_unique<Watch>(folder_);
        watch_->cover(name);
        if (!thread_.joinable()) start();
        listeners_.push_back(listener);
        return std::make_unique<ListenerRegistration>(std::move(listener));
    }

 private:
    void start() {
        stop_ = Descriptor(::eventfd(0, EFD_CLOEXEC));
        if (!stop_) throw errnoFailure(folder_);
        thread_ = std::thread([this] { serve(); });
    }

    void serve() {
        std::array<pollfd, 2> ready{pollfd{watch_->descriptor(), POLLIN, 0}, pollfd{stop_.get(), POLLIN, 0}};
        for (;;) {
            uninterrupted([&] { return ::poll(ready.data(), ready.size(), -1); });
            if (ready[1].revents != 0) return;
            const Events events = watch_->take();
            for (const auto& listener : concerned(events))
                listener->run();
        }
    }

    std::vector<std::shared_ptr<Listener>> concerned(const Events& events) {
        const std::lock_guard lock(mutex_);
        std::erase_if(listeners_, [](const std::weak_ptr<Listener>& listener) { return listener.expired(); });
        std::vector<std::shared_ptr<Listener>> result;
        for (const auto& weak : listeners_) {
            const std::shared_ptr<Listener> listener = weak.lock();
            if (!listener) continue;
            if (events.anything) restore(listener->name);
            if (events.anything || events.posted.contains(listener->name)) result.push_back(listener);
        }
        return result;
    }

    // Somebody tidied the folder away. If it can't be made again, wake-ups are lost from here on, which every
    // listener has to live with anyhow.
    void restore(const std::string& name) noexcept {
        try {
            watch_->cover(name);
        } catch (const FileError&) {
        }
    }

    const fs::path folder_;
    std::mutex mutex_;  // guards listeners_ and the making of the fields below; never held while one runs
    std::vector<std::weak_ptr<Listener>> listeners_;
    std::unique_ptr<Watch> watch_;
    Descriptor stop_;
    std::thread thread_;  // reads watch_ and stop_, which stay as they are once it runs
};

}  // namespace

std::shared_ptr<NotificationCenter> fileNotificationCenter(const std::string& folder) {
    return std::make_shared<FileNotificationCenter>(folder);
}

}  // namespace vorlinden::platform
