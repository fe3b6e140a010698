#include "linux/mount/fates.h"

namespace vorlinden::mount {

Fates::Fates(const ChangeBatch& batch) {
    for (const auto& item : batch.updated)
        mention(item.itemIdentifier) = {.item = &item, .inChangeSet = true};
    for (const auto& identifier : batch.deleted) {
        Fate& fate = mention(identifier);
        fate.contradictory = fate.item != nullptr;
        fate.inChangeSet = true;
        fate.item = nullptr;
    }
    for (const auto& answer : batch.answers)
        std::visit([this](const auto& known) { read(known); }, answer);
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
    fate = {.item = item, .settled = true, .inChangeSet = fate.inChangeSet};
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
