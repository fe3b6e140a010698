#include "linux/mount/fates.h"

namespace vorlinden::mount {

Fates::Fates(const ItemTree& tree, const ChangeBatch& batch) {
    for (const auto& item : batch.updated) {
        Fate& fate = mention(item.itemIdentifier);
        fate.item = &item;
        fate.inChangeSet = true;
    }
    for (const auto& identifier : batch.deleted) {
        Fate& fate = mention(identifier);
        fate.contradictory = fate.item != nullptr;
        fate.inChangeSet = true;
        fate.item = nullptr;
    }
    for (const auto& answer : batch.answers)
        std::visit([this](const auto& known) { read(known); }, answer);
    for (auto& [identifier, fate] : fates_)
        if (fate.item) findContainer(tree, fate);
}

bool Fates::isFile(const ItemTree& tree, std::string_view identifier) const {
    if (const Fate* fate = of(identifier)) return fate->item && !fate->item->contentType.isDirectory();
    const Node* node = tree.findItem(identifier);
    return node && !node->isFolder();
}

// Empty where it isn't known.
std::string_view Fates::parentOf(const ItemTree& tree, std::string_view identifier) const {
    if (const Fate* fate = of(identifier))
        return fate->item ? std::string_view(fate->item->parentItemIdentifier) : std::string_view();
    const Node* node = tree.findItem(identifier);
    return node && node->inode != rootInode ? std::string_view(node->containerIdentifier())
                                            : std::string_view();
}

// An item whose folder became a file is as good as an orphan, and is shown where orphans are: right under the
// brain.
void Fates::findContainer(const ItemTree& tree, Fate& fate) const {
    const std::string_view parent = fate.item->parentItemIdentifier;
    fate.container = parent;
    std::string_view top = parent;
    for (std::unordered_set<std::string_view> passed; passed.insert(top).second;) {
        if (!of(top) && !tree.findItem(top)) {
            fate.unknown = top;
            return;
        }
        if (top == parent && !isFile(tree, top)) return;
        const auto above = parentOf(tree, top);
        if (above.empty()) return;
        if (above == platform::fileprovider::rootContainerItemIdentifier) {
            fate.container = top;
            return;
        }
        top = above;
    }
}

void Fates::read(const ChangeBatch::Listing& listing) {
    listings_.insert(listing.container);
    for (const auto& item : listing.items)
        settle(item.itemIdentifier, &item).listed = true;
}

void Fates::read(const ChangeBatch::Lookup& lookup) {
    settle(lookup.identifier, lookup.item ? &*lookup.item : nullptr);
}

Fate& Fates::settle(std::string_view identifier, const Item* item) {
    Fate& fate = mention(identifier);
    fate.item = item;
    fate.listed = false;
    fate.settled = true;
    fate.contradictory = false;
    return fate;
}

Fate& Fates::mention(std::string_view identifier) {
    const auto [place, isNew] = fates_.try_emplace(identifier);
    if (isNew) mentioned_.push_back(identifier);
    return place->second;
}

const Fate* Fates::of(std::string_view identifier) const {
    const auto found = fates_.find(identifier);
    return found == fates_.end() ? nullptr : &found->second;
}

bool Fates::isGone(std::string_view identifier) const {
    const Fate* fate = of(identifier);
    return fate && !fate->item;
}

}  // namespace vorlinden::mount
