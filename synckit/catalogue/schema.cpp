#include "synckit/catalogue/schema.h"

#include <cstdint>
#include <string>

#include "synckit/catalogue/sqlite_database.h"

namespace vorlinden::Schema {

namespace {

constexpr std::int32_t schemaErrorCode = 17;  // SQLITE_SCHEMA

// The texts stand in every file's sqlite_schema table, so their layout is part of them.
constexpr const char* version1[] = {
    "CREATE TABLE brains (brain_id TEXT PRIMARY KEY, slug TEXT NOT NULL, name TEXT NOT NULL, cursor TEXT)",

    "CREATE TABLE nodes (\n"
    "  brain_id TEXT NOT NULL, node_id TEXT NOT NULL, path TEXT NOT NULL, title TEXT NOT NULL,\n"
    "  is_directory INTEGER NOT NULL, kind TEXT NOT NULL, blob_hash TEXT, blob_size INTEGER,\n"
    "  updated_at TEXT NOT NULL, content_version INTEGER NOT NULL DEFAULT 0,\n"
    "  local_only INTEGER NOT NULL DEFAULT 0, upload_error TEXT,\n"
    "  PRIMARY KEY (brain_id, node_id)\n"
    ")",

    "CREATE UNIQUE INDEX nodes_by_path ON nodes (brain_id, path)",

    "CREATE TABLE changes_log (anchor INTEGER PRIMARY KEY AUTOINCREMENT, brain_id TEXT NOT NULL, "
    "item_identifier TEXT NOT NULL, deleted INTEGER NOT NULL)",

    "CREATE TABLE pending_changes (id INTEGER PRIMARY KEY AUTOINCREMENT, brain_id TEXT NOT NULL, "
    "node_id TEXT, change_kind TEXT NOT NULL, path TEXT NOT NULL, from_path TEXT, base_cursor TEXT, "
    "created_at TEXT NOT NULL)",

    "CREATE TABLE meta (key TEXT PRIMARY KEY, value TEXT NOT NULL)",

    "PRAGMA user_version = 1",
};

constexpr const char* version2[] = {
    "CREATE TABLE own_writes (id INTEGER PRIMARY KEY AUTOINCREMENT, brain_id TEXT NOT NULL, "
    "path TEXT NOT NULL)",

    "CREATE INDEX own_writes_by_path ON own_writes (brain_id, path)",

    "PRAGMA user_version = 2",
};

std::int64_t storedVersion(SQLiteDatabase& database) {
    const auto rows = database.query("PRAGMA user_version");
    return rows.empty() ? 0 : rows.front().int64(0);
}

[[noreturn]] void refuseNewer(std::int64_t version) {
    throw SQLiteError(schemaErrorCode, "database schema version " + std::to_string(version) +
                                           " is newer than supported version " +
                                           std::to_string(currentVersion));
}

}  // namespace

void migrate(SQLiteDatabase& database) {
    database.transaction(true, [&] {
        const std::int64_t version = storedVersion(database);
        if (version > currentVersion) refuseNewer(version);
        if (version <= 0) {
            for (const char* statement : version1)
                database.execute(statement);
        }
        if (version < 2) {
            for (const char* statement : version2)
                database.execute(statement);
        }
    });
}

}  // namespace vorlinden::Schema
