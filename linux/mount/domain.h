// A file provider domain as the file system sees it: the tree of inodes, kept current by the extension.
//
// Owns the ItemTree and guards it with one small lock that is never held while the extension, the kernel or
// the content store is called. Folders are enumerated when first looked into, on the thread that asks (a
// local read). A thread of its own hears the working set's signal, reads the changes since the stored anchor
// and applies them as one. Every operation may be called from any thread and waits for nothing but the local
// disk.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "linux/mount/change_batch.h"
#include "linux/mount/content_store.h"
#include "linux/mount/tree_node.h"
#include "platform/system.h"

namespace vorlinden::mount {

// What stat(2) tells of an inode, as far as it is known. A value.
struct Attributes {
    Inode inode = 0;
    bool isFolder = false;
    std::optional<std::uint64_t> size;  // bytes; absent for a text whose content was never here
    Timestamp modified{};
    std::uint32_t links = 1;
    bool operator==(const Attributes&) const = default;
};

struct DirectoryEntry {
    std::string name;
    Attributes attributes;
};

// An operation's answer: its value, or an errno(3).
template <class T>
using Outcome = std::variant<T, int>;

struct DomainSurroundings {
    // A fresh extension object; called at the start and again, after a pause, when the last one's catalogue
    // didn't open.
    std::function<std::shared_ptr<ReplicatedExtension>()> makeExtension;
    // Hears what the kernel must be told, in order. Called with the domain's lock held: it may only take
    // note.
    std::function<void(std::vector<Invalidation>)> invalidate;
    // Hears why listings can't be had, and absent when they can again.
    std::function<void(std::optional<std::string>)> extensionTrouble;
};

class Domain {
 public:
    Domain(platform::System system, platform::fileprovider::Domain domain, DomainSurroundings surroundings);
    ~Domain();
    Domain(const Domain&) = delete;
    Domain& operator=(const Domain&) = delete;

    // The store is made after the domain, since it asks for the domain's extension; set before start().
    void setContentStore(std::shared_ptr<ContentStore> store);
    // Begins to listen for changes. stop() ends it and waits for its thread; the destructor does so too.
    void start();
    void stop();

    // The extension to ask at this moment; null while there is none.
    std::shared_ptr<ReplicatedExtension> extension();

    // The child of a folder under its shown name, with one more reference of the kernel's. ENOENT, ENOTDIR,
    // ESTALE; EIO or EACCES when the folder can't be listed.
    Outcome<Attributes> lookup(Inode folder, std::string_view name);
    Outcome<Attributes> attributes(Inode inode);
    // Lists the folder if that wasn't done yet. 0 or an errno.
    int prepareListing(Inode folder);
    Inode parent(Inode folder);  // the root is its own
    // Children with inodes above `after`, by rising inode. With `refer`, each carries one more reference of
    // the kernel's when its size is known (folders always): the caller gives back what it doesn't hand out.
    std::vector<DirectoryEntry> entries(Inode folder, Inode after, std::size_t count, bool refer);
    void forget(Inode inode, std::uint64_t count);

    // The item of a file, to ask for its content. ESTALE, EISDIR.
    Outcome<Item> fileItem(Inode inode);
    // Somebody asks of a file what only its content can tell: when that goes on in one folder, the texts of
    // that folder are fetched ahead.
    void contentWanted(Inode inode);
    // A size that the content turned out to have; forgotten when the item's content changes.
    void contentArrived(Inode inode, const Content& content);
    // A handle was opened on that content, or closed.
    void opened(Inode inode);
    void closed(Inode inode);

    // Names and values of `user.vorlinden.*`. ENODATA for others.
    std::vector<std::string> extendedAttributeNames(Inode inode);
    Outcome<std::string> extendedAttribute(Inode inode, std::string_view name);

    // Shown path from the mount point, for messages.
    std::string pathOf(const ItemIdentifier& identifier);

 private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace vorlinden::mount
