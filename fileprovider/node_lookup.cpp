#include "fileprovider/node_lookup.h"

#include <utility>
#include <variant>

#include "fileprovider/error_mapping.h"
#include "fileprovider/items.h"

namespace vorlinden::fileprovider {

namespace {

Error noSuchItem() {
    return providerError(platform::fileprovider::noSuchItem);
}

// Absent for what is no node, or unknown.
std::optional<NodeRecord> nodeOf(const ItemIdentifier& identifier, MetadataStore& store) {
    const auto known = syncIdentifier(identifier);
    const auto* node = known ? std::get_if<SyncItemIdentifier::Node>(&known->value) : nullptr;
    if (!node) return {};
    return store.nodeById(node->brainId, node->nodeId);
}

// The path of a container that the catalogue has.
struct ContainerPath {
    MetadataStore& store;

    std::optional<std::string> operator()(const SyncItemIdentifier::Root&) const { return {}; }
    std::optional<std::string> operator()(const SyncItemIdentifier::Brain& brain) const {
        if (!store.brain(brain.brainId)) throw noSuchItem();
        return {};
    }
    std::optional<std::string> operator()(const SyncItemIdentifier::Node& node) const {
        auto record = store.nodeById(node.brainId, node.nodeId);
        if (!record || !record->isDirectory) throw noSuchItem();
        return std::move(record->path);
    }
};

}  // namespace

NodeRecord requireNode(const ItemIdentifier& identifier, MetadataStore& store) {
    auto record = nodeOf(identifier, store);
    if (!record) throw noSuchItem();
    return *std::move(record);
}

std::optional<ItemIdentifier> existingParent(const ItemIdentifier& identifier, MetadataStore& store) {
    const auto record = nodeOf(identifier, store);
    if (!record) return {};
    return platformIdentifier(store.parentIdentifier(*record));
}

ParentFolder resolveParent(const ItemIdentifier& identifier, MetadataStore& store) {
    auto known = syncIdentifier(identifier);
    if (!known) throw noSuchItem();
    auto path = std::visit(ContainerPath{store}, known->value);
    return {*std::move(known), std::move(path)};
}

}  // namespace vorlinden::fileprovider
