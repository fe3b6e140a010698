#include "linux/mount/change_plan.h"

#include <algorithm>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>

namespace vorlinden::mount {
namespace {

class Inquiry {
 public:
    Inquiry(const ItemTree& tree, const ChangePlan& plan) : tree_(tree), plan_(plan) {}

    // Listings first: they answer for many items at once.
    Questions questions() {
        askForListingsOfSuccessors();
        askForListingsOfChangedFolders();
        askForTopsOfGoneFolders();
        askForTopsWithOrphans();
        askForListingsWithCollisions();
        if (containers_.empty()) {
            askForContradictions();
            askForUnknownContainers();
            askForChildrenOfGoneFolders();
            askForChildrenMissingInListings();
        }
        return {{containers_.begin(), containers_.end()}, {items_.begin(), items_.end()}};
    }

 private:
    void askForListing(const ItemIdentifier& container) {
        if (!plan_.fates.isListing(container)) containers_.insert(container);
    }

    void askForItem(const ItemIdentifier& identifier) {
        const Fate* fate = plan_.fates.of(identifier);
        if (!fate || !fate->settled) items_.insert(identifier);
    }

    // A folder that was listed stays listed under its new identifier, and the children that it kept need not
    // be in the change set.
    void askForListingsOfSuccessors() {
        for (const auto& [node, item] : plan_.succession.successors)
            if (node->folder && node->folder->listed) askForListing(item->itemIdentifier);
    }

    // It may have been away in between, and what it then lost or gained isn't in the change set either.
    void askForListingsOfChangedFolders() {
        for (const auto identifier : plan_.fates.mentioned()) {
            const Node* node = plan_.fates.of(identifier)->inChangeSet ? tree_.findItem(identifier) : nullptr;
            if (node && node->isFolder() && node->folder->listed && !plan_.fates.isGone(identifier))
                askForListing(node->identifier);
        }
    }

    template <class Visit>
    void forGoneFolders(Visit visit) const {
        for (const auto identifier : plan_.fates.mentioned()) {
            if (!plan_.fates.isGone(identifier)) continue;
            const Node* node = tree_.findItem(identifier);
            if (node && node->isFolder()) visit(*node);
        }
    }

    // What lost its folder hangs under the brain from then on.
    void askForTopsOfGoneFolders() {
        forGoneFolders([this](const Node& node) {
            if (plan_.succession.successors.contains(&node)) return;
            const Node* top = &node;
            while (top->parent && top->parent->inode != rootInode)
                top = top->parent;
            if (top != &node && isShownAfterwards(tree_, plan_.fates, top->identifier))
                askForListing(top->identifier);
        });
    }

    // A folder that comes may be the one that an orphan has lost, and then nothing else says so.
    void askForTopsWithOrphans() {
        const auto isNewFolder = [this](std::string_view identifier) {
            const Item* item = plan_.fates.of(identifier)->item;
            return item && item->contentType.isDirectory() && !tree_.findItem(identifier);
        };
        const auto& mentioned = plan_.fates.mentioned();
        if (std::none_of(mentioned.begin(), mentioned.end(), isNewFolder)) return;
        for (const Node* top : tree_.find(rootInode)->folder->byInode) {
            if (!top->isFolder() || !isShownAfterwards(tree_, plan_.fates, top->identifier)) continue;
            const auto& children = top->folder->byInode;
            if (std::any_of(children.begin(), children.end(), [](const Node* child) { return child->stray; }))
                askForListing(top->identifier);
        }
    }

    // Two items of one name: it belongs to the one in the folder's own listing.
    void askForListingsWithCollisions() {
        std::set<std::pair<std::string_view, std::string_view>> names;
        for (const auto identifier : plan_.fates.mentioned()) {
            const Item* item = plan_.fates.of(identifier)->item;
            const auto container = plan_.fates.of(identifier)->container;
            if (!item || !isShownAfterwards(tree_, plan_.fates, container)) continue;
            const bool second = !names.emplace(container, item->filename).second;
            if (second || mayBeTakenByAnother(container, item->filename))
                askForListing(ItemIdentifier(container));
        }
    }

    bool mayBeTakenByAnother(std::string_view container, std::string_view name) const {
        const Node* folder = tree_.findItem(container);
        if (!folder) return false;
        const Node* holder = tree_.child(*folder, name);
        return folder->folder->hasSubstitutes || (holder && !plan_.fates.of(holder->identifier));
    }

    void askForContradictions() {
        for (const auto identifier : plan_.fates.mentioned())
            if (plan_.fates.of(identifier)->contradictory) askForItem(ItemIdentifier(identifier));
    }

    void askForUnknownContainers() {
        for (const auto identifier : plan_.fates.mentioned()) {
            const auto unknown = plan_.fates.of(identifier)->unknown;
            const Node* node = unknown.empty() ? nullptr : tree_.findItem(identifier);
            if (node && node->place == Node::Place::shown) askForItem(ItemIdentifier(unknown));
        }
    }

    void askForChildrenOfGoneFolders() {
        forGoneFolders([this](const Node& node) {
            for (const Node* child : node.folder->byInode)
                if (!plan_.fates.of(child->identifier)) askForItem(child->identifier);
        });
    }

    void askForChildrenMissingInListings() {
        for (const auto container : plan_.fates.listings()) {
            const Node* node = tree_.findItem(container);
            if (!node || !node->isFolder()) continue;
            for (const Node* child : node->folder->byInode) {
                const Fate* fate = plan_.fates.of(child->identifier);
                if (!fate || (fate->item && fate->container == container)) askForItem(child->identifier);
            }
        }
        for (const auto identifier : plan_.fates.mentioned()) {
            const Fate* fate = plan_.fates.of(identifier);
            if (fate->item && plan_.fates.isListing(fate->container)) askForItem(fate->item->itemIdentifier);
        }
    }

    const ItemTree& tree_;
    const ChangePlan& plan_;
    std::set<ItemIdentifier> containers_;
    std::set<ItemIdentifier> items_;
};

}  // namespace

bool isShownAfterwards(const ItemTree& tree, const Fates& fates, std::string_view container) {
    if (fates.isListing(container)) return true;
    const Node* node = tree.findItem(container);
    return node && node->isFolder() && node->folder->listed && !fates.isGone(container);
}

ChangePlan planChanges(const ItemTree& tree, const ChangeBatch& batch) {
    ChangePlan plan{.fates = Fates(tree, batch), .succession = {}, .questions = {}};
    plan.succession = findSuccession(tree, plan.fates);
    plan.questions = Inquiry(tree, plan).questions();
    return plan;
}

}  // namespace vorlinden::mount
