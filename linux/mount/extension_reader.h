// Reads the tree and its changes out of an extension, each in one call that returns when the answer is there.
#pragma once

#include <optional>
#include <variant>
#include <vector>

#include "linux/mount/change_batch.h"
#include "platform/fileprovider/protocol.h"

namespace vorlinden::mount {

using platform::fileprovider::Error;
using platform::fileprovider::ReplicatedExtension;
using platform::fileprovider::SyncAnchor;

// All throw platform::fileprovider::Error as the extension reports it. They wait for the local disk only.

std::vector<Item> listContainer(ReplicatedExtension& extension, const ItemIdentifier& container);
// Absent if there is no such item.
std::optional<Item> lookUpItem(ReplicatedExtension& extension, const ItemIdentifier& identifier);
SyncAnchor currentAnchor(ReplicatedExtension& extension);

struct WorkingSetChanges {
    std::vector<Item> updated;
    std::vector<ItemIdentifier> deleted;
    SyncAnchor anchor;  // to ask from next time
};
WorkingSetChanges changesSince(ReplicatedExtension& extension, const SyncAnchor& anchor);

}  // namespace vorlinden::mount
