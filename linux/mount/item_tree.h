// The tree as the mount shows it: inodes, the items bound to them, and the names under which they appear.
//
// An inode is bound to an item, and keeps its number when the item is replaced by another that stands for the
// same thing: a folder whose identifier changed with its path, an item to which a reset gave the server's
// identifier, another item that took its place by name. So a shell that stands in a folder and a file held
// open live through all of it. An open file whose content changed is the exception: its inode keeps the bytes
// it was opened with and is shown no more, and the name gets a new inode.
//
// Pure: no FUSE, no threads, no clock. Not thread-safe; its owner guards it. Nodes are handed out as pointers
// that are good until the next call that isn't const.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

#include "linux/mount/change_batch.h"
#include "linux/mount/tree_node.h"

namespace vorlinden::mount {

// How the size by which the kernel ends a read compares to that of the content.
enum class KernelSize { right, tooSmall, unsure };

class ItemTree {
 public:
    explicit ItemTree(const Item& root);
    ItemTree(const ItemTree&) = delete;
    ItemTree& operator=(const ItemTree&) = delete;

    // The node of an inode, following a gone folder to the one that took its place; null if there is none.
    const Node* find(Inode inode) const;
    const Node* findItem(std::string_view identifier) const;  // shown or elsewhere, never gone
    const Node* child(const Node& folder, std::string_view shownName) const;
    // Up to `count` children of a folder with inodes above `after`, by rising inode: a place in a listing
    // stays good whatever comes and goes.
    std::vector<const Node*> children(const Node& folder, Inode after, std::size_t count) const;
    // Shown names from below the root, joined by "/"; of something not shown, the name alone.
    std::string path(const Node& node) const;
    // All folders that have been listed, those nearer to the root first.
    std::vector<ItemIdentifier> listedContainers() const;
    // Items right under a brain that a listing of it might not bring back: orphans among them.
    std::vector<ItemIdentifier> strays() const;
    std::size_t size() const { return nodes_.size(); }

    // The kernel's references to an inode, and handles on its content.
    void refer(Inode inode);
    void forget(Inode inode, std::uint64_t count);
    void opened(Inode inode);
    void closed(Inode inode);

    // What the content turned out to have. True if another size was shown before.
    bool setContentSize(Inode inode, std::uint64_t bytes);
    // A name was answered with this size of its file, 0 for one that isn't known.
    void answeredWithSize(Inode inode, std::uint64_t bytes);
    // What somebody who opens the content meets in the kernel; `filled` when it has been given the bytes.
    KernelSize kernelSize(Inode inode, std::uint64_t bytes) const;
    void filled(Inode inode, std::uint64_t bytes);

    // Somebody reads through the folder's entries.
    void walked(Inode folder);
    // Somebody asks of a file what only its content can tell. If it becomes clear that they go on like this
    // through the whole folder, the files of unknown size that come next there, each once.
    std::vector<Item> comingNext(Inode file);

    // Applies the batch as one change and gives what the kernel must be told, in the order in which it must
    // be; or, where something has to be known first, changes nothing and gives the questions. `now` stamps
    // the folders whose children changed.
    std::variant<Questions, std::vector<Invalidation>> apply(const ChangeBatch& batch, Timestamp now);

 private:
    friend class TreeChange;

    Node& makeNode(const Item& item);
    Node* nodeOf(Inode inode);
    Node* nodeOfItem(std::string_view identifier);
    void bind(Node& node, const Item& item);     // to an item, out of any folder
    void refresh(Node& node, const Item& item);  // its item under the same name in the same folder
    void unbind(Node& node);                     // from its item; it is gone then
    void attach(Node& node, Node& parent, std::string shownName);
    void detach(Node& node);  // from its folder
    void dropIfUnused(Node& node);
    void erase(Node& node);

    Inode nextInode_ = rootInode;
    std::unordered_map<Inode, std::unique_ptr<Node>> nodes_;
    std::unordered_map<std::string_view, Node*> byIdentifier_;  // views into the nodes; none that is gone
    std::set<std::string> contentTypes_;
};

}  // namespace vorlinden::mount
