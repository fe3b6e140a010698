#include "synckit/upload/node_content_snapshot.h"

#include <ranges>

#include "synckit/catalogue/metadata_store.h"
#include "synckit/conflicts/conflict_spool.h"

namespace vorlinden {

namespace {

// The newest queued bytes decide, even if their entry is lost: what lies under the node's own key is older.
std::optional<Data> retainedBytesOf(const NodeRecord& node, MetadataStore& store,
                                    const ConflictSpool& spool) {
    const auto journal = store.pendingChanges(node.brainId);
    for (const auto& change : journal | std::views::reverse)
        if (change.id && change.nodeId == node.nodeId) return spool.pendingBytes(*change.id);
    return spool.read(ConflictSpool::nodeKey(node.nodeId));
}

}  // namespace

std::optional<NodeContentSnapshot> NodeContentSnapshot::read(const UUID& brainId, std::string_view nodeId,
                                                             MetadataStore& store,
                                                             const ConflictSpool& spool) {
    auto node = store.nodeById(brainId, nodeId);
    if (!node) return std::nullopt;
    if (!node->localOnly) return NodeContentSnapshot{std::move(*node), std::nullopt, store.cursor(brainId)};
    auto bytes = retainedBytesOf(*node, store, spool);
    if (!bytes) throw FileError::noSuchFile();
    return NodeContentSnapshot{std::move(*node), std::move(bytes), std::nullopt};
}

}  // namespace vorlinden
