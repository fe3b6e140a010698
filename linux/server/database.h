// One SQLite connection of the server, with the statements it has prepared.
//
// Private to linux/server. A connection belongs to one thread at a time. Everything throws DatabaseError.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/data.h"
#include "platform/failure.h"

struct sqlite3;
struct sqlite3_stmt;

namespace vorlinden::server {

struct DatabaseError : platform::Failure {
    DatabaseError(int sqliteCode, const std::string& message, std::string sqlText);

    int code;
    std::string sql;
    bool operator==(const DatabaseError&) const = default;
};

struct CloseDatabase {
    void operator()(sqlite3* handle) const;
};
struct FinalizeStatement {
    void operator()(sqlite3_stmt* statement) const;
};
using StatementHandle = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

class Database;

// The rows of one running statement. Gives the statement back to its connection when it ends.
class Query {
 public:
    Query(Query&&) noexcept = default;
    Query& operator=(Query&&) = delete;
    ~Query();

    bool next();  // to the first or next row; false after the last

    std::int64_t integer(int column) const;
    std::string text(int column) const;
    std::optional<std::string> optionalText(int column) const;  // absent for NULL
    std::optional<std::int64_t> optionalInteger(int column) const;
    std::optional<platform::Data> bytes(int column) const;  // a copy

 private:
    friend class Database;
    Query(Database& database, std::string_view sql, StatementHandle statement)
        : database_(&database), sql_(sql), statement_(std::move(statement)) {}

    void bind(int index, std::int64_t value);
    void bind(int index, std::string_view value);
    void bind(int index, const platform::Data& value);
    void bindNull(int index);
    template <class T>
    void bind(int index, const std::optional<T>& value) {
        value ? bind(index, *value) : bindNull(index);
    }
    void check(int result) const;

    Database* database_;
    std::string_view sql_;
    StatementHandle statement_;
};

// A parameter is an integer, a text, a Data, or an optional of these; a Data is borrowed for the life of the
// Query, a text is copied. The SQL text must outlive the connection: statements are kept by it for the next
// call, so it is always a literal.
class Database {
 public:
    enum class Mode { readWrite, readOnly };
    Database(const std::filesystem::path& file, Mode mode);

    template <class... Parameters>
    Query query(std::string_view sql, const Parameters&... parameters) {
        Query query(*this, sql, prepared(sql));
        int index = 0;
        (query.bind(++index, parameters), ...);
        return query;
    }

    // Runs a statement to its end; gives the number of rows it changed.
    template <class... Parameters>
    std::int64_t run(std::string_view sql, const Parameters&... parameters) {
        auto running = query(sql, parameters...);
        while (running.next()) {
        }
        return changes();
    }

    void script(const std::string& sql);  // any number of statements, no parameters
    std::int64_t lastRow() const;

 private:
    friend class Query;
    StatementHandle prepared(std::string_view sql);
    void keep(std::string_view sql, StatementHandle statement);
    std::int64_t changes() const;
    [[noreturn]] void fail(int code, std::string_view sql) const;

    std::unique_ptr<sqlite3, CloseDatabase> handle_;
    std::unordered_map<std::string_view, std::vector<StatementHandle>> idle_;  // goes before the handle
};

}  // namespace vorlinden::server
