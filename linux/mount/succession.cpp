#include "linux/mount/succession.h"

#include <algorithm>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace vorlinden::mount {
namespace {

std::size_t depth(const Node& node) {
    std::size_t result = 0;
    for (const Node* above = node.parent; above; above = above->parent)
        ++result;
    return result;
}

std::string key(std::string_view first, std::string_view second) {
    std::string result(first);
    result.push_back('\0');
    return result.append(second);
}

std::string dateKey(std::string_view text, const std::optional<Timestamp>& date) {
    return key(text, date ? std::to_string(date->time_since_epoch().count()) : "-");
}

class Search {
 public:
    Search(const ItemTree& tree, const Fates& fates) : tree_(tree), fates_(fates) {}

    Succession run() {
        collectGoing();
        if (going_.empty()) return {};
        collectComing();
        do {
            matchByPlace();
        } while (matchByChildren() || matchFoldersByDate());
        findReplacements();
        return std::move(result_);
    }

 private:
    // Only nodes that somebody would miss: referred to by the kernel, or listed.
    void collectGoing() {
        for (const auto identifier : fates_.mentioned()) {
            if (!fates_.isGone(identifier)) continue;
            const Node* node = tree_.findItem(identifier);
            if (node && (node->isReferred() || (node->folder && node->folder->listed)))
                going_.push_back(node);
        }
        std::stable_sort(going_.begin(), going_.end(),
                         [](const Node* a, const Node* b) { return depth(*a) < depth(*b); });
    }

    void collectComing() {
        for (const auto identifier : fates_.mentioned()) {
            const Item* item = fates_.of(identifier)->item;
            if (!item) continue;
            const auto container = fates_.of(identifier)->container;
            const Node* known = tree_.findItem(item->itemIdentifier);
            if (!known)
                comingByPlace_.emplace(key(container, item->filename), item);
            else if (known->isFolder())
                arrivingByPlace_.emplace(key(container, item->filename), known);
            if (!known && item->contentType.isDirectory()) comingFolders_.emplace(item->itemIdentifier, item);
        }
    }

    // The identifier that the folder around a going node has afterwards.
    std::optional<std::string_view> containerAfterwards(const Node& node) const {
        const auto& container = node.containerIdentifier();
        if (!fates_.isGone(container)) return container;
        if (!node.parent) return std::nullopt;
        const auto found = result_.successors.find(node.parent);
        if (found == result_.successors.end()) return std::nullopt;
        return found->second->itemIdentifier;
    }

    bool match(const Node& node, const Item& item) {
        if (node.isFolder() != item.contentType.isDirectory()) return false;
        if (!claimed_.insert(&item).second) return false;
        result_.successors.emplace(&node, &item);
        return true;
    }

    bool isOpen(const Node& node) const { return !result_.successors.contains(&node); }

    // Parents come before their children here, so one pass follows a replaced folder all the way down.
    void matchByPlace() {
        for (const Node* node : going_) {
            if (!isOpen(*node)) continue;
            const auto container = containerAfterwards(*node);
            if (!container) continue;
            const auto [begin, end] = comingByPlace_.equal_range(key(*container, node->filename));
            for (auto candidate = begin; candidate != end; ++candidate)
                if (match(*node, *candidate->second)) break;
        }
    }

    // Where at least half of a folder's children have gone together, there is the folder.
    bool matchByChildren() {
        bool found = false;
        for (auto next = going_.rbegin(); next != going_.rend(); ++next) {
            const Node& node = **next;
            if (!node.isFolder() || !isOpen(node)) continue;
            const auto container = containerOfMostChildren(node);
            const auto heir = container ? comingFolders_.find(*container) : comingFolders_.end();
            if (heir != comingFolders_.end()) found |= match(node, *heir->second);
        }
        return found;
    }

    std::optional<std::string_view> containerOfMostChildren(const Node& node) const {
        std::unordered_map<std::string_view, std::size_t> votes;
        for (const Node* child : node.folder->byInode) {
            const auto parent = parentAfterwards(*child);
            if (parent && ++votes[*parent] * 2 >= node.folder->byInode.size()) return parent;
        }
        return std::nullopt;
    }

