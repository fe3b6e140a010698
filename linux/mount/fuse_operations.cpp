#include "linux/mount/fuse_operations.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/statvfs.h>

#include "linux/mount/kernel_notifier.h"

namespace vorlinden::mount {

namespace {

// An open file: the bytes as they were when it was opened, whatever becomes of the item.
struct OpenFile {
    Inode inode;
    std::shared_ptr<const Content> content;
};

OpenFile* openFileOf(const fuse_file_info& file) {
    return reinterpret_cast<OpenFile*>(file.fh);
}

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

bool sameContent(const Item& a, const Item& b) {
    return a.itemIdentifier == b.itemIdentifier &&
           a.itemVersion.contentVersion == b.itemVersion.contentVersion &&
           a.contentModificationDate == b.contentModificationDate && a.documentSize == b.documentSize;
}

bool asksToWrite(const fuse_file_info& file) {
    return (file.flags & O_ACCMODE) != O_RDONLY || (file.flags & O_TRUNC);
}

}  // namespace

FuseOperations::FuseOperations(Domain& domain, ContentStore& contents, FuseOptions options)
    : domain_(domain), contents_(contents), options_(std::move(options)) {}

void FuseOperations::lookup(FuseReply reply, Inode folder, const char* name) {
    const auto found = domain_.lookup(folder, name);
    if (const int* code = std::get_if<int>(&found)) {
        if (*code == ENOENT) return reply.noEntry();
        return reply.error(*code);
    }
    const Attributes& attributes = std::get<Attributes>(found);
    if (!reply.entry(attributes)) domain_.forget(attributes.inode, 1);
}

void FuseOperations::withContent(FuseReply reply, Inode inode, Then then) {
    const auto item = domain_.fileItem(inode);
    if (const int* code = std::get_if<int>(&item)) return reply.error(*code);
    if (auto content = contents_.openIfHere(std::get<Item>(item))) {
        domain_.contentArrived(inode, *content);
        return then(reply, std::move(content));
    }
    domain_.contentWanted(inode);
    const std::uint64_t number = interrupts_.watch(reply.request());
    auto waiting = std::make_shared<FuseReply>(std::move(reply));
    auto answer = [this, number, inode, waiting, then = std::move(then)](ContentResult result) {
        interrupts_.done(number);
        if (const auto* failure = std::get_if<ContentFailure>(&result))
            return waiting->error(errnoOf(*failure));
        auto& content = std::get<std::shared_ptr<const Content>>(result);
        domain_.contentArrived(inode, *content);
        then(*waiting, std::move(content));
    };
    interrupts_.waitsFor(number, contents_.open(std::get<Item>(item), options_.deadline, std::move(answer)));
}

void FuseOperations::getattr(FuseReply reply, Inode inode, const fuse_file_info* file) {
    const auto known = domain_.attributes(inode);
    if (const int* code = std::get_if<int>(&known)) return reply.error(*code);
    Attributes attributes = std::get<Attributes>(known);
    if (file && file->fh) attributes.size = openFileOf(*file)->content->size();
    if (attributes.isFolder || attributes.size) return reply.attributes(attributes);
    withContent(std::move(reply), inode, [attributes](FuseReply& answer, const auto& content) mutable {
        attributes.size = content->size();
        answer.attributes(attributes);
    });
}

void FuseOperations::open(FuseReply reply, Inode inode, const fuse_file_info& file) {
    if (asksToWrite(file)) return reply.error(EROFS);
    withContent(std::move(reply), inode, [this, inode, file](FuseReply& answer, auto content) {
        openOn(answer, inode, file, std::move(content));
    });
}

void FuseOperations::openOn(FuseReply& reply, Inode inode, fuse_file_info file,
                            std::shared_ptr<const Content> content) {
    auto handle = std::make_unique<OpenFile>(OpenFile{inode, std::move(content)});
    // First of all, so that whatever changes the inode's content from now on finds it open.
    domain_.opened(inode);
    const auto item = domain_.fileItem(inode);
    // Bytes newer than the item that the inode shows must not meet the older ones in the kernel's page cache.
    const bool isCurrent =
        std::holds_alternative<Item>(item) && sameContent(std::get<Item>(item), handle->content->item());
    file.direct_io = isCurrent ? 0 : 1;
    file.keep_cache = isCurrent && notifier_ && notifier_->isIdle() ? 1 : 0;
    file.fh = reinterpret_cast<std::uint64_t>(handle.get());
    if (reply.opened(file))
        static_cast<void>(handle.release());  // the kernel's until it releases the file
    else
        domain_.closed(inode);
}

void FuseOperations::read(FuseReply reply, const fuse_file_info& file, std::uint64_t offset,
                          std::size_t size) {
    const Content& content = *openFileOf(file)->content;
    if (offset >= content.size()) return reply.bytes({});
    reply.fileRange(content.descriptor(), offset,
                    static_cast<std::size_t>(std::min<std::uint64_t>(size, content.size() - offset)));
}

void FuseOperations::release(FuseReply reply, const fuse_file_info& file) {
    const std::unique_ptr<OpenFile> handle(openFileOf(file));
    domain_.closed(handle->inode);
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
