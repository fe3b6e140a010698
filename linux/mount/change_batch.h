// What the tree is told and what it tells: changes in, invalidations of the kernel's caches out. All values.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "linux/mount/tree_node.h"

namespace vorlinden::mount {

// One change set of the extension together with what was asked of it because of the set. The order inside
// `updated` and `deleted` means nothing. Answers stand in the order in which they were read, all of them
// later than the change set, so that the last one that speaks of an item is right.
struct ChangeBatch {
    struct Listing {
        ItemIdentifier container;
        std::vector<Item> items;
    };
    struct Lookup {
        ItemIdentifier identifier;
        std::optional<Item> item;  // absent: there is no such item
    };

    std::vector<Item> updated;
    std::vector<ItemIdentifier> deleted;
    std::vector<std::variant<Listing, Lookup>> answers;
};

// What must be asked of the extension before a batch can be applied.
struct Questions {
    std::vector<ItemIdentifier> containers;  // list them
    std::vector<ItemIdentifier> items;       // look them up
    bool empty() const { return containers.empty() && items.empty(); }
};

// The kernel is to forget what it knows of a name, be it that nothing has it.
struct EntryChanged {
    Inode folder;
    std::string name;
    bool operator==(const EntryChanged&) const = default;
};
// As above, and the item is gone for good: whoever stands in it is told.
struct EntryDeleted {
    Inode folder;
    Inode inode;
    std::string name;
    bool operator==(const EntryDeleted&) const = default;
};
// The kernel is to forget an inode's attributes and, with `data`, its bytes or its listing.
struct InodeChanged {
    Inode inode;
    bool data;
    bool operator==(const InodeChanged&) const = default;
};
using Invalidation = std::variant<EntryChanged, EntryDeleted, InodeChanged>;

}  // namespace vorlinden::mount
