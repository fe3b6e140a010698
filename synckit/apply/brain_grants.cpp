#include "synckit/apply/brain_grants.h"

#include <unordered_set>

#include "synckit/catalogue/metadata_store.h"

namespace vorlinden::BrainGrants {

namespace {

// Whether the user sees a difference.
bool grant(const UUID& id, const Brain& brain, MetadataStore& store) {
    const auto before = store.brain(id);
    store.upsertBrain({id, brain.slug, brain.name, std::nullopt});
    if (before && before->slug == brain.slug && before->name == brain.name) return false;
    store.appendChange(SyncItemIdentifier::brain(id), false);
    return true;
}

void revoke(const UUID& id, MetadataStore& store) {
    for (const auto& node : store.allNodes(id)) {
        store.deleteNode(id, node.nodeId);
        store.appendChange(node.identifier(), true);
    }
    store.deleteBrain(id);
    store.appendChange(SyncItemIdentifier::brain(id), true);
}

}  // namespace

bool apply(const std::vector<Brain>& brains, MetadataStore& store) {
    return store.inTransaction([&] {
        bool changed = false;
        std::unordered_set<UUID> granted;
        for (const auto& brain : brains) {
            const auto id = UUID::parse(brain.id);
            if (!id) continue;
            granted.insert(*id);
            if (grant(*id, brain, store)) changed = true;
        }
        for (const auto& known : store.brains()) {
            if (granted.contains(known.brainId)) continue;
            revoke(known.brainId, store);
            changed = true;
        }
        return changed;
    });
}

}  // namespace vorlinden::BrainGrants
