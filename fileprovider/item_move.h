// A new name or a new parent of an item that is there.
#pragma once

#include <optional>
#include <string>

#include "fileprovider/write_frame.h"

namespace vorlinden::fileprovider {

// Gives the node's record now, which may have another name than was asked for (the server has one of that
// name), or stand where it stood and say why. What is absent stays as it is. Throws cannotSynchronize with a
// sentence for a parent that can't be one, noSuchItem for one that is gone, and what passes; the journal row
// then waits.
Task<NodeRecord> applyNameAndParent(CorePtr core, const WriteContext& context, const NodeRecord& record,
                                    std::optional<std::string> newName,
                                    std::optional<ItemIdentifier> newParent);

}  // namespace vorlinden::fileprovider
