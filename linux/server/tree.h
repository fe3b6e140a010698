// The nodes of a brain, as they are and as they were.
//
// A value for the length of one transaction. It knows rows and paths and no rules; those are in
// brain_editor.h.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "linux/server/contents.h"
#include "linux/server/database.h"
#include "synckit/server/wire_model.h"

namespace vorlinden::server {

// A node at one path for a stretch of the feed.
struct Node {
    std::int64_t key = 0;  // of the row; another one whenever path or content change
    std::string path;
    std::string nodeId;
    std::string title;
    bool isDirectory = false;
    NodeKind kind = NodeKind::text;
    ContentRef content;  // empty for a folder
    Timestamp updatedAt{};
};

class Tree {
 public:
    Tree(Database& database, std::int64_t brain) : database_(database), brain_(brain) {}

    std::optional<Node> find(const std::string& path) const;
    // As it was right after the entry of that number.
    std::optional<Node> findAt(const std::string& path, std::int64_t seq) const;
    // All living nodes by path; with `allFolders` false of the folders only those that no other node implies.
    void visit(bool allFolders, const std::function<void(const Node&)>& visitor) const;
    std::vector<Node> below(const std::string& folder) const;

    // `seq` is the number of the entry that tells of the change.
    void insert(const Node& node, std::int64_t seq);
    void retire(const Node& node, std::int64_t seq);
    void retireSubtree(const std::string& path, std::int64_t seq);
    // Gives the subtree at `from` its place at `to`, which must be free.
    void moveSubtree(const std::string& from, const std::string& to, std::int64_t seq);
    void setTitle(const Node& node, const std::string& title);

 private:
    Database& database_;
    std::int64_t brain_;
};

}  // namespace vorlinden::server
