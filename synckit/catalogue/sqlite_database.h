// A thin, synchronous wrapper over one SQLite connection (https://sqlite.org/c3ref/intro.html).
//
// Statements are prepared afresh for each call and live for one call; every result is fetched before the call
// returns. Single calls are safe from any thread, but `transactionDepth` has no lock: MetadataStore keeps all
// calls of a transaction on one thread. Nothing here knows of brains or nodes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "synckit/types.h"

struct sqlite3;

namespace vorlinden {

struct SQLiteError : Failure {
    SQLiteError(std::int32_t code, std::string message, std::optional<std::string> sql = {});
    std::string description() const { return what(); }

    std::int32_t code;  // SQLite's result code, or 21 for a closed database
    std::string message;
    std::optional<std::string> sql;  // the statement that failed
    bool operator==(const SQLiteError&) const = default;
};

// A column or parameter. A REAL column reads as null: the schema has none. Text ends at its first NUL.
struct SQLiteValue {
    std::variant<std::int64_t, std::string, Data, std::monostate> value = std::monostate{};

    static SQLiteValue integer(std::optional<std::int64_t> value);
    static SQLiteValue text(std::optional<std::string> value);
    static SQLiteValue blob(Data value);
    static SQLiteValue boolean(bool value);
    static SQLiteValue null() { return {}; }

    bool isNull() const;
    std::optional<std::int64_t> integerValue() const;
    std::optional<std::string> textValue() const;
    std::optional<Data> blobValue() const;
    bool operator==(const SQLiteValue&) const = default;
};

// One result row. The index must lie inside the row.
struct SQLiteRow {
    std::vector<SQLiteValue> values;

    std::string string(std::size_t column) const;  // "" unless text
    std::optional<std::string> optionalString(std::size_t column) const;
    std::int64_t int64(std::size_t column) const;  // 0 unless integer
    std::optional<std::int64_t> optionalInt64(std::size_t column) const;
    std::optional<Data> optionalData(std::size_t column) const;
    bool isNull(std::size_t column) const;
};

class SQLiteDatabase {
 public:
    // Opens or creates the file: write-ahead log, busy time-out of 5,000 ms, foreign keys on.
    explicit SQLiteDatabase(const std::string& path);

    void close();  // idempotent; every later call fails with code 21
    void execute(std::string_view sql, const std::vector<SQLiteValue>& parameters = {});
    std::vector<SQLiteRow> query(std::string_view sql, const std::vector<SQLiteValue>& parameters = {});
    int changes() const;                   // 0 once closed
    std::int64_t lastInsertRowID() const;  // 0 once closed
    int transactionDepth() const { return transactionDepth_; }

    // Runs `body` in a transaction and gives its value; what it throws passes on after a ROLLBACK. A nested
    // call issues no SQL: only the outermost level begins, commits or rolls back, and it does so for
    // everything. A COMMIT that fails is rolled back as well, so that the connection stays usable.
    template <class Body>
    auto transaction(bool immediate, Body&& body) -> std::invoke_result_t<Body>;

 private:
    friend class SQLiteStatement;
    struct Close {
        void operator()(sqlite3* handle) const noexcept;
    };
    class Nesting;

    void switchToWriteAheadLog();
    void begin(bool immediate);
    void commit();
    void rollback() noexcept;

    std::unique_ptr<sqlite3, Close> handle_;
    int transactionDepth_ = 0;
};

class SQLiteDatabase::Nesting {
 public:
    explicit Nesting(int& depth) : depth_(depth) { ++depth_; }
    ~Nesting() { --depth_; }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;

 private:
    int& depth_;
};

template <class Body>
auto SQLiteDatabase::transaction(bool immediate, Body&& body) -> std::invoke_result_t<Body> {
    if (transactionDepth_ > 0) {
        Nesting level(transactionDepth_);
        return std::forward<Body>(body)();
    }
    begin(immediate);
    Nesting level(transactionDepth_);
    try {
        if constexpr (std::is_void_v<std::invoke_result_t<Body>>) {
            std::forward<Body>(body)();
            commit();
        } else {
            std::invoke_result_t<Body> value = std::forward<Body>(body)();
            commit();
            return value;
        }
    } catch (...) {
        rollback();
        throw;
    }
}

}  // namespace vorlinden
