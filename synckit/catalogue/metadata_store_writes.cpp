#include <stdexcept>

#include "synckit/catalogue/metadata_store.h"
#include "synckit/catalogue/record_rows.h"

namespace vorlinden {

void MetadataStore::upsertBrain(const BrainRecord& brain) {
    std::lock_guard hold(lock_);
    SQLiteStatement(database_,
                    "INSERT INTO brains (brain_id, slug, name, cursor) VALUES (?, ?, ?, ?)\n"
                    "ON CONFLICT(brain_id) DO UPDATE SET\n"
                    "  slug = excluded.slug,\n"
                    "  name = excluded.name,\n"
                    "  cursor = COALESCE(excluded.cursor, brains.cursor)",
                    {brain.brainId.upperText(), brain.slug, brain.name, brain.cursor})
        .run();
}

void MetadataStore::deleteBrain(const UUID& id) {
    std::lock_guard hold(lock_);
    SQLiteStatement(database_, "DELETE FROM brains WHERE brain_id = ?", {id.upperText()}).run();
}

void MetadataStore::setCursor(const std::optional<std::string>& cursor, const UUID& brainId) {
    std::lock_guard hold(lock_);
    SQLiteStatement(database_, "UPDATE brains SET cursor = ? WHERE brain_id = ?",
                    {cursor, brainId.upperText()})
        .run();
    if (database_.changes() == 0) throw MetadataStoreError::unknownBrain(brainId);
}

void MetadataStore::upsert(const NodeRecord& node) {
    std::lock_guard hold(lock_);
    SQLiteStatement(
        database_,
        "INSERT INTO nodes (" VORLINDEN_NODE_COLUMNS
        ") VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)\n"
        "ON CONFLICT(brain_id, node_id) DO UPDATE SET\n"
        "  path = excluded.path,\n"
        "  title = excluded.title,\n"
        "  is_directory = excluded.is_directory,\n"
        "  kind = excluded.kind,\n"
        "  blob_hash = excluded.blob_hash,\n"
        "  blob_size = excluded.blob_size,\n"
        "  updated_at = excluded.updated_at,\n"
        "  content_version = excluded.content_version,\n"
        "  local_only = excluded.local_only,\n"
        "  upload_error = excluded.upload_error",
        {node.brainId.upperText(), node.nodeId, node.path, node.title, node.isDirectory, rawValue(node.kind),
         node.blobHash, node.blobSize, platform::formatTimestamp(node.updatedAt), node.contentVersion,
         node.localOnly, node.uploadError})
        .run();
    if (const auto taken = takenPaths_.find(node.brainId); taken != takenPaths_.end())
        taken->second.nodeWritten(node.nodeId, node.path);
}

bool MetadataStore::deleteNode(const UUID& brainId, std::string_view nodeId) {
    std::lock_guard hold(lock_);
    SQLiteStatement(database_, "DELETE FROM nodes WHERE brain_id = ? AND node_id = ?",
                    {brainId.upperText(), nodeId})
        .run();
    const bool deleted = database_.changes() >= 1;
    if (const auto taken = takenPaths_.find(brainId); deleted && taken != takenPaths_.end())
        taken->second.nodeDeleted(std::string(nodeId));
    return deleted;
}

void MetadataStore::updatePath(const UUID& brainId, std::string_view nodeId, std::string_view newPath) {
    std::lock_guard hold(lock_);
    SQLiteStatement(database_, "UPDATE nodes SET path = ? WHERE brain_id = ? AND node_id = ?",
                    {newPath, brainId.upperText(), nodeId})
        .run();
    const auto taken = takenPaths_.find(brainId);
    if (taken != takenPaths_.end() && database_.changes() >= 1)
        taken->second.nodeWritten(std::string(nodeId), newPath);
}

bool MetadataStore::touchContent(const UUID& brainId, std::string_view nodeId) {
    return inTransaction([&] {
        auto node = nodeById(brainId, nodeId);
        if (!node || node->isDirectory) return false;
        node->contentVersion += 1;
        upsert(*node);
        appendChange(node->identifier(), false);
        return true;
    });
}

std::int64_t MetadataStore::enqueue(const PendingChange& change) {
    std::lock_guard hold(lock_);
    SQLiteStatement(database_,
                    "INSERT INTO pending_changes\n"
                    "  (brain_id, node_id, change_kind, path, from_path, base_cursor, created_at)\n"
                    "VALUES (?, ?, ?, ?, ?, ?, ?)",
                    {change.brainId.upperText(), change.nodeId, rawValue(change.changeKind), change.path,
                     change.fromPath, change.baseCursor, platform::formatTimestamp(change.createdAt)})
        .run();
    const auto id = database_.lastInsertRowID();
    if (const auto taken = takenPaths_.find(change.brainId); taken != takenPaths_.end())
        taken->second.changeWritten(id, change.path, change.fromPath);
    return id;
}

void MetadataStore::removePending(std::int64_t id) {
    std::lock_guard hold(lock_);
    SQLiteStatement(database_, "DELETE FROM pending_changes WHERE id = ?", {id}).run();
    for (auto& [brainId, taken] : takenPaths_)
        taken.changeRemoved(id);
}

void MetadataStore::rebasePending(std::int64_t id, const std::optional<std::string>& baseCursor) {
    std::lock_guard hold(lock_);
    SQLiteStatement(database_, "UPDATE pending_changes SET base_cursor = ? WHERE id = ?", {baseCursor, id})
        .run();
}

void MetadataStore::redirectPendingMove(std::int64_t id, std::string_view path) {
    std::lock_guard hold(lock_);
    SQLiteStatement(database_, "UPDATE pending_changes SET path = ? WHERE id = ?", {path, id}).run();
    for (auto& [brainId, taken] : takenPaths_)
        taken.changeRedirected(id, path);
}

const TakenPaths& MetadataStore::takenPaths(const UUID& brainId) {
    std::lock_guard hold(lock_);
    requireTransaction("takenPaths");
    auto taken = takenPaths_.find(brainId);
    if (taken == takenPaths_.end())
        taken = takenPaths_.emplace(brainId, TakenPaths(allNodes(brainId), pendingChanges(brainId))).first;
    return taken->second;
}

void MetadataStore::recordOwnWrite(const UUID& brainId, std::string_view path) {
    std::lock_guard hold(lock_);
    SQLiteStatement(database_, "INSERT INTO own_writes (brain_id, path) VALUES (?, ?)",
                    {brainId.upperText(), path})
        .run();
}

bool MetadataStore::consumeOwnWrite(const UUID& brainId, std::string_view path) {
    std::lock_guard hold(lock_);
    SQLiteStatement(database_,
                    "DELETE FROM own_writes WHERE id = (\n"
                    "  SELECT id FROM own_writes WHERE brain_id = ? AND path = ? ORDER BY id ASC LIMIT 1\n"
                    ")",
                    {brainId.upperText(), path})
        .run();
    return database_.changes() >= 1;
}

void MetadataStore::clearOwnWrites(const UUID& brainId) {
    std::lock_guard hold(lock_);
    SQLiteStatement(database_, "DELETE FROM own_writes WHERE brain_id = ?", {brainId.upperText()}).run();
}

void MetadataStore::setMeta(const std::optional<std::string>& value, std::string_view key) {
    std::lock_guard hold(lock_);
    if (!value) {
        SQLiteStatement(database_, "DELETE FROM meta WHERE key = ?", {key}).run();
        return;
    }
    SQLiteStatement(database_,
                    "INSERT INTO meta (key, value) VALUES (?, ?)\n"
                    "ON CONFLICT(key) DO UPDATE SET value = excluded.value",
                    {key, *value})
        .run();
}

void MetadataStore::beforeCommit(std::function<void()> action) {
    std::lock_guard hold(lock_);
    requireTransaction("beforeCommit");
    beforeCommit_.push_back(std::move(action));
}

void MetadataStore::runBeforeCommit() {
    for (std::size_t i = 0; i < beforeCommit_.size(); ++i)  // an action may add another
        std::exchange(beforeCommit_[i], nullptr)();
}

void MetadataStore::requireTransaction(const char* operation) const {
    if (database_.transactionDepth() == 0)
        throw std::logic_error(std::string(operation) + "() outside a transaction");
}

}  // namespace vorlinden
