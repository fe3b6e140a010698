#include "synckit/catalogue/schema.h"

#include <gtest/gtest.h>

#include "synckit/catalogue/sqlite_database.h"
#include "tests/support/catalogue.h"

namespace vorlinden::tests {
namespace {

class SchemaTest : public testing::Test {
 protected:
    std::int64_t version() { return database_.query("PRAGMA user_version").at(0).int64(0); }
    std::vector<std::string> objects() {
        std::vector<std::string> names;
        for (const auto& row :
             database_.query("SELECT name FROM sqlite_schema WHERE name NOT LIKE 'sqlite%' ORDER BY rowid"))
            names.push_back(row.string(0));
        return names;
    }
    std::string text(const std::string& object) {
        return database_.query("SELECT sql FROM sqlite_schema WHERE name = ?", {SQLiteValue::text(object)})
            .at(0)
            .string(0);
    }

    const std::vector<std::string> all_ = {"brains",          "nodes", "nodes_by_path", "changes_log",
                                           "pending_changes", "meta",  "own_writes",    "own_writes_by_path"};
    TemporaryFolder folder_;
    SQLiteDatabase database_{(folder_ / "data.sqlite").string()};
};

TEST_F(SchemaTest, ANewFileGetsAllObjectsAndASecondRunChangesNothing) {
    Schema::migrate(database_);
    EXPECT_EQ(version(), 2);
    EXPECT_EQ(objects(), all_);
    EXPECT_EQ(text("nodes"),
              "CREATE TABLE nodes (\n  brain_id TEXT NOT NULL, node_id TEXT NOT NULL, path TEXT NOT NULL, "
              "title TEXT NOT NULL,\n  is_directory INTEGER NOT NULL, kind TEXT NOT NULL, blob_hash TEXT, "
              "blob_size INTEGER,\n  updated_at TEXT NOT NULL, content_version INTEGER NOT NULL DEFAULT 0,\n"
              "  local_only INTEGER NOT NULL DEFAULT 0, upload_error TEXT,\n"
              "  PRIMARY KEY (brain_id, node_id)\n)");
    const auto schemaVersion = [&] { return database_.query("PRAGMA schema_version").at(0).int64(0); };
    const auto before = schemaVersion();
    Schema::migrate(database_);
    EXPECT_EQ(schemaVersion(), before);
}

TEST_F(SchemaTest, AFileAtVersionOneKeepsItsRowsAndGainsTheLedger) {
    Schema::migrate(database_);
    database_.execute("DROP TABLE own_writes");
    database_.execute("INSERT INTO meta VALUES ('device_id', 'd1')");
    database_.execute("PRAGMA user_version = 1");
    Schema::migrate(database_);
    EXPECT_EQ(version(), 2);
    EXPECT_EQ(objects(), all_);
    EXPECT_EQ(database_.query("SELECT value FROM meta").at(0).string(0), "d1");
}

TEST_F(SchemaTest, ANewerFileOrAFailureMidwayLeavesTheOldState) {
    database_.execute("PRAGMA user_version = 3");
    try {
        Schema::migrate(database_);
        FAIL() << "migrated a newer file";
    } catch (const SQLiteError& error) {
        EXPECT_EQ(error, SQLiteError(17, "database schema version 3 is newer than supported version 2"));
    }
    EXPECT_EQ(version(), 3);
    EXPECT_TRUE(objects().empty());
    database_.execute("PRAGMA user_version = 0");
    database_.execute("CREATE TABLE own_writes (occupied)");
    EXPECT_THROW(Schema::migrate(database_), SQLiteError);
    EXPECT_EQ(version(), 0);
    EXPECT_EQ(objects(), std::vector<std::string>{"own_writes"});
}

}  // namespace
}  // namespace vorlinden::tests
