#include "tests/conflicts/server_tree.h"

#include <rapidcheck.h>

#include "synckit/apply/tree_rules.h"
#include "tests/support/catalogue.h"

namespace vorlinden::tests {

ServerTree::ServerTree(const std::vector<NodeRecord>& rows, bool junk) : junk_(junk) {
    for (const auto& row : rows) {
        if (row.localOnly) continue;
        auto& node = add(row.path, row.isDirectory);
        if (row.nodeId.starts_with("S")) node.nodeId = row.nodeId;
        node.title = row.title;
        node.kind = row.kind;
        node.blobHash = row.blobHash;
        node.updatedAt = row.updatedAt;
    }
}

Batch ServerTree::anyBatch() {
    Batch batch;
    edited_.clear();
    for (int i = *rc::gen::inRange(0, 4); i > 0; --i) {
        now_ = instant(++made_);
        FeedEntry entry{"c" + std::to_string(made_), now_, {}, {}};
        for (int ops = *rc::gen::inRange(1, 4); ops > 0; --ops)
            if (auto op = anyOp()) entry.ops.push_back(std::move(*op));
        batch.entries.push_back(std::move(entry));
    }
    batch.cursor = "c" + std::to_string(made_);
    return batch;
}

Snapshot ServerTree::snapshot() const {
    Snapshot snapshot;
    for (const auto& [path, node] : nodes_)
        snapshot.nodes.push_back(node);
    snapshot.cursor = "c" + std::to_string(made_);
    return snapshot;
}

std::vector<std::string> ServerTree::filesToFetch() const {
    std::vector<std::string> paths;
    for (const auto& [path, node] : nodes_)
        if (edited_.contains(node.nodeId)) paths.push_back(path);
    return paths;
}

std::optional<Op> ServerTree::anyOp() {
    switch (*rc::gen::inRange(0, 6)) {
        case 0:
        case 1:
            return put(alphabetPath(junk_));
        case 2:
            return makeFolder(alphabetPath(junk_));
        case 3:
            return move(anyNode(), alphabetPath(junk_));
        case 4:
            return put(anyNode());
        default:
            if (nodes_.empty()) return std::nullopt;
            return remove(anyNode());
    }
}

std::optional<Op> ServerTree::put(const std::string& path) {
    const auto kind = *rc::gen::element(NodeKind::text, NodeKind::blob);
    const auto there = nodes_.find(path);
    if (there == nodes_.end()) {
        if (path.empty() || !makeAncestors(path)) return std::nullopt;
        auto& node = add(path, false);
        node.kind = kind;
        edited_.insert(node.nodeId);
        return Op{Op::Create{path, node.title, {}, false, kind}};
    }
    auto& node = there->second;
    if (node.isDirectory) return std::nullopt;
    node.kind = kind;
    node.updatedAt = now_;
    edited_.insert(node.nodeId);
    return Op{Op::Update{path, std::nullopt, {}, true, kind}};
}

std::optional<Op> ServerTree::makeFolder(const std::string& path) {
    if (!nodes_.contains(path) && makeAncestors(path)) return Op{Op::Mkdir{path, add(path, true).title}};
    return retitle(path);
}

std::optional<Op> ServerTree::retitle(const std::string& path) {
    const auto there = nodes_.find(path);
    if (there == nodes_.end()) return std::nullopt;
    there->second.title = "T";
    return Op{Op::Update{path, "T", {}, false, std::nullopt}};
}

std::optional<Op> ServerTree::move(const std::string& from, const std::string& to) {
    if (from.empty() || nodes_.contains(to) || isBelow(to, from) || !makeAncestors(to)) return std::nullopt;
    std::map<std::string, SnapshotNode> moved;
    for (auto it = nodes_.begin(); it != nodes_.end();) {
        const bool moves = it->first == from || isBelow(it->first, from);
        if (moves) {
            auto node = it->second;
            node.path = to + it->first.substr(from.size());
            if (node.isDirectory && node.title == lastComponent(it->first))
                node.title = lastComponent(node.path);
            moved.emplace(node.path, node);
        }
        it = moves ? nodes_.erase(it) : std::next(it);
    }
    nodes_.merge(moved);
    return Op{Op::Move{from, to}};
}

Op ServerTree::remove(const std::string& path) {
    std::erase_if(nodes_, [&](const auto& it) { return it.first == path || isBelow(it.first, path); });
    return {Op::Delete{path}};
}

bool ServerTree::makeAncestors(const std::string& path) {
    for (const auto ancestor : properAncestors(path)) {
        const auto node = nodes_.find(std::string(ancestor));
        if (node == nodes_.end()) {
            add(std::string(ancestor), true);
        } else if (!node->second.isDirectory) {
            return false;
        }
    }
    return true;
}

SnapshotNode& ServerTree::add(const std::string& path, bool isDirectory) {
    auto& node = nodes_[path];
    node.nodeId = "V" + std::to_string(++made_);
    node.path = path;
    node.title = lastComponent(path);
    node.isDirectory = isDirectory;
    node.updatedAt = now_;
    return node;
}

std::string ServerTree::anyNode() const {
    if (nodes_.empty()) return "";
    auto node = nodes_.begin();
    std::advance(node, *rc::gen::inRange<std::ptrdiff_t>(0, static_cast<std::ptrdiff_t>(nodes_.size())));
    return node->first;
}

}  // namespace vorlinden::tests
