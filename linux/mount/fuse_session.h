// One FUSE session: mounted while the object lives, served by threads of its own.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "linux/mount/fuse_operations.h"
#include "linux/mount/kernel_notifier.h"

namespace vorlinden::mount {

class FuseSession {
 public:
    // Mounts at `mountPoint` (see prepareMountPoint). Throws MountPointError. The operations outlive the
    // object.
    FuseSession(FuseOperations& operations, const std::filesystem::path& mountPoint);
    // Stops serving, unmounts (at once, also when busy) and joins. Whatever waits for content must have been
    // answered before.
    ~FuseSession();
    FuseSession(const FuseSession&) = delete;
    FuseSession& operator=(const FuseSession&) = delete;

    KernelNotifier& notifier() { return *notifier_; }

    // Begins to serve. `unmounted` is called once, on a thread of the session, when somebody else unmounts
    // it.
    void serve(unsigned threads, std::function<void()> unmounted);

 private:
    struct Destroy {
        void operator()(fuse_session* session) const { fuse_session_destroy(session); }
    };
    class Descriptor {
     public:
        explicit Descriptor(int value) : value_(value) {}
        ~Descriptor();
        Descriptor(const Descriptor&) = delete;
        Descriptor& operator=(const Descriptor&) = delete;
        int get() const { return value_; }

     private:
        int value_;
    };

    void serveRequests();
    bool waitForRequest() const;

    Descriptor stop_;  // eventfd(2); readable once serving is to end
    std::unique_ptr<fuse_session, Destroy> session_;
    std::unique_ptr<KernelNotifier> notifier_;
    std::function<void()> unmounted_;
    std::once_flag unmountedOnce_;
    std::vector<std::thread> threads_;
};

}  // namespace vorlinden::mount
