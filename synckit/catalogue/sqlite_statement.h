// A prepared statement for the length of one call, and the borrowed parameters bound to it. For the sources
// of the catalogue; everybody else sees SQLiteDatabase or MetadataStore.
#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "synckit/catalogue/sqlite_database.h"

struct sqlite3_stmt;

namespace vorlinden {

// A value to bind, borrowed from the caller until the end of the full expression: SQLite takes its own copy.
// Absent is NULL, a boolean 1 or 0, text ends at its first NUL.
class SQLiteParameter {
 public:
    template <std::integral Integer>
    SQLiteParameter(Integer value) : value_(static_cast<std::int64_t>(value)) {}
    SQLiteParameter(std::string_view text) : value_(text) {}
    SQLiteParameter(const std::string& text) : value_(std::string_view(text)) {}
    SQLiteParameter(const std::optional<std::string>& text);
    SQLiteParameter(std::optional<std::int64_t> integer);
    SQLiteParameter(const SQLiteValue& value);

 private:
    friend class SQLiteStatement;
    std::variant<std::monostate, std::int64_t, std::string_view, const Data*> value_;
};

// Owns the sqlite3_stmt; it is finalized on every path. Throws SQLiteError with the statement's text.
class SQLiteStatement {
 public:
    // `sql` ends with a NUL and outlives the statement.
    SQLiteStatement(SQLiteDatabase& database, const char* sql,
                    std::initializer_list<SQLiteParameter> parameters = {});

    void bind(int position, const SQLiteParameter& parameter);  // positions count from 1
    bool step();                                                // false when there is no further row
    void run();                                                 // steps to the end, dropping rows

    // Columns of the current row, counted from 0. A view is valid until the next step.
    int columnCount() const;
    SQLiteValue value(int column) const;
    // These take SQLite's lock once per column rather than once per question about it, so nobody else may use
    // the connection meanwhile: for MetadataStore, which holds its own lock.
    std::string_view text(int column) const;  // "" unless text
    std::optional<std::string> optionalText(int column) const;
    std::int64_t integer(int column) const;  // 0 unless integer
    std::optional<std::int64_t> optionalInteger(int column) const;

 private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const noexcept;
    };
    const char* textOrNull(int column) const;
    [[noreturn]] void fail(int code) const;

    sqlite3* connection_;  // of the database, which outlives the statement
    const char* sql_;
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

}  // namespace vorlinden
