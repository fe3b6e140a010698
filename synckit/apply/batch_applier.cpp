#include "synckit/apply/batch_applier.h"

#include "synckit/apply/tree_rules.h"

namespace vorlinden {

BatchApplier::BatchApplier(const UUID& brainId, MetadataStore& store, platform::Random& random,
                           Timestamp entryDate)
    : brainId_(brainId), store_(store), random_(random), entryDate_(entryDate) {}

void BatchApplier::insertNode(const std::string& path, const std::string& title, bool isDirectory,
                              NodeKind kind) {
    ensureAncestors(path);
    NodeRecord node;
    node.brainId = brainId_;
    node.nodeId = isDirectory ? NodeRecord::derivedDirectoryId(path) : freshLocalId(random_);
    node.path = path;
    node.title = title;
    node.isDirectory = isDirectory;
    node.kind = isDirectory ? NodeKind::text : kind;
    node.updatedAt = entryDate_;
    node.contentVersion = isDirectory ? 0 : 1;
    write(node);
    if (!isDirectory) scheduleDownload(node.nodeId);
}

void BatchApplier::ensureDirectory(const std::string& path) {
    if (const auto existing = store_.nodeByPath(brainId_, path)) {
        if (existing->isDirectory) return;
        deleteSubtree(path);
    }
    write(derivedDirectory(brainId_, path, entryDate_));
}

void BatchApplier::ensureAncestors(const std::string& path) {
    for (const auto ancestor : properAncestors(path))
        ensureDirectory(std::string(ancestor));
}

void BatchApplier::ensureAncestorsOfCopy(const std::string& path) {
    for (const auto ancestor : properAncestors(path)) {
        const auto existing = store_.nodeByPath(brainId_, ancestor);
        if (existing && !existing->isDirectory && !existing->localOnly) return;
        ensureDirectory(std::string(ancestor));
    }
}

bool BatchApplier::deleteSubtree(const std::string& path, const std::unordered_set<std::string>& preserving) {
    bool deleted = false;
    for (const auto& node : store_.subtree(brainId_, path)) {
        if (preserving.contains(node.nodeId)) continue;
        erase(node);
        deleted = true;
    }
    return deleted;
}

void BatchApplier::applyUpdate(const std::string& path, const std::optional<std::string>& title,
                               bool bodyChanged, std::optional<NodeKind> nodeKind) {
    const auto kind = nodeKind.value_or(NodeKind::text);
    auto node = store_.nodeByPath(brainId_, path);
    if (!node) return insertNode(path, title.value_or(std::string(lastComponent(path))), false, kind);

    // A file that exists only here is taken over by any update that reaches it, and its content fetched.
    const bool refresh = (bodyChanged || node->localOnly) && !node->isDirectory;
    const bool retitled = title && *title != node->title;
    if (!refresh && !retitled) return;
    if (retitled) node->title = *title;
    if (refresh) {
        node->kind = kind;
        node->contentVersion += 1;
        node->updatedAt = entryDate_;
        node->blobHash.reset();
        node->blobSize.reset();
        node->localOnly = false;
        node->uploadError.reset();
        scheduleDownload(node->nodeId);
    }
    write(*node);
}

void BatchApplier::applyMove(const std::string& from, const std::string& to) {
    if (from == to || isBelow(to, from)) return;
    const auto moved = store_.subtree(brainId_, from);
    if (moved.empty() || moved.front().path != from) return;

    std::unordered_set<std::string> movedIds;
    for (const auto& node : moved)
        movedIds.insert(node.nodeId);
    deleteSubtree(to, movedIds);
    ensureAncestors(to);
    for (const auto& node : moved) {
        const auto newPath = to + node.path.substr(from.size());
        if (node.isDerivedDirectory()) {
            rekeyDirectory(node, newPath);
        } else {
            store_.updatePath(brainId_, node.nodeId, newPath);
            logChange(node.nodeId, false);
        }
    }
}

void BatchApplier::rekeyDirectory(const NodeRecord& record, const std::string& newPath) {
    auto rekeyed = record;
    rekeyed.nodeId = NodeRecord::derivedDirectoryId(newPath);
    rekeyed.path = newPath;
    if (record.title == lastComponent(record.path)) rekeyed.title = lastComponent(newPath);
    erase(record);
    write(rekeyed);
}

void BatchApplier::retitle(NodeRecord record, const std::string& title) {
    record.title = title;
    write(record);
}

void BatchApplier::scheduleDownload(const std::string& nodeId) {
    const auto [place, isNew] = downloadSet_.try_emplace(nodeId, downloadNodeIds_.size());
    if (isNew) downloadNodeIds_.emplace_back(nodeId);
}

std::vector<DownloadRequest> BatchApplier::makeDownloads(const std::optional<std::string>& cursor) {
    std::vector<DownloadRequest> downloads;
    downloads.reserve(downloadSet_.size());
    for (const auto& nodeId : downloadNodeIds_) {
        if (!nodeId) continue;
        auto node = store_.nodeById(brainId_, *nodeId);
        if (!node || node->isDirectory) continue;
        downloads.push_back({brainId_, std::move(node->nodeId), std::move(node->path), node->kind,
                             node->contentVersion, cursor});
    }
    return downloads;
}

void BatchApplier::write(const NodeRecord& record) {
    store_.upsert(record);
    logChange(record.nodeId, false);
}

void BatchApplier::erase(const NodeRecord& record) {
    store_.deleteNode(brainId_, record.nodeId);
    unscheduleDownload(record.nodeId);
    logChange(record.nodeId, true);
}

void BatchApplier::unscheduleDownload(const std::string& nodeId) {
    const auto place = downloadSet_.find(nodeId);
    if (place == downloadSet_.end()) return;
    downloadNodeIds_[place->second].reset();
    downloadSet_.erase(place);
}

void BatchApplier::logChange(const std::string& nodeId, bool deleted) {
    store_.appendChange(SyncItemIdentifier::node(brainId_, nodeId), deleted);
    changed_ = true;
}

}  // namespace vorlinden
