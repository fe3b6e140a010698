#include "linux/mount/fuse_session.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <mutex>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "linux/mount/mount_point.h"

namespace vorlinden::mount {

namespace {

// libfuse's buffer for one request, kept from request to request.
struct RequestBuffer {
    fuse_buf buffer{};
    RequestBuffer() = default;
    RequestBuffer(const RequestBuffer&) = delete;
    RequestBuffer& operator=(const RequestBuffer&) = delete;
    ~RequestBuffer() { std::free(buffer.mem); }
};

// Without default_permissions: the kernel would want attributes, and with them content, for every look at a
// file. Only the user who mounted may come here anyway.
fuse_session* newSession(FuseOperations& operations) {
    std::array<char*, 3> arguments{const_cast<char*>("vorlinden"), const_cast<char*>("-o"),
                                   const_cast<char*>("ro,fsname=vorlinden,subtype=vorlinden")};
    fuse_args list = FUSE_ARGS_INIT(static_cast<int>(arguments.size()), arguments.data());
    fuse_session* session =
        fuse_session_new(&list, &FuseOperations::table(), sizeof(fuse_lowlevel_ops), &operations);
    fuse_opt_free_args(&list);
    if (!session) throw MountPointError("The FUSE library refused to start. Is libfuse3 installed whole?");
    return session;
}

void mountAt(fuse_session* session, const std::filesystem::path& mountPoint) {
    if (fuse_session_mount(session, mountPoint.c_str()) != 0)
        throw MountPointError("“" + mountPoint.string() +
                              "” can't be mounted on. Is FUSE there (/dev/fuse), and may you use it?");
    // Several threads read requests; the one that comes too late must not be stuck in read(2).
    const int descriptor = fuse_session_fd(session);
    fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
}

}  // namespace

FuseSession::Descriptor::~Descriptor() {
    close(value_);
}

FuseSession::FuseSession(FuseOperations& operations, const std::filesystem::path& mountPoint)
    : stop_(eventfd(0, EFD_CLOEXEC)), session_(newSession(operations)) {
    if (stop_.get() < 0) throw platform::FileError(errno, "");
    mountAt(session_.get(), mountPoint);
    try {
        notifier_ = std::make_unique<KernelNotifier>(session_.get());
    } catch (...) {
        fuse_session_unmount(session_.get());
        throw;
    }
    operations.setNotifier(notifier_.get());
}

FuseSession::~FuseSession() {
    notifier_->stop();
    eventfd_write(stop_.get(), 1);
    for (std::thread& thread : threads_)
        thread.join();
    fuse_session_unmount(session_.get());
}

void FuseSession::serve(unsigned threads, std::function<void()> unmounted) {
    unmounted_ = std::move(unmounted);
    for (unsigned i = 0; i < threads; ++i)
        threads_.emplace_back([this] { serveRequests(); });
}

bool FuseSession::waitForRequest() const {
    std::array<pollfd, 2> sources{{{fuse_session_fd(session_.get()), POLLIN, 0}, {stop_.get(), POLLIN, 0}}};
    while (poll(sources.data(), sources.size(), -1) < 0)
        if (errno != EINTR) return false;
    return sources[1].revents == 0;
}

void FuseSession::serveRequests() {
    RequestBuffer request;
    while (waitForRequest()) {
        const int size = fuse_session_receive_buf(session_.get(), &request.buffer);
        if (size == -EAGAIN || size == -EINTR) continue;
        if (size <= 0) {  // unmounted by somebody else
            std::call_once(unmountedOnce_, unmounted_);
            return;
        }
        fuse_session_process_buf(session_.get(), &request.buffer);
    }
}

}  // namespace vorlinden::mount
