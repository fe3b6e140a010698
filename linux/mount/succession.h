// Which item stands, after a batch, for one that the batch takes away.
//
// Identifiers are not for ever: a folder's changes with its path, a reset replaces what the machine made up
// by the server's, a file saved by way of another takes its name. Items say nothing of such kinship, so it is
// read from what stayed the same: the place, the children, the date. Pure functions, any thread.
#pragma once

#include <unordered_map>

#include "linux/mount/fates.h"
#include "linux/mount/item_tree.h"

namespace vorlinden::mount {

struct Succession {
    // Nodes whose item goes, to the item that is new to the tree and stands for the same thing.
    std::unordered_map<const Node*, const Item*> successors;
    // Folders that go without such an item while another folder, known all along, moves to their place.
    std::unordered_map<const Node*, const Node*> replacements;
};

Succession findSuccession(const ItemTree& tree, const Fates& fates);

}  // namespace vorlinden::mount
