// A catalogue in a folder of its own, and short ways to make its records.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "synckit/catalogue/metadata_store.h"
#include "tests/support/connection.h"
#include "tests/support/temporary_folder.h"

namespace vorlinden::tests {

inline UUID numberedUUID(std::uint8_t number) {
    UUID id;
    id.bytes.fill(0xAB);
    id.bytes[15] = number;
    return id;
}

inline Timestamp instant(std::int64_t milliseconds = 1'700'000'000'123) {
    return Timestamp(std::chrono::milliseconds(milliseconds));
}

inline BrainRecord brainRecord(UUID brainId, std::string slug = "team") {
    return {.brainId = brainId, .slug = slug, .name = "The " + slug, .cursor = std::nullopt};
}

// A text file with a server's id; change what the test is about.
inline NodeRecord fileNode(UUID brainId, std::string path, std::string nodeId = {}) {
    NodeRecord node;
    node.brainId = brainId;
    node.nodeId = nodeId.empty() ? "id:" + path : std::move(nodeId);
    node.path = std::move(path);
    node.title = "Title of " + node.path;
    node.updatedAt = instant();
    node.contentVersion = 1;
    return node;
}

inline NodeRecord folderNode(UUID brainId, std::string path) {
    NodeRecord node = fileNode(brainId, path, NodeRecord::derivedDirectoryId(path));
    node.isDirectory = true;
    node.contentVersion = 0;
    return node;
}

inline PendingChange pendingChange(UUID brainId, PendingChangeKind kind, std::string path) {
    PendingChange change;
    change.brainId = brainId;
    change.changeKind = kind;
    change.path = std::move(path);
    change.createdAt = instant();
    return change;
}

inline std::vector<std::string> paths(const std::vector<NodeRecord>& nodes) {
    std::vector<std::string> paths;
    for (const auto& node : nodes)
        paths.push_back(node.path);
    return paths;
}

class Catalogue {
 public:
    std::filesystem::path file() const { return MetadataStore::databaseURL(folder_.path()); }
    MetadataStore& operator*() const { return *store_; }
    MetadataStore* operator->() const { return store_.get(); }
    const std::shared_ptr<MetadataStore>& store() const { return store_; }

    // The store's own.
    sqlite3* connection() const { return connection_; }
    // A second connection, for what the store's own operations never write or show.
    SQLiteDatabase raw() const { return SQLiteDatabase(file().string()); }
    void execute(std::string_view sql, const std::vector<SQLiteValue>& parameters = {}) const {
        raw().execute(sql, parameters);
    }
    std::int64_t count(const std::string& table) const {
        return raw().query("SELECT COUNT(*) FROM " + table).at(0).int64(0);
    }

 private:
    TemporaryFolder folder_;
    std::shared_ptr<MetadataStore> store_;
    sqlite3* const connection_ = connectionOf([this] { store_ = MetadataStore::open(file()); });
};

// Runs `body` in a transaction and undoes it: a case of a property leaves nothing and waits for no disk.
template <class Body>
void undone(MetadataStore& store, Body&& body) {
    struct Undo {};
    try {
        store.inTransaction([&] {
            body();
            throw Undo();
        });
    } catch (const Undo&) {
    }
}

}  // namespace vorlinden::tests
