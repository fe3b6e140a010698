// What the platform's identifiers stand for in the catalogue, at this moment.
#pragma once

#include <optional>
#include <string>

#include "fileprovider/types.h"
#include "synckit/catalogue/metadata_store.h"

namespace vorlinden::fileprovider {

// Throws noSuchItem for what is no node, or unknown, and what the store throws.
NodeRecord requireNode(const ItemIdentifier& identifier, MetadataStore& store);

// The parent of a node as the catalogue has it now; absent for what is no node, or unknown. Throws what the
// store throws.
std::optional<ItemIdentifier> existingParent(const ItemIdentifier& identifier, MetadataStore& store);

// A container that items can be put into: the root, a brain or a folder.
struct ParentFolder {
    SyncItemIdentifier identifier;
    std::optional<std::string> path;  // of a folder, inside its brain
    bool operator==(const ParentFolder&) const = default;
};

// Throws noSuchItem for what is no container, or isn't there any more, and what the store throws.
ParentFolder resolveParent(const ItemIdentifier& identifier, MetadataStore& store);

}  // namespace vorlinden::fileprovider
