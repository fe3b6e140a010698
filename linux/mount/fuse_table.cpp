// From libfuse's C callbacks to FuseOperations. No exception passes: a request that one of them left
// unanswered is answered EIO by its reply's destructor.

#include <cerrno>

#include "linux/mount/fuse_operations.h"

namespace vorlinden::mount {

namespace {

FuseOperations& operationsOf(fuse_req_t request) {
    return *static_cast<FuseOperations*>(fuse_req_userdata(request));
}

// Runs `body`, which was given the reply by value. An exception here is trouble with this request alone.
template <class Body>
void guarded(Body body) noexcept {
    try {
        body();
    } catch (...) {  // the edge of the program towards C; the reply's destructor has answered EIO
    }
}

void init(void* operations, fuse_conn_info* connection) {
    // AUTO_INVAL_DATA: the daemon tells of every change, but a listing that was under way meanwhile would
    // stay; the folder's time gives it away.
    const unsigned wanted = FUSE_CAP_ASYNC_READ | FUSE_CAP_PARALLEL_DIROPS | FUSE_CAP_READDIRPLUS |
                            FUSE_CAP_READDIRPLUS_AUTO | FUSE_CAP_SPLICE_WRITE | FUSE_CAP_SPLICE_MOVE |
                            FUSE_CAP_NO_OPENDIR_SUPPORT | FUSE_CAP_AUTO_INVAL_DATA;
    const unsigned unwanted = FUSE_CAP_WRITEBACK_CACHE | FUSE_CAP_SPLICE_READ;
    connection->want = (connection->want | (wanted & connection->capable)) & ~unwanted;
    static_cast<FuseOperations*>(operations)
        ->setOpensFoldersItself(connection->want & FUSE_CAP_NO_OPENDIR_SUPPORT);
    connection->max_readahead = 1U << 20;  // bytes
    connection->max_background = 128;
    connection->congestion_threshold = 96;
}

void lookup(fuse_req_t request, fuse_ino_t folder, const char* name) {
    guarded([&] { operationsOf(request).lookup(FuseReply(request), folder, name); });
}
void forget(fuse_req_t request, fuse_ino_t inode, std::uint64_t count) {
    guarded([&] { operationsOf(request).forget(inode, count); });
    FuseReply(request).none();
}
void forgetMany(fuse_req_t request, std::size_t count, fuse_forget_data* forgets) {
    for (std::size_t i = 0; i < count; ++i)
        guarded([&] { operationsOf(request).forget(forgets[i].ino, forgets[i].nlookup); });
    FuseReply(request).none();
}
void getattr(fuse_req_t request, fuse_ino_t inode, fuse_file_info* file) {
    guarded([&] { operationsOf(request).getattr(FuseReply(request), inode, file); });
}
void open(fuse_req_t request, fuse_ino_t inode, fuse_file_info* file) {
    guarded([&] { operationsOf(request).open(FuseReply(request), inode, *file); });
}
void read(fuse_req_t request, fuse_ino_t, std::size_t size, off_t offset, fuse_file_info* file) {
    guarded([&] {
        operationsOf(request).read(FuseReply(request), *file, static_cast<std::uint64_t>(offset), size);
    });
}
void release(fuse_req_t request, fuse_ino_t, fuse_file_info* file) {
    guarded([&] { operationsOf(request).release(FuseReply(request), *file); });
}
// A kernel that knows the answer ENOSYS opens folders without asking from then on, and keeps their listings
// until it is told to drop them, so that a second walk asks nothing.
void opendir(fuse_req_t request, fuse_ino_t, fuse_file_info* file) {
    FuseReply reply(request);
    if (operationsOf(request).opensFoldersItself()) return reply.error(ENOSYS);
    file->keep_cache = 1;
    file->cache_readdir = 1;
    reply.opened(*file);
}
void readdir(fuse_req_t request, fuse_ino_t folder, std::size_t size, off_t offset, fuse_file_info*) {
    guarded([&] {
        operationsOf(request).readdir(FuseReply(request), folder, static_cast<std::uint64_t>(offset), size);
    });
}
void readdirplus(fuse_req_t request, fuse_ino_t folder, std::size_t size, off_t offset, fuse_file_info*) {
    guarded([&] {
        operationsOf(request).readdirplus(FuseReply(request), folder, static_cast<std::uint64_t>(offset),
                                          size);
    });
}
void statfs(fuse_req_t request, fuse_ino_t) {
    guarded([&] { operationsOf(request).statfs(FuseReply(request)); });
}
void getxattr(fuse_req_t request, fuse_ino_t inode, const char* name, std::size_t room) {
    guarded([&] { operationsOf(request).getxattr(FuseReply(request), inode, name, room); });
}
void listxattr(fuse_req_t request, fuse_ino_t inode, std::size_t room) {
    guarded([&] { operationsOf(request).listxattr(FuseReply(request), inode, room); });
}

fuse_lowlevel_ops makeTable() {
    fuse_lowlevel_ops table{};
    table.init = init;
    table.lookup = lookup;
    table.forget = forget;
    table.forget_multi = forgetMany;
    table.getattr = getattr;
    table.open = open;
    table.read = read;
    table.release = release;
    table.opendir = opendir;
    table.readdir = readdir;
    table.readdirplus = readdirplus;
    table.statfs = statfs;
    table.getxattr = getxattr;
    table.listxattr = listxattr;
    return table;
}

}  // namespace

const fuse_lowlevel_ops& FuseOperations::table() {
    static const fuse_lowlevel_ops operations = makeTable();
    return operations;
}

}  // namespace vorlinden::mount
