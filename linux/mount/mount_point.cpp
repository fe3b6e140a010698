#include "linux/mount/mount_point.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <mntent.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vorlinden::mount {

namespace {

using Path = std::filesystem::path;

struct CloseMountTable {
    void operator()(FILE* table) const { endmntent(table); }
};

// Whether something is mounted exactly there, by the kernel's own table (proc_pid_mounts(5)).
bool isMounted(const Path& folder) {
    const std::unique_ptr<FILE, CloseMountTable> table(setmntent("/proc/self/mounts", "r"));
    if (!table) return false;
    while (const mntent* entry = getmntent(table.get()))
        if (folder == entry->mnt_dir) return true;
    return false;
}

// A FUSE mount whose daemon has died answers ENOTCONN to whatever the kernel hasn't remembered; statfs(2) it
// never does.
bool isDeadMount(const Path& folder) {
    struct statvfs status {};
    return statvfs(folder.c_str(), &status) != 0 && errno == ENOTCONN;
}

// Without root's rights, only the set-user-id helper of FUSE may unmount.
bool unmountWithHelper(const Path& folder) {
    const char* arguments[] = {"fusermount3", "-u", "-q", "-z", "--", folder.c_str(), nullptr};
    pid_t child = 0;
    if (posix_spawnp(&child, arguments[0], nullptr, nullptr, const_cast<char**>(arguments), environ) != 0)
        return false;
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR) return false;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void removeDeadMount(const Path& folder) {
    if (umount2(folder.c_str(), MNT_DETACH) == 0 || unmountWithHelper(folder)) return;
    throw MountPointError("“" + folder.string() +
                          "” still carries a mount whose program has died. Unmount it with "
                          "“fusermount3 -u -z " +
                          folder.string() + "” and try again.");
}

// The absolute path, its parents resolved. The folder itself may be a dead mount, which nothing can resolve.
Path absolutePath(const Path& folder) {
    std::error_code error;
    Path absolute = std::filesystem::absolute(folder, error).lexically_normal();
    if (!absolute.has_filename()) absolute = absolute.parent_path();
    const Path parent = std::filesystem::canonical(absolute.parent_path(), error);
    if (error) throw MountPointError("There is no folder “" + folder.string() + "”. Make it first.");
    return absolute.has_filename() ? parent / absolute.filename() : parent;
}

void requireEmptyFolder(const Path& folder) {
    std::error_code error;
    const auto status = std::filesystem::status(folder, error);
    if (!std::filesystem::exists(status))
        throw MountPointError("There is no folder “" + folder.string() + "”. Make it first.");
    if (!std::filesystem::is_directory(status))
        throw MountPointError("“" + folder.string() + "” is not a folder. Name an empty folder.");
    const bool empty = std::filesystem::is_empty(folder, error);
    if (error) throw MountPointError("“" + folder.string() + "” can't be read: " + error.message() + ".");
    if (!empty) throw MountPointError("“" + folder.string() + "” is not empty. Name an empty folder.");
}

}  // namespace

Path prepareMountPoint(const Path& folder) {
    Path path = absolutePath(folder);
    while (isDeadMount(path))
        removeDeadMount(path);
    std::error_code error;
    if (Path resolved = std::filesystem::canonical(path, error); !error) path = std::move(resolved);
    if (isMounted(path))
        throw MountPointError("Something is mounted at “" + path.string() +
                              "” already. Unmount it first, or name another folder.");
    requireEmptyFolder(path);
    return path;
}

}  // namespace vorlinden::mount
