// A file provider domain as the file system sees it: the tree of inodes, kept current by the extension.
//
// Owns the ItemTree and guards it with one small lock, under which neither the extension nor the content
// store's slow parts are called. A thread of its own does all the reading of the extension, one thing after
// the other: it enumerates folders when they are first looked into, hears the working set's signal, reads the
// changes since the last anchor and applies them as one. Every operation may be called from any thread and
// waits for nothing; what has to be read first is handed to that thread, which calls back.
#pragma once

#include <cstdint>
#include <filesystem>
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

// How a file is opened on content: not at all, since it isn't what the inode shows; so that reads go through
// the kernel's pages; or past them, since the kernel goes by another size than the content's.
enum class Opening { moved, throughTheKernel, besideTheKernel };

struct DomainSurroundings {
    // A fresh extension object; called at the start and again, after a pause, when the last one's catalogue
    // didn't open.
    std::function<std::shared_ptr<ReplicatedExtension>()> makeExtension;
    // Takes what the kernel must be told, in order. Called with the domain's lock held, so that nobody sees a
    // change of which the kernel has yet to be told without knowing so: it keeps it for later and returns.
    std::function<void(std::vector<Invalidation>)> invalidate;
    // Takes, in the same line, bytes for the kernel to have before anybody reads them.
    std::function<void(Inode, std::shared_ptr<const Content>)> fill;
    // Hears why listings can't be had, and absent when they can again.
    std::function<void(std::optional<std::string>)> extensionTrouble;
    // Where the domain remembers how far it has read, across restarts.
    std::filesystem::path memory;
};

class Domain {
 public:
    Domain(platform::System system, platform::fileprovider::Domain domain, DomainSurroundings surroundings);
    ~Domain();
    Domain(const Domain&) = delete;
    Domain& operator=(const Domain&) = delete;

    // The store is made after the domain, since it asks for the domain's extension; set before start().
    void setContentStore(std::shared_ptr<ContentStore> store);
    // Begins to listen for changes. stop() ends it and waits for its thread; the destructor does so too. What
    // waits then is dropped without being called.
    void start();
    void stop();

    // The extension to ask at this moment; null while there is none.
    std::shared_ptr<ReplicatedExtension> extension();

    // Whether a folder's children are known: 0 or an errno(3), absent if it has to be listed first.
    std::optional<int> listingState(Inode folder);
    // Lists the folder, then calls `then` on the domain's thread with 0, or with EIO or EACCES.
    void list(Inode folder, std::function<void(int)> then);
    // Reads what has changed by now, as far as that can be had, then calls `then` on the domain's thread.
    void refresh(std::function<void()> then);

    // The child of a listed folder under its shown name, with one more reference of the kernel's. ENOENT,
    // ESTALE.
    Outcome<Attributes> lookup(Inode folder, std::string_view name);
    Outcome<Attributes> attributes(Inode inode);
    Inode parent(Inode folder);  // the root is its own
    // Children of a listed folder with inodes above `after`, by rising inode. With `refer`, each carries one
    // more reference of the kernel's when its size is known (folders always): the caller gives back what it
    // doesn't hand out.
    std::vector<DirectoryEntry> entries(Inode folder, Inode after, std::size_t count, bool refer);
    void forget(Inode inode, std::uint64_t count);

    // The item of a file, to ask for its content. ESTALE (so that the kernel looks the name up again),
    // EISDIR.
    Outcome<Item> fileItem(Inode inode);
    // Somebody asks of a file what only its content can tell: when that goes on in one folder, the texts of
    // that folder are fetched ahead.
    void contentWanted(Inode inode);
    // Whether that is the content of the item that the inode shows now; if so, its size is remembered.
    bool contentArrived(Inode inode, const Content& content);
    // As above, and a handle counts as opened on it.
    Opening open(Inode inode, const std::shared_ptr<const Content>& content);
    // A handle was opened on other content, or closed.
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
