#include "tests/conflicts/server_tree.h"

#include <rapidcheck.h>

#include "synckit/apply/tree_rules.h"
#include "tests/support/catalogue.h"

namespace vorlinden::tests {

namespace {

std::string alphabetPath() {
    const auto piece = [] { return *rc::gen::element<std::string>("a", "b", "\u00e9", ".gitkeep"); };
    auto path = piece();
    for (int depth = *rc::gen::inRange(0, 3); depth > 0; --depth)
        path += "/" + piece();
    return path;
}

}  // namespace

ServerTree::ServerTree(const std::vector<NodeRecord>& rows) {
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
    for (int i = *rc::gen::inRange(0, 4); i > 0; --i) {
        FeedEntry entry{"c" + std::to_string(++made_), instant(made_), {}, {}};
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

std::optional<Op> ServerTree::anyOp() {
    switch (*rc::gen::inRange(0, 6)) {
        case 0:
        case 1:
            return put(alphabetPath());
        case 2:
            return makeFolder(alphabetPath());
        case 3:
            return move(anyNode(), alphabetPath());
        case 4:
            return put(anyNode());
        default:
            if (nodes_.empty()) return std::nullopt;
            return remove(anyNode());
    }
}

std::optional<Op> ServerTree::put(const std::string& path) {
    if (path.empty()) return std::nullopt;
    const auto node = nodes_.find(path);
    if (node != nodes_.end()) {
        if (node->second.isDirectory) return std::nullopt;
        node->second.updatedAt = instant(made_);
        return Op{Op::Update{path, std::nullopt, {}, true, node->second.kind}};
    }
    if (!makeAncestors(path)) return std::nullopt;
    const auto& made = add(path, false);
    return Op{Op::Create{path, made.title, {}, false, made.kind}};
}

std::optional<Op> ServerTree::makeFolder(const std::string& path) {
    if (nodes_.contains(path) || !makeAncestors(path)) return std::nullopt;
    return Op{Op::Mkdir{path, add(path, true).title}};
}

std::optional<Op> ServerTree::move(const std::string& from, const std::string& to) {
    if (from.empty() || nodes_.contains(to) || isBelow(to, from) || !makeAncestors(to)) return std::nullopt;
    std::map<std::string, SnapshotNode> moved;
    for (auto it = nodes_.begin(); it != nodes_.end();) {
        const bool moves = it->first == from || isBelow(it->first, from);
        if (moves) {
            auto node = it->second;
            node.path = to + it->first.substr(from.size());
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
    node.updatedAt = instant(made_);
    return node;
}

std::string ServerTree::anyNode() const {
    if (nodes_.empty()) return "";
    auto node = nodes_.begin();
    std::advance(node, *rc::gen::inRange<std::ptrdiff_t>(0, static_cast<std::ptrdiff_t>(nodes_.size())));
    return node->first;
}

}  // namespace vorlinden::tests
