// Catalogue records as the items that the daemon sees, and the way back from its identifiers and versions.
//
// Items are values, right for the moment they were made. The content version is the record's counter as
// decimal text; the metadata version is a digest of what else a reader could see change.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "fileprovider/types.h"
#include "synckit/catalogue/metadata_store.h"

namespace vorlinden::fileprovider {

// The folder that holds the brains.
struct RootItem : Item {
    RootItem();
};

// A brain (a folder named by its slug) or a node.
struct FileProviderItem : Item {
    // Throws SQLiteError or MetadataStoreError if the parent can't be read.
    FileProviderItem(const SyncItem& item, MetadataStore& store);
};

// The domain of the error that tells a person why a node was not uploaded; its code is 1.
inline const std::string uploadErrorDomain = "ai.vorlinden.desktop.upload";

// Absent for the working set, the trash, and whatever the catalogue never named.
std::optional<SyncItemIdentifier> syncIdentifier(const ItemIdentifier& identifier);
ItemIdentifier platformIdentifier(const SyncItemIdentifier& identifier);

// A decimal 64-bit number with an optional sign and nothing around it; absent for anything else, overflow
// included.
std::optional<std::int64_t> parseDecimal(std::string_view text);
// The counter that an item's content version carries; absent for a version that no item of ours had.
std::optional<std::int64_t> baseContentVersion(const ItemVersion& version);
// The 32 bytes of the text's SHA-256.
Data versionDigest(std::string_view text);

}  // namespace vorlinden::fileprovider
