// One inode of the mount and the item bound to it, packed: a hundred thousand of them are held in memory.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/fileprovider/protocol.h"

namespace vorlinden::mount {

using platform::Timestamp;
using platform::fileprovider::Item;
using platform::fileprovider::ItemIdentifier;

using Inode = std::uint64_t;  // the kernel's number for a node
inline constexpr Inode rootInode = 1;
// Those below are special to the kernel or mark places in a listing.
inline constexpr Inode firstFreeInode = 16;

struct Node;

// What makes a node a folder. Children are known only once it was listed.
struct Folder {
    bool listed = false;
    bool hasSubstitutes = false;                         // some child is shown under another than its name
    std::unordered_map<std::string_view, Node*> byName;  // by shown name; the views point into the children
    std::vector<Node*> byInode;                          // the same children by rising inode
    std::optional<Timestamp> listingChanged;             // when children came or went, as far as seen here

    // See ItemTree::comingNext.
    bool walked = false;
    unsigned demands = 0;
    Inode aheadFrom = 0, aheadUntil = 0;
};

struct Node {
    enum class Place {
        shown,      // a child of a listed folder, or the root
        elsewhere,  // its item lives on in a folder that isn't listed here
        gone,       // its item is gone, or is shown by another inode; kept while the kernel refers to it
    };

    Inode inode = 0;
    Place place = Place::elsewhere;
    bool stray = false;              // last heard of by a change, and not yet seen in a listing of its folder
    Node* parent = nullptr;          // only when shown
    std::unique_ptr<Folder> folder;  // null: a file

    ItemIdentifier identifier;
    std::string filename;                       // the true name
    std::unique_ptr<std::string> substitute;    // what is shown in its place
    std::unique_ptr<ItemIdentifier> container;  // the parent's identifier, only when elsewhere or gone
    const std::string* contentType = nullptr;   // interned by the tree
    std::string contentVersion;
    std::string metadataVersion;
    std::uint32_t capabilities = 0;
    std::optional<std::int64_t> documentSize;  // bytes, as the item says
    std::optional<Timestamp> contentModificationDate;
    std::optional<Timestamp> creationDate;
    std::unique_ptr<platform::fileprovider::Error> uploadingError;

    std::optional<std::uint64_t> contentSize;  // bytes, as the content itself turned out to have
    std::uint64_t lookups = 0;                 // references that the kernel holds
    std::uint32_t opens = 0;                   // handles on the content, as it was when they were opened
    // Bytes, the least that the kernel may take for the file's size; absent since the content changed.
    std::optional<std::uint64_t> kernelSize;
    Inode successor = 0;  // of a gone folder: the one that took its place, or 0

    bool isFolder() const { return folder != nullptr; }
    bool isReferred() const { return lookups > 0 || opens > 0 || inode == rootInode; }
    const std::string& shownName() const { return substitute ? *substitute : filename; }
    const ItemIdentifier& containerIdentifier() const { return parent ? parent->identifier : *container; }
    std::optional<std::uint64_t> size() const;
    Item item() const;
};

// Whether both have the same bytes: same identifier, content version, date and size. A version alone doesn't
// tell, since an item that was deleted and made anew starts counting again.
bool hasContentOf(const Node& node, const Item& item);

}  // namespace vorlinden::mount
