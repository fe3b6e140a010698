#include "synckit/catalogue/sqlite_database.h"

#include <functional>
#include <stdexcept>

#include <gtest/gtest.h>

#include "platform/files.h"
#include "tests/support/temporary_folder.h"

namespace vorlinden::tests {
namespace {

class SQLiteDatabaseTest : public testing::Test {
 protected:
    std::string path() const { return (folder_ / "data.sqlite").string(); }
    std::int64_t rows(const std::string& table = "t") {
        return database_.query("SELECT COUNT(*) FROM " + table).at(0).int64(0);
    }
    void insert(std::int64_t value) {
        database_.execute("INSERT INTO t VALUES (?)", {SQLiteValue::integer(value)});
    }

    TemporaryFolder folder_;
    SQLiteDatabase database_{path()};
};

SQLiteError failureOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const SQLiteError& error) {
        return error;
    }
    ADD_FAILURE() << "nothing failed";
    return SQLiteError(0, "");
}

TEST_F(SQLiteDatabaseTest, ValuesReadBackAsBound) {
    const std::vector<SQLiteValue> values = {
        SQLiteValue::integer(INT64_MIN), SQLiteValue::text("naïve 漢字 \xF0\x9F\x93\x81"),
        SQLiteValue::text(""),           SQLiteValue::blob(Data(std::string("a\0b", 3))),
        SQLiteValue::blob(Data()),       SQLiteValue::text(std::nullopt),
        SQLiteValue::boolean(true),
    };
    EXPECT_EQ(database_.query("SELECT ?, ?, ?, ?, ?, ?, ?", values).at(0).values, values);
    EXPECT_EQ(database_.query("SELECT typeof(?)", {values[4]}).at(0).string(0), "blob");
    const auto cutText = SQLiteValue::text(std::string("ab\0cd", 5));
    EXPECT_EQ(database_.query("SELECT length(?)", {cutText}).at(0).int64(0), 2) << "text ends at a NUL";
    const auto read = database_.query("SELECT CAST(x'610062' AS TEXT), 1.5, zeroblob(0)").at(0);
    EXPECT_EQ(read.string(0), "a");
    EXPECT_TRUE(read.isNull(1)) << "no column of ours is a float";
    EXPECT_EQ(read.optionalData(2), Data());
    EXPECT_EQ(database_.query("PRAGMA busy_timeout").at(0).int64(0), 5000);
    EXPECT_EQ(database_.query("PRAGMA journal_mode").at(0).string(0), "wal");
    EXPECT_EQ(database_.query("PRAGMA foreign_keys").at(0).int64(0), 1);
}

TEST_F(SQLiteDatabaseTest, FailuresNameTheirStatement) {
    EXPECT_EQ(failureOf([&] { database_.execute("SELECT * FROM missing"); }),
              SQLiteError(1, "no such table: missing", "SELECT * FROM missing"));
    EXPECT_EQ(failureOf([&] { database_.query("-- only a comment"); }),
              SQLiteError(0, "not an error", "-- only a comment"));
    EXPECT_EQ(failureOf([&] { database_.execute("SELECT 1", {SQLiteValue::integer(1)}); }),
              SQLiteError(25, "column index out of range", "SELECT 1"));
    // The second of three rows fails: no part of the result is given.
    const std::string midway = "SELECT abs(column1) FROM (VALUES (1), (-9223372036854775808), (3))";
    EXPECT_EQ(failureOf([&] { database_.query(midway); }), SQLiteError(1, "integer overflow", midway));
    EXPECT_EQ(failureOf([&] { SQLiteDatabase((folder_ / "none" / "x").string()); }),
              SQLiteError(14, "unable to open database file"));
    EXPECT_EQ(SQLiteError(5, "database is locked", "BEGIN").description(),
              "SQLite error 5: database is locked [BEGIN]");
    const std::string garbage = (folder_ / "garbage").string();
    platform::posixFileSystem()->writeAtomically(Data(std::string(8192, 'x')), garbage);
    const auto failure = failureOf([&] { SQLiteDatabase database(garbage); });
    EXPECT_EQ(failure.code, 26);
    EXPECT_EQ(failure.sql, "PRAGMA journal_mode=WAL");
}

