#include "linux/mount/tree_node.h"

namespace vorlinden::mount {

std::optional<std::uint64_t> Node::size() const {
    if (contentSize) return contentSize;
    if (documentSize && *documentSize >= 0) return static_cast<std::uint64_t>(*documentSize);
    return std::nullopt;
}

Item Node::item() const {
    return {.itemIdentifier = identifier,
            .parentItemIdentifier = inode == rootInode ? identifier : containerIdentifier(),
            .filename = filename,
            .contentType = {*contentType},
            .itemVersion = {platform::Data::copyOf(contentVersion), platform::Data::copyOf(metadataVersion)},
            .capabilities = capabilities,
            .documentSize = documentSize,
            .contentModificationDate = contentModificationDate,
            .creationDate = creationDate,
            .uploadingError = uploadingError ? std::optional(*uploadingError) : std::nullopt};
}

bool hasContentOf(const Node& node, const Item& item) {
    return node.identifier == item.itemIdentifier &&
           node.contentVersion == item.itemVersion.contentVersion.view() &&
           node.contentModificationDate == item.contentModificationDate &&
           node.documentSize == item.documentSize;
}

}  // namespace vorlinden::mount
