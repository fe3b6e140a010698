// Listings. A place in a listing is the inode of the last entry handed out, so it stays good whatever comes
// and goes meanwhile; "." and ".." have places below the first inode.

#include <cerrno>
#include <vector>

#include "linux/mount/fuse_operations.h"

namespace vorlinden::mount {

namespace {

constexpr std::uint64_t placeOfSelf = 2;
constexpr std::uint64_t placeOfParent = 3;
static_assert(placeOfParent < firstFreeInode);

// Fills the kernel's buffer until it is full.
class Listing {
 public:
    Listing(fuse_req_t request, std::size_t room) : request_(request), bytes_(room) {}

    std::string_view bytes() const { return {bytes_.data(), used_}; }

    // Each gives false when there was no room.
    bool addName(const char* name, const Attributes& attributes, std::uint64_t place) {
        const struct stat status = statOf(attributes);
        return took(fuse_add_direntry(request_, end(), room(), name, &status, static_cast<off_t>(place)));
    }
    // With attributes where they are known; else the kernel asks when somebody wants them.
    bool addEntry(const char* name, const Attributes& attributes, std::uint64_t place, bool withAttributes) {
        fuse_entry_param entry{};
        entry.attr = statOf(attributes);
        if (withAttributes) {
            entry.ino = attributes.inode;
            entry.entry_timeout = entry.attr_timeout = keepLong;
        }
        return took(fuse_add_direntry_plus(request_, end(), room(), name, &entry, static_cast<off_t>(place)));
    }

 private:
    char* end() { return bytes_.data() + used_; }
    std::size_t room() const { return bytes_.size() - used_; }
    bool took(std::size_t size) {
        if (size > room()) return false;
        used_ += size;
        return true;
    }

    fuse_req_t request_;
    std::vector<char> bytes_;
    std::size_t used_ = 0;
};

Attributes folderOf(Inode inode) {
    Attributes folder;
    folder.inode = inode;
    folder.isFolder = true;
    return folder;
}

// "." and "..", as far as they come after `offset`; false when there was no room.
template <class Add>
bool addDots(Inode folder, Inode parent, std::uint64_t offset, Add add) {
    if (offset < placeOfSelf && !add(".", folderOf(folder), placeOfSelf)) return false;
    return offset >= placeOfParent || add("..", folderOf(parent), placeOfParent);
}

Inode lastInodeBefore(std::uint64_t offset) {
    return offset < firstFreeInode ? 0 : offset;
}

// Bytes that an entry takes at the least, by the kernel's format (struct fuse_dirent, fuse_direntplus).
constexpr std::size_t smallestName = 32;
constexpr std::size_t smallestEntry = 152;

}  // namespace

void FuseOperations::readdir(FuseReply reply, Inode folder, std::uint64_t offset, std::size_t size) {
    whenListed(std::move(reply), folder,
               [=, this](FuseReply& answer) { sendListing(answer, folder, offset, size); });
}

void FuseOperations::readdirplus(FuseReply reply, Inode folder, std::uint64_t offset, std::size_t size) {
    whenListed(std::move(reply), folder,
               [=, this](FuseReply& answer) { sendListingPlus(answer, folder, offset, size); });
}

void FuseOperations::sendListing(FuseReply& reply, Inode folder, std::uint64_t offset, std::size_t size) {
    Listing listing(reply.request(), size);
    const auto add = [&](const char* name, const Attributes& attributes, std::uint64_t place) {
        return listing.addName(name, attributes, place);
    };
    if (addDots(folder, domain_.parent(folder), offset, add)) {
        for (const auto& entry :
             domain_.entries(folder, lastInodeBefore(offset), size / smallestName + 1, false))
            if (!add(entry.name.c_str(), entry.attributes, entry.attributes.inode)) break;
    }
    reply.bytes(listing.bytes());
}

void FuseOperations::sendListingPlus(FuseReply& reply, Inode folder, std::uint64_t offset, std::size_t size) {
    Listing listing(reply.request(), size);
    const auto addDot = [&](const char* name, const Attributes& attributes, std::uint64_t place) {
        return listing.addEntry(name, attributes, place, false);
    };
    std::vector<Inode> handedOut;
    if (addDots(folder, domain_.parent(folder), offset, addDot)) {
        bool full = false;
        for (const auto& [name, attributes] :
             domain_.entries(folder, lastInodeBefore(offset), size / smallestEntry + 1, true)) {
            const bool isReferred = attributes.isFolder || attributes.size;
            full = full || !listing.addEntry(name.c_str(), attributes, attributes.inode, isReferred);
            if (!isReferred) continue;
            if (full)
                domain_.forget(attributes.inode, 1);
            else
                handedOut.push_back(attributes.inode);
        }
    }
    if (reply.bytes(listing.bytes())) return;
    for (const Inode inode : handedOut)
        domain_.forget(inode, 1);
}

}  // namespace vorlinden::mount
