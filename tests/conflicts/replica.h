// What the platform shows after it has been told of changes: items by identifier, each under a parent.
#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "synckit/catalogue/metadata_store.h"

namespace vorlinden::tests {

// Behaves as the platform does: an item that goes takes what hangs under it, and a folder that is new, or new
// in its place, is enumerated. Asks the store of the present, as the platform does.
class Replica {
 public:
    explicit Replica(MetadataStore& store) : store_(store) {}

    std::int64_t anchor() const { return anchor_; }

    void take(const ChangeSet& changes) {
        for (const auto& identifier : changes.deleted)
            remove(identifier.rawValue());
        for (const auto& item : changes.changed)
            if (const auto* node = std::get_if<NodeRecord>(&item.value)) put(*node);
        anchor_ = changes.anchor;
    }

    // By path, as the catalogue lists them.
    std::vector<NodeRecord> rows() const {
        std::vector<NodeRecord> rows;
        for (const auto& [id, item] : items_)
            rows.push_back(item.row);
        std::ranges::sort(rows, {}, &NodeRecord::path);
        return rows;
    }
    // Without local-only rows that have lost their folder, and what hangs under them.
    std::vector<NodeRecord> rowsButOrphans() const {
        auto all = rows();
        std::erase_if(all, [&](const NodeRecord& row) { return row.localOnly && isOrphan(row); });
        return all;
    }

 private:
    struct Item {
        NodeRecord row;
        std::string parent;
    };

    void put(const NodeRecord& row) {
        const auto id = row.identifier().rawValue();
        const auto before = items_.find(id);
        const bool stays = before != items_.end() && before->second.row.path == row.path;
        items_[id] = {row, store_.parentIdentifier(row).rawValue()};
        if (stays || !row.isDirectory) return;
        for (const auto& child : store_.enumerate(row.identifier()))
            put(std::get<NodeRecord>(child.value));
    }

    void remove(const std::string& id) {
        items_.erase(id);
        std::vector<std::string> children;
        for (const auto& [childId, item] : items_)
            if (item.parent == id) children.push_back(childId);
        for (const auto& child : children)
            remove(child);
    }

    bool isOrphan(const NodeRecord& row) const {
        const auto above = row.parentPath();
        if (above.empty()) return false;
        const auto parent = store_.nodeByPath(row.brainId, above);
        return !parent || !parent->isDirectory || isOrphan(*parent);
    }

    MetadataStore& store_;
    std::map<std::string, Item> items_;
    std::int64_t anchor_ = 0;
};

}  // namespace vorlinden::tests
