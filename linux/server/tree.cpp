#include "linux/server/tree.h"

#include "platform/timestamp.h"

namespace vorlinden::server {

namespace {

#define NODE_COLUMNS "node, path, node_id, title, is_directory, kind, hash, size, updated_at"

// "/" is followed by "0" in the order of bytes, so this is what ends the range of paths below a folder.
std::string endOfRange(const std::string& folder) {
    return folder + "0";
}

Node nodeOf(const Query& row) {
    return {.key = row.integer(0),
            .path = row.text(1),
            .nodeId = row.text(2),
            .title = row.text(3),
            .isDirectory = row.integer(4) != 0,
            .kind = row.text(5) == "blob" ? NodeKind::blob : NodeKind::text,
            .content = {row.text(6), row.integer(7)},
            .updatedAt = platform::parseTimestamp(row.text(8)).value_or(Timestamp{})};
}

std::optional<Node> firstOf(Query query) {
    if (!query.next()) return std::nullopt;
    return nodeOf(query);
}

}  // namespace

std::optional<Node> Tree::find(const std::string& path) const {
    return firstOf(database_.query(
        "SELECT " NODE_COLUMNS " FROM nodes WHERE brain = ? AND path = ? AND died IS NULL", brain_, path));
}

std::optional<Node> Tree::findAt(const std::string& path, std::int64_t seq) const {
    return firstOf(database_.query("SELECT " NODE_COLUMNS
                                   " FROM nodes WHERE brain = ?1 AND path = ?2 AND born <= ?3"
                                   " AND (died IS NULL OR died > ?3) ORDER BY born DESC LIMIT 1",
                                   brain_, path, seq));
}

void Tree::visit(bool allFolders, const std::function<void(const Node&)>& visitor) const {
    auto query =
        database_.query("SELECT " NODE_COLUMNS
                        " FROM nodes AS n WHERE brain = ?1 AND died IS NULL AND (?2 OR NOT is_directory"
                        " OR NOT EXISTS (SELECT 1 FROM nodes AS c WHERE c.brain = ?1 AND c.died IS NULL"
                        " AND c.path > n.path || '/' AND c.path < n.path || '0')) ORDER BY path",
                        brain_, allFolders);
    while (query.next())
        visitor(nodeOf(query));
}

std::vector<Node> Tree::below(const std::string& folder) const {
    std::vector<Node> nodes;
    auto query = database_.query("SELECT " NODE_COLUMNS
                                 " FROM nodes WHERE brain = ? AND died IS NULL AND path > ? AND path < ?"
                                 " ORDER BY path",
                                 brain_, folder + "/", endOfRange(folder));
    while (query.next())
        nodes.push_back(nodeOf(query));
    return nodes;
}

void Tree::insert(const Node& node, std::int64_t seq) {
    const auto hash = node.isDirectory ? std::nullopt : std::optional(node.content.hash);
    database_.run(
        "INSERT INTO nodes (brain, path, node_id, title, is_directory, kind, hash, size, updated_at, born)"
        " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
        brain_, node.path, node.nodeId, node.title, node.isDirectory, rawValue(node.kind), hash,
        node.content.size, platform::formatTimestamp(node.updatedAt), seq);
}

void Tree::retire(const Node& node, std::int64_t seq) {
    database_.run("UPDATE nodes SET died = ? WHERE node = ?", seq, node.key);
}

void Tree::retireSubtree(const std::string& path, std::int64_t seq) {
    database_.run(
        "UPDATE nodes SET died = ?1 WHERE brain = ?2 AND died IS NULL AND (path = ?3 OR (path > ?4 AND path "
        "< ?5))",
        seq, brain_, path, path + "/", endOfRange(path));
}

void Tree::moveSubtree(const std::string& from, const std::string& to, std::int64_t seq) {
    retireSubtree(from, seq);
    database_.run(
        "INSERT INTO nodes (brain, path, node_id, title, is_directory, kind, hash, size, updated_at, born)"
        " SELECT brain, ?1 || substr(path, length(?2) + 1), node_id, title, is_directory, kind, hash, size,"
        " updated_at, ?3 FROM nodes WHERE brain = ?4 AND died = ?3"
        " AND (path = ?2 OR (path > ?2 || '/' AND path < ?2 || '0'))",
        to, from, seq, brain_);
}

void Tree::setTitle(const Node& node, const std::string& title) {
    database_.run("UPDATE nodes SET title = ? WHERE node = ?", title, node.key);
}

#undef NODE_COLUMNS

}  // namespace vorlinden::server
