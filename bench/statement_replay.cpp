#include "bench/statement_replay.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <string_view>

#include <sqlite3.h>

namespace vorlinden::bench {

namespace {

std::vector<Statement>* recording = nullptr;

// The literal at the start of `text`, as sqlite3_expanded_sql() writes one, which it takes away.
Parameter takeLiteral(std::string_view& text) {
    if (text.starts_with("NULL")) {
        text.remove_prefix(4);
        return std::monostate{};
    }
    if (text.front() != '\'') {
        char* end = nullptr;
        const auto value = std::strtoll(text.data(), &end, 10);
        text.remove_prefix(static_cast<std::size_t>(end - text.data()));
        return std::int64_t{value};
    }
    std::string value;
    for (text.remove_prefix(1);; text.remove_prefix(1)) {
        if (text.front() == '\'') {
            text.remove_prefix(1);
            if (!text.starts_with('\'')) return value;
        }
        value += text.front();
    }
}

// Reads the parameters back by walking the statement beside its expanded form. The system's statements hold
// no literal with a question mark.
std::vector<Parameter> parametersOf(std::string_view sql, std::string_view expanded) {
    std::vector<Parameter> parameters;
    for (const char c : sql) {
        if (c == '?') {
            parameters.push_back(takeLiteral(expanded));
        } else {
            expanded.remove_prefix(1);
        }
    }
    return parameters;
}

int onStatement(unsigned, void*, void* pointer, void*) {
    auto* statement = static_cast<sqlite3_stmt*>(pointer);
    if (!recording) return 0;
    static std::set<std::string, std::less<>> texts;
    const std::string& sql = *texts.insert(sqlite3_sql(statement)).first;
    const std::unique_ptr<char, decltype(&sqlite3_free)> expanded(sqlite3_expanded_sql(statement),
                                                                  sqlite3_free);
    recording->push_back({sql.c_str(), parametersOf(sql, expanded.get())});
    return 0;
}

int onOpen(sqlite3* connection, char**, const struct sqlite3_api_routines*) {
    return sqlite3_trace_v2(connection, SQLITE_TRACE_STMT, onStatement, nullptr);
}

void check(int code, sqlite3* connection) {
    if (code == SQLITE_OK || code == SQLITE_ROW || code == SQLITE_DONE) return;
    std::fprintf(stderr, "SQLite: %s\n", sqlite3_errmsg(connection));
    std::exit(1);
}

void bind(sqlite3_stmt* statement, int position, const Parameter& parameter) {
    if (const auto* text = std::get_if<std::string>(&parameter)) {
        sqlite3_bind_text(statement, position, text->data(), static_cast<int>(text->size()),
                          SQLITE_TRANSIENT);
    } else if (const auto* integer = std::get_if<std::int64_t>(&parameter)) {
        sqlite3_bind_int64(statement, position, *integer);
    } else {
        sqlite3_bind_null(statement, position);
    }
}

// What a reader of the row must at least do.
std::size_t lookAtColumns(sqlite3_stmt* statement) {
    std::size_t seen = 0;
    for (int column = 0; column < sqlite3_column_count(statement); ++column) {
        if (sqlite3_column_type(statement, column) == SQLITE_INTEGER) {
            seen += static_cast<std::size_t>(sqlite3_column_int64(statement, column));
        } else if (const auto* text = sqlite3_column_text(statement, column)) {
            seen += text[0];
        }
    }
    return seen;
}

void run(const Statement& statement, sqlite3* connection) {
    sqlite3_stmt* prepared = nullptr;
    check(sqlite3_prepare_v2(connection, statement.sql, -1, &prepared, nullptr), connection);
    int position = 0;
    for (const auto& parameter : statement.parameters)
        bind(prepared, ++position, parameter);
    volatile std::size_t seen = 0;
    int code = sqlite3_step(prepared);
    for (; code == SQLITE_ROW; code = sqlite3_step(prepared))
        seen = seen + lookAtColumns(prepared);
    check(code, connection);
    sqlite3_finalize(prepared);
}

}  // namespace

std::vector<Statement> recordStatements(const std::function<void()>& work) {
    std::vector<Statement> statements;
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(onOpen));
    recording = &statements;
    work();
    recording = nullptr;
    sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(onOpen));
    return statements;
}

void replay(const std::vector<Statement>& statements, const std::string& file,
            const std::function<void()>& beforeCommit) {
    sqlite3* connection = nullptr;
    check(sqlite3_open(file.c_str(), &connection), connection);
    sqlite3_exec(connection, "PRAGMA busy_timeout=5000; PRAGMA journal_mode=WAL; PRAGMA foreign_keys=ON",
                 nullptr, nullptr, nullptr);
    for (const auto& statement : statements) {
        if (std::string_view(statement.sql) == "COMMIT") beforeCommit();
        run(statement, connection);
    }
    sqlite3_close(connection);
}

}  // namespace vorlinden::bench
