#include "synckit/apply/reset_planner.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "synckit/apply/tree_rules.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/upload/ignore_list.h"

namespace vorlinden::ResetPlanner {

namespace {

// The snapshot without junk names, and what is looked up in it. Borrows from the snapshot.
struct Incoming {
    std::vector<const SnapshotNode*> nodes;
    std::unordered_set<std::string_view> ids;
    std::unordered_set<std::string_view> paths;
    std::unordered_set<std::string_view> ancestors;  // of every node
    std::optional<Timestamp> newestDate;

    explicit Incoming(const std::vector<SnapshotNode>& snapshot) {
        nodes.reserve(snapshot.size());
        ids.reserve(snapshot.size());
        paths.reserve(snapshot.size());
        for (const auto& node : snapshot)
            if (!IgnoreList::isJunk(node.path)) add(node);
    }

    // Whether a row that the snapshot doesn't know by its id may stay: a local-only one, or a derived folder
    // that still has descendants, unless a node claims its very path.
    bool leavesAlone(const NodeRecord& row) const {
        if (paths.contains(row.path)) return false;
        return row.localOnly || (row.isDerivedDirectory() && ancestors.contains(row.path));
    }

 private:
    void add(const SnapshotNode& node) {
        nodes.push_back(&node);
        ids.insert(node.nodeId);
        paths.insert(node.path);
        for (const auto ancestor : properAncestors(node.path))
            ancestors.insert(ancestor);
        newestDate = std::max(newestDate.value_or(node.updatedAt), node.updatedAt);
    }
};

bool isUpToDate(const NodeRecord& row, const SnapshotNode& node) {
    return row.path == node.path && row.title == node.title && row.isDirectory == node.isDirectory &&
           row.kind == node.kind && row.blobSize == node.blobSize && row.blobHash == node.blobHash &&
           row.updatedAt == node.updatedAt;
}

bool contentChanged(const NodeRecord& row, const SnapshotNode& node) {
    return !node.isDirectory && (row.updatedAt != node.updatedAt || row.blobHash != node.blobHash);
}

NodeRecord withFieldsOf(const SnapshotNode& node, NodeRecord row) {
    row.path = node.path;
    row.title = node.title;
    row.isDirectory = node.isDirectory;
    row.kind = node.kind;
    row.blobHash = node.blobHash;
    row.blobSize = node.blobSize;
    row.updatedAt = node.updatedAt;
    return row;
}

// One run over one brain, inside its transaction.
class Reset {
 public:
    Reset(const UUID& brainId, const std::optional<std::string>& cursor, MetadataStore& store)
        : brainId_(brainId), cursor_(cursor), store_(store) {}

    ResetPlan clear() {
        for (const auto& row : store_.allNodes(brainId_))
            if (!row.localOnly) remove(row);
        return std::move(plan_);
    }

    ResetPlan replaceBy(const Incoming& incoming) {
        const auto rows = store_.allNodes(brainId_);
        partition(rows, incoming);
        moveKeptRows(incoming);
        for (const auto* node : incoming.nodes)
            apply(*node);
        deriveDirectories(incoming);
        makeDownloads();
        return std::move(plan_);
    }

 private:
    void partition(const std::vector<NodeRecord>& rows, const Incoming& incoming) {
        for (const auto& row : rows) {
            if (incoming.ids.contains(row.nodeId)) {
                kept_.emplace(row.nodeId, &row);
            } else if (!incoming.leavesAlone(row)) {
                remove(row);
            }
        }
    }

    // In two passes by way of paths that no node can have, since two nodes may have swapped theirs.
    void moveKeptRows(const Incoming& incoming) {
        std::vector<const SnapshotNode*> moved;
        for (const auto* node : incoming.nodes) {
            const auto* old = keptRow(*node);
            if (old && old->path != node->path) moved.push_back(node);
        }
        for (const auto* node : moved)
            store_.updatePath(brainId_, node->nodeId, "/moving:" + node->nodeId);
        for (const auto* node : moved)
            store_.updatePath(brainId_, node->nodeId, node->path);
    }

    void apply(const SnapshotNode& node) {
        const auto* old = keptRow(node);
        if (old ? update(*old, node) : insert(node)) downloadNodeIds_.push_back(node.nodeId);
    }

    // Both give whether there is content to fetch.
    bool update(const NodeRecord& old, const SnapshotNode& node) {
        if (isUpToDate(old, node)) return false;
        const bool newContent = contentChanged(old, node);
        auto row = withFieldsOf(node, old);
        if (newContent) row.contentVersion += 1;
        write(row);
        return newContent;
    }

    bool insert(const SnapshotNode& node) {
        auto row = withFieldsOf(node, NodeRecord{});
        row.brainId = brainId_;
        row.nodeId = node.nodeId;
        row.contentVersion = node.isDirectory ? 0 : 1;
        write(row);
        return !node.isDirectory;
    }

    void deriveDirectories(const Incoming& incoming) {
        if (!incoming.newestDate) return;
        std::vector<std::string_view> ancestors(incoming.ancestors.begin(), incoming.ancestors.end());
        std::ranges::sort(ancestors);
        for (const auto path : ancestors)
            if (!store_.nodeByPath(brainId_, path))
                write(derivedDirectory(brainId_, path, *incoming.newestDate));
    }

    void makeDownloads() {
        plan_.downloads.reserve(downloadNodeIds_.size());
        for (const auto nodeId : downloadNodeIds_)
            if (auto row = store_.nodeById(brainId_, nodeId))
                plan_.downloads.push_back({brainId_, std::move(row->nodeId), std::move(row->path), row->kind,
                                           row->contentVersion, cursor_});
        std::ranges::sort(plan_.downloads, {}, &DownloadRequest::path);
    }

    const NodeRecord* keptRow(const SnapshotNode& node) const {
        const auto found = kept_.find(node.nodeId);
        return found == kept_.end() ? nullptr : found->second;
    }

    void write(const NodeRecord& row) {
        store_.upsert(row);
        store_.appendChange(row.identifier(), false);
    }

    void remove(const NodeRecord& row) {
        store_.deleteNode(brainId_, row.nodeId);
        store_.appendChange(row.identifier(), true);
        plan_.deletedIdentifiers.push_back(row.identifier());
    }

    const UUID& brainId_;
    const std::optional<std::string>& cursor_;
    MetadataStore& store_;
    ResetPlan plan_;
    std::unordered_map<std::string_view, const NodeRecord*> kept_;  // by node id, as before this run
    std::vector<std::string_view> downloadNodeIds_;
};

}  // namespace

ResetPlan applySnapshot(const std::vector<SnapshotNode>& snapshot, const UUID& brainId,
                        const std::optional<std::string>& responseCursor, MetadataStore& store) {
    return store.inTransaction([&] {
        store.clearOwnWrites(brainId);
        Reset reset(brainId, responseCursor, store);
        auto plan = responseCursor ? reset.replaceBy(Incoming(snapshot)) : reset.clear();
        store.setCursor(responseCursor, brainId);
        return plan;
    });
}

}  // namespace vorlinden::ResetPlanner
