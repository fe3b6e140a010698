#include "linux/mount/fuse_operations.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/statvfs.h>

#include "linux/mount/kernel_notifier.h"

namespace vorlinden::mount {

namespace {

// An item that keeps moving on under its readers is served as it came at last.
constexpr unsigned attemptsToMeetAMovingItem = 4;

int errnoOf(const ContentFailure& failure) {
    switch (failure.kind) {
        case ContentFailure::Kind::signedOut:
            return EACCES;
        case ContentFailure::Kind::noSpace:
            return ENOSPC;
        case ContentFailure::Kind::cancelled:
            return EINTR;
        case ContentFailure::Kind::unreachable:
        case ContentFailure::Kind::timedOut:
        case ContentFailure::Kind::gone:
        case ContentFailure::Kind::extensionFailed:
        case ContentFailure::Kind::localDisk:
            return EIO;
    }
    return EIO;
}

bool asksToWrite(const fuse_file_info& file) {
    return (file.flags & O_ACCMODE) != O_RDONLY || (file.flags & O_TRUNC);
}

}  // namespace

// An open file: the bytes as they were when it was opened, whatever becomes of the item.
struct FuseOperations::OpenFile {
    const Inode inode;
    const ContentPtr content;
};

FuseOperations::FuseOperations(Domain& domain, ContentStore& contents, FuseOptions options)
    : domain_(domain), contents_(contents), options_(std::move(options)) {}

FuseOperations::~FuseOperations() = default;

FuseOperations::OpenFile* FuseOperations::openFileOf(const fuse_file_info& file) {
    return reinterpret_cast<OpenFile*>(file.fh);
}

FuseOperations::OpenFile* FuseOperations::keepOpen(Inode inode, ContentPtr content) {
    std::unique_ptr<OpenFile> file(new OpenFile{inode, std::move(content)});
    OpenFile* const kept = file.get();
    std::lock_guard hold(mutex_);
    openFiles_.emplace(kept, std::move(file));
    return kept;
}

void FuseOperations::close(OpenFile* file) {
    domain_.closed(file->inode);
    std::unique_lock hold(mutex_);
    const auto closed = openFiles_.extract(file);
    hold.unlock();  // the content may be the last of its kind, and its file's end takes a while
}

void FuseOperations::whenListed(FuseReply reply, Inode folder, std::function<void(FuseReply&)> then) {
    if (const auto state = domain_.listingState(folder)) {
        if (*state) return reply.error(*state);
        return then(reply);
    }
    const WaitingPtr waiting = waitingRequests_.add(std::move(reply));
    domain_.list(folder, [waiting, then = std::move(then)](int code) {
        auto answer = waiting->take();
        if (!answer) return;
        if (code) return answer->error(code);
        then(*answer);
    });
}

void FuseOperations::lookup(FuseReply reply, Inode folder, const char* name) {
    whenListed(std::move(reply), folder,
               [this, folder, copy = std::string(name)](FuseReply& answer) { lookUp(answer, folder, copy); });
}

void FuseOperations::lookUp(FuseReply& reply, Inode folder, const std::string& name) {
    const auto found = domain_.lookup(folder, name);
    if (const int* code = std::get_if<int>(&found)) {
        if (*code == ENOENT) return reply.noEntry();
        return reply.error(*code);
    }
    const Attributes& attributes = std::get<Attributes>(found);
    if (!reply.entry(attributes)) domain_.forget(attributes.inode, 1);
}

void FuseOperations::seek(const WaitingPtr& waiting, const Quest& quest) {
    const auto item = domain_.fileItem(quest.inode);
    if (const int* code = std::get_if<int>(&item)) {
        if (auto reply = waiting->take()) reply->error(*code);
        return;
    }
    if (const auto content = contents_.openIfHere(std::get<Item>(item)))
        return found(waiting, quest, content);
    domain_.contentWanted(quest.inode);
    auto answer = [this, waiting, quest](const ContentResult& result) {
        if (const auto* content = std::get_if<ContentPtr>(&result)) return found(waiting, quest, *content);
        if (auto reply = waiting->take()) reply->error(errnoOf(std::get<ContentFailure>(result)));
    };
    waiting->waitsFor(contents_.open(std::get<Item>(item), options_.deadline, std::move(answer)));
}

// Bytes belong to the item that came with them. Where that isn't the one that the inode shows, one of the two
// is older: what has changed is read, and the content of what is shown then is sought.
void FuseOperations::found(const WaitingPtr& waiting, Quest quest, const ContentPtr& content) {
    const bool isLastAttempt = ++quest.attempts == attemptsToMeetAMovingItem;
    if (quest.use(waiting, content, isLastAttempt)) return;
    domain_.refresh([this, waiting, quest = std::move(quest)] { seek(waiting, quest); });
}

void FuseOperations::getattr(FuseReply reply, Inode inode, const fuse_file_info* file) {
    const auto known = domain_.attributes(inode);
    if (const int* code = std::get_if<int>(&known)) return reply.error(*code);
    Attributes attributes = std::get<Attributes>(known);
    if (file && file->fh) {
        // Only this handle's size, if the file was opened on other content than it shows.
        const std::uint64_t size = openFileOf(*file)->content->size();
        const bool holdsForAll = attributes.size == size;
        attributes.size = size;
        return reply.attributes(attributes, holdsForAll);
    }
    if (attributes.isFolder || attributes.size) return reply.attributes(attributes);
    auto use = [this, inode](const WaitingPtr& waiting, const ContentPtr& content, bool anyway) {
        if (!domain_.contentArrived(inode, *content) && !anyway) return false;
        const auto now = domain_.attributes(inode);
        auto answer = waiting->take();
        if (!answer) return true;
        if (const int* code = std::get_if<int>(&now)) return answer->error(*code), true;
        Attributes complete = std::get<Attributes>(now);
        complete.size = content->size();
        answer->attributes(complete);
        return true;
    };
    seek(waitingRequests_.add(std::move(reply)), {inode, std::move(use)});
}

void FuseOperations::open(FuseReply reply, Inode inode, const fuse_file_info& file) {
    if (asksToWrite(file)) return reply.error(EROFS);
    auto use = [this, inode, file](const WaitingPtr& waiting, const ContentPtr& content, bool anyway) {
        return openOn(waiting, inode, file, content, anyway);
    };
    seek(waitingRequests_.add(std::move(reply)), {inode, std::move(use)});
}

// The kernel's pages of an inode are always of the content that the inode shows: a change throws them away,
// and no file is opened on it before that has happened. Other content goes past them.
bool FuseOperations::openOn(const WaitingPtr& waiting, Inode inode, fuse_file_info file,
                            const ContentPtr& content, bool anyway) {
    const Opening opening = domain_.open(inode, content);
    if (opening == Opening::moved && !anyway) return false;
    if (opening == Opening::moved) domain_.opened(inode);
    const bool throughTheKernel = opening == Opening::throughTheKernel;
    file.keep_cache = throughTheKernel ? 1 : 0;
    file.direct_io = throughTheKernel ? 0 : 1;
    OpenFile* const handle = keepOpen(inode, content);
    file.fh = reinterpret_cast<std::uint64_t>(handle);
    notifier_->whenHeard(inode, [this, waiting, file, handle] {
        auto reply = waiting->take();
        if (!reply || !reply->opened(file)) close(handle);
    });
    return true;
}

void FuseOperations::read(FuseReply reply, const fuse_file_info& file, std::uint64_t offset,
                          std::size_t size) {
    const Content& content = *openFileOf(file)->content;
    const std::uint64_t left = content.size() - std::min(offset, content.size());
    reply.fileRange(content.descriptor(), offset,
                    static_cast<std::size_t>(std::min<std::uint64_t>(size, left)));
}

void FuseOperations::release(FuseReply reply, const fuse_file_info& file) {
    close(openFileOf(file));
    reply.error(0);
}

void FuseOperations::statfs(FuseReply reply) {
    struct statvfs status {};
    if (statvfs(options_.disk.c_str(), &status) != 0) return reply.error(errno);
    reply.fileSystem(status);
}

void FuseOperations::getxattr(FuseReply reply, Inode inode, const char* name, std::size_t room) {
    const auto value = domain_.extendedAttribute(inode, name);
    if (const int* code = std::get_if<int>(&value)) return reply.error(*code);
    reply.attributeValue(std::get<std::string>(value), room);
}

void FuseOperations::listxattr(FuseReply reply, Inode inode, std::size_t room) {
    std::string names;
    for (const std::string& name : domain_.extendedAttributeNames(inode))
        names.append(name).push_back('\0');
    reply.attributeValue(names, room);
}

}  // namespace vorlinden::mount