    std::string_view containerOf(const Item& item) const { return fates_.of(item.itemIdentifier)->container; }

    std::optional<std::string_view> parentAfterwards(const Node& child) const {
        const Fate* fate = fates_.of(child.identifier);
        if (!fate) return std::nullopt;
        if (fate->item) return fate->container;
        const auto successor = result_.successors.find(&child);
        if (successor == result_.successors.end()) return std::nullopt;
        return containerOf(*successor->second);
    }

    // Nothing is known of the children of a folder that was never listed, but a folder keeps its date when it
    // moves, and its name or the folder around it. Only where that leaves no choice.
    bool matchFoldersByDate() {
        return matchWhereUnique(
                   [](const Node& node) {
                       return std::optional(dateKey(node.filename, node.contentModificationDate));
                   },
                   [](const Item& item) { return dateKey(item.filename, item.contentModificationDate); }) ||
               matchWhereUnique(
                   [this](const Node& node) -> std::optional<std::string> {
                       const auto container = containerAfterwards(node);
                       if (!container) return std::nullopt;
                       return dateKey(*container, node.contentModificationDate);
                   },
                   [this](const Item& item) {
                       return dateKey(containerOf(item), item.contentModificationDate);
                   });
    }

    template <class KeyOfNode, class KeyOfItem>
    bool matchWhereUnique(KeyOfNode keyOfNode, KeyOfItem keyOfItem) {
        std::unordered_map<std::string, std::vector<const Item*>> items;
        for (const auto& [identifier, item] : comingFolders_)
            if (!claimed_.contains(item)) items[keyOfItem(*item)].push_back(item);
        std::unordered_map<std::string, std::vector<const Node*>> nodes;
        for (const Node* node : going_)
            if (node->isFolder() && isOpen(*node) && node->folder->byInode.empty())
                if (auto text = keyOfNode(*node)) nodes[std::move(*text)].push_back(node);
        bool found = false;
        for (const auto& [text, alike] : nodes) {
            const auto candidates = items.find(text);
            if (alike.size() == 1 && candidates != items.end() && candidates->second.size() == 1)
                found |= match(*alike.front(), *candidates->second.front());
        }
        return found;
    }

    void findReplacements() {
        for (const Node* node : going_) {
            if (!node->isFolder() || !isOpen(*node)) continue;
            const Node* replacement = folderThatCameToPlaceOf(*node);
            if (!replacement) replacement = folderFilledBy(*node);
            if (replacement) result_.replacements.emplace(node, replacement);
        }
    }

    const Node* folderThatCameToPlaceOf(const Node& node) const {
        const auto container = containerAfterwards(node);
        if (!container) return nullptr;
        const auto found = arrivingByPlace_.find(key(*container, node.filename));
        return found == arrivingByPlace_.end() ? nullptr : found->second;
    }

    // A folder that moved over another one is that other one, as far as identifiers made of paths can tell;
    // what was in there before has left it.
    const Node* folderFilledBy(const Node& node) const {
        const auto container = containerOfMostChildren(node);
        const Node* folder = container ? tree_.findItem(*container) : nullptr;
        if (!folder || !folder->isFolder() || !folder->folder->listed || fates_.isGone(*container))
            return nullptr;
        const auto& children = folder->folder->byInode;
        const bool emptied = std::all_of(children.begin(), children.end(), [&](const Node* child) {
            return fates_.of(child->identifier) && parentAfterwards(*child) != container;
        });
        return emptied ? folder : nullptr;
    }

    const ItemTree& tree_;
    const Fates& fates_;
    std::vector<const Node*> going_;  // nearer to the root first
    std::unordered_multimap<std::string, const Item*> comingByPlace_;
    std::unordered_map<std::string_view, const Item*> comingFolders_;
    std::unordered_map<std::string, const Node*> arrivingByPlace_;
    std::unordered_set<const Item*> claimed_;
    Succession result_;
};

}  // namespace

Succession findSuccession(const ItemTree& tree, const Fates& fates) {
    return Search(tree, fates).run();
}

}  // namespace vorlinden::mount