TEST_F(SQLiteDatabaseTest, AClosedDatabaseStaysAnObject) {
    database_.execute("CREATE TABLE t (x)");
    insert(1);
    database_.close();
    database_.close();
    const auto closed = [](std::string sql) { return SQLiteError(21, "database is closed", std::move(sql)); };
    EXPECT_EQ(failureOf([&] { database_.execute("SELECT 1"); }), closed("SELECT 1"));
    EXPECT_EQ(failureOf([&] { database_.transaction(true, [] {}); }), closed("BEGIN IMMEDIATE"));
    EXPECT_EQ(database_.changes(), 0);
    EXPECT_EQ(database_.lastInsertRowID(), 0);
    EXPECT_EQ(database_.transactionDepth(), 0);
}

class TransactionTest : public SQLiteDatabaseTest {
 protected:
    TransactionTest() { database_.execute("CREATE TABLE t (x INTEGER)"); }
};

TEST_F(TransactionTest, NestsByDepthAndCommitsOrUndoesAsAWhole) {
    const auto failing = [&](std::int64_t value) {
        database_.transaction(true, [&] {
            insert(value);
            throw std::domain_error("inner");
        });
    };
    EXPECT_THROW(database_.transaction(true, [&] { insert(1), failing(2); }), std::domain_error);
    EXPECT_EQ(rows(), 0);
    const auto depths = database_.transaction(true, [&] {
        EXPECT_THROW(failing(1), std::domain_error);  // swallowed: its writes stay
        const int inner = database_.transaction(false, [&] { return database_.transactionDepth(); });
        return std::pair(database_.transactionDepth(), inner);
    });
    EXPECT_EQ(depths, std::pair(1, 2));
    EXPECT_EQ(database_.transactionDepth(), 0);
    EXPECT_EQ(rows(), 1);
}

TEST_F(TransactionTest, OnlyAnImmediateOneTakesTheWriteLockAtOnce) {
    SQLiteDatabase other(path());
    other.execute("PRAGMA busy_timeout=0");
    database_.transaction(false, [&] { other.execute("INSERT INTO t VALUES (1)"); });
    database_.transaction(true, [&] {
        bool ran = false;
        EXPECT_EQ(failureOf([&] { other.transaction(true, [&] { ran = true; }); }),
                  SQLiteError(5, "database is locked", "BEGIN IMMEDIATE"));
        EXPECT_FALSE(ran);
        EXPECT_EQ(other.transactionDepth(), 0);
    });
}

TEST_F(TransactionTest, AFailingRollbackLeavesTheBodysFailure) {
    const auto body = [&] {
        database_.close();
        throw std::domain_error("body");
    };
    EXPECT_THROW(database_.transaction(true, body), std::domain_error);
    EXPECT_EQ(database_.transactionDepth(), 0);
}

// A constraint checked at the end makes COMMIT fail and SQLite keep the transaction open.
TEST_F(TransactionTest, AFailedCommitSurfacesAndTheConnectionGoesOn) {
    database_.execute("CREATE TABLE parent (id INTEGER PRIMARY KEY)");
    database_.execute("CREATE TABLE child (p INTEGER REFERENCES parent (id) DEFERRABLE INITIALLY DEFERRED)");
    const auto orphan = [&] { database_.execute("INSERT INTO child VALUES (9)"); };
    EXPECT_EQ(failureOf([&] { database_.transaction(true, orphan); }),
              SQLiteError(19, "FOREIGN KEY constraint failed", "COMMIT"));
    EXPECT_EQ(database_.transactionDepth(), 0);
    EXPECT_EQ(rows("child"), 0);
    database_.transaction(true, [&] { insert(1); });
    EXPECT_EQ(rows(), 1);
}

TEST_F(TransactionTest, ADatabaseThatMayNotGrowGoesOn) {
    database_.query("PRAGMA max_page_count=" +
                    std::to_string(database_.query("PRAGMA page_count").at(0).int64(0)));
    const auto fill = [&] {
        for (int i = 0; i < 10'000; ++i)
            insert(i);
    };
    EXPECT_EQ(failureOf([&] { database_.transaction(true, fill); }),
              SQLiteError(13, "database or disk is full", "INSERT INTO t VALUES (?)"));
    EXPECT_EQ(rows(), 0);
    database_.transaction(true, [&] { insert(1); });
    EXPECT_EQ(rows(), 1);
}

}  // namespace
}  // namespace vorlinden::tests
