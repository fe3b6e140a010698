// What a batch of changes says of each item, whatever order it says it in.
#pragma once

#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "linux/mount/change_batch.h"
#include "linux/mount/item_tree.h"

namespace vorlinden::mount {

struct Fate {
    const Item* item = nullptr;  // as it stands after the batch; null: gone
    std::string_view container;  // where it is to be shown then
    std::string_view
        unknown;           // an item on the way up, of which it isn't known whether it's a folder; or empty
    bool listed = false;   // its folder's own listing has it
    bool settled = false;  // said by an answer, not by the change set alone
    bool inChangeSet = false;    // so it changed, whatever can be seen of it
    bool contradictory = false;  // the change set says both
};

// A view of one batch and the tree it is for, valid as long as both stay as they are.
class Fates {
 public:
    Fates(const ItemTree& tree, const ChangeBatch& batch);

    // Null: the batch doesn't speak of it.
    const Fate* of(std::string_view identifier) const;
    bool isGone(std::string_view identifier) const;
    bool isListing(std::string_view container) const { return listings_.contains(container); }
    const std::unordered_set<std::string_view>& listings() const { return listings_; }
    // Every item spoken of, in the order of first mention.
    const std::vector<std::string_view>& mentioned() const { return mentioned_; }

 private:
    Fate& mention(std::string_view identifier);
    Fate& settle(std::string_view identifier, const Item* item);
    void read(const ChangeBatch::Listing& listing);
    void read(const ChangeBatch::Lookup& lookup);
    bool isFile(const ItemTree& tree, std::string_view identifier) const;
    std::string_view parentOf(const ItemTree& tree, std::string_view identifier) const;
    void findContainer(const ItemTree& tree, Fate& fate) const;

    std::unordered_map<std::string_view, Fate> fates_;
    std::unordered_set<std::string_view> listings_;
    std::vector<std::string_view> mentioned_;
};

}  // namespace vorlinden::mount
