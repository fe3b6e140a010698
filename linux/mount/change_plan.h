// Reads a batch of changes against the tree: what becomes of whom, and what must be asked before it is clear.
#pragma once

#include <string_view>

#include "linux/mount/fates.h"
#include "linux/mount/item_tree.h"
#include "linux/mount/succession.h"

namespace vorlinden::mount {

// A view of the tree and the batch it was made of.
struct ChangePlan {
    Fates fates;
    Succession succession;
    Questions questions;  // unless they are empty, the rest may change with their answers
};

// A folder whose children are known one by one: listed, and still there after the batch.
bool isShownAfterwards(const ItemTree& tree, const Fates& fates, std::string_view container);

// Pure.
ChangePlan planChanges(const ItemTree& tree, const ChangeBatch& batch);

}  // namespace vorlinden::mount
