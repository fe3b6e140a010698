#include "synckit/conflicts/reset_judgement.h"

#include <algorithm>
#include <cstddef>
#include <string>

#include "synckit/apply/tree_rules.h"
#include "synckit/upload/ignore_list.h"

namespace vorlinden {

namespace {

// Whether the server's node has stayed as the row knew it. A row that the feed made has no identifier of the
// server's to compare.
bool matchesSnapshot(const NodeRecord& row, const SnapshotNode& node) {
    return !row.localOnly && (row.nodeId == node.nodeId || isLocalId(row.nodeId)) && row.path == node.path &&
           row.isDirectory == node.isDirectory && row.kind == node.kind && row.blobHash == node.blobHash &&
           row.updatedAt == node.updatedAt;
}

}  // namespace

ResetJudgement::ResetJudgement(const std::vector<NodeRecord>& rows, const std::vector<SnapshotNode>& snapshot)
    : rows_(rows) {
    for (const auto& node : snapshot)
        if (!IgnoreList::isJunk(node.path)) incoming_[node.path] = &node;
}

const NodeRecord* ResetJudgement::recordOf(const PendingChange& change) const {
    return rowAt(change.fromPath.value_or(change.path));
}

ResetVerdict ResetJudgement::judge(const PendingChange& change) const {
    const auto staysIf = [](bool stands) { return stands ? ResetVerdict::stays : ResetVerdict::dropped; };
    switch (change.changeKind) {
        case PendingChangeKind::mkdir:
            return ResetVerdict::stays;
        case PendingChangeKind::remove:
            return staysIf(sourceUnchanged(change.path, recordOf(change)));
        case PendingChangeKind::move:
            return staysIf(change.fromPath && sourceUnchanged(*change.fromPath, recordOf(change)) &&
                           !claims(change.path));
        case PendingChangeKind::create:
        case PendingChangeKind::update:
            break;
    }
    return contentStands(change) ? ResetVerdict::stays : ResetVerdict::copied;
}

bool ResetJudgement::claims(std::string_view path) const {
    if (nodeAt(path)) return true;
    const auto below = incoming_.lower_bound(std::string(path) + "/");
    return below != incoming_.end() && isBelow(below->first, path);
}

bool ResetJudgement::contentStands(const PendingChange& change) const {
    const auto* record = recordOf(change);
    const auto* node = nodeAt(change.path);
    if (!node) return change.changeKind == PendingChangeKind::create && (!record || record->localOnly);
    return record && !node->isDirectory && matchesSnapshot(*record, *node);
}

bool ResetJudgement::sourceUnchanged(std::string_view path, const NodeRecord* record) const {
    if (!record) return false;
    if (record->isDerivedDirectory()) return folderUnchanged(path);
    const auto* node = nodeAt(path);
    return node && matchesSnapshot(*record, *node);
}

// A derived folder is what lies in it: the server must have the same nodes there and no folder of its own.
bool ResetJudgement::folderUnchanged(std::string_view path) const {
    if (nodeAt(path)) return false;
    std::size_t localCount = 0;
    const auto below = std::string(path) + "/";
    for (auto row = std::ranges::lower_bound(rows_, below, {}, &NodeRecord::path);
         row != rows_.end() && row->path.starts_with(below); ++row) {
        if (row->isDerivedDirectory()) continue;
        const auto* node = nodeAt(row->path);
        if (!node || !matchesSnapshot(*row, *node)) return false;
        ++localCount;
    }
    std::size_t remoteCount = 0;
    for (auto node = incoming_.lower_bound(below); node != incoming_.end() && node->first.starts_with(below);
         ++node)
        ++remoteCount;
    return localCount != 0 && localCount == remoteCount;
}

const SnapshotNode* ResetJudgement::nodeAt(std::string_view path) const {
    const auto found = incoming_.find(path);
    return found == incoming_.end() ? nullptr : found->second;
}

const NodeRecord* ResetJudgement::rowAt(std::string_view path) const {
    const auto row = std::ranges::lower_bound(rows_, path, {}, &NodeRecord::path);
    return row != rows_.end() && row->path == path ? &*row : nullptr;
}

}  // namespace vorlinden
