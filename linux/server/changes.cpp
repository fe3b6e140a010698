#include "linux/server/changes.h"

#include "linux/server/feed.h"
#include "linux/server/tree.h"
#include "platform/json.h"
#include "synckit/server/sync_json.h"

namespace vorlinden::server {

namespace {

// Text is put together by hand here: a snapshot may have 100,000 nodes, and is copied nowhere.
void append(std::string& list, const std::string& item) {
    if (list.back() != '[') list += ',';
    list += item;
}

SnapshotNode snapshotOf(const Node& node) {
    SnapshotNode result{node.nodeId, node.path,    node.title,   node.isDirectory,
                        node.kind,   std::nullopt, std::nullopt, node.updatedAt};
    if (!node.isDirectory && node.kind == NodeKind::blob) {
        result.blobHash = node.content.hash;
        result.blobSize = node.content.size;
    }
    return result;
}

std::string ending(const Feed& feed) {
    return "],\"cursor\":" + platform::toJSON(feed.head().cursor).text + "}";
}

}  // namespace

std::string changesSince(Database& database, const BrainRow& brain,
                         const std::optional<std::string>& cursor) {
    const Feed feed(database, brain.key);
    if (const auto seq = cursor ? feed.find(*cursor) : std::nullopt) {
        std::string text = R"({"reset":false,"entries":[)";
        for (const auto& entry : feed.entriesAfter(*seq))
            append(text, entry);
        return text + ending(feed);
    }
    std::string text = R"({"reset":true,"snapshot":[)";
    Tree(database, brain.key).visit(brain.listsFolders, [&](const Node& node) {
        append(text, SyncJSON::encode(snapshotOf(node)).text);
    });
    return text + ending(feed);
}

}  // namespace vorlinden::server
