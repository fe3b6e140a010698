#include "tests/support/connection.h"

#include <stdexcept>
#include <string_view>

#include <sqlite3.h>

namespace vorlinden::tests {

namespace {

thread_local sqlite3* opened = nullptr;

int onOpen(sqlite3* connection, char**, const struct sqlite3_api_routines*) {
    opened = connection;
    return sqlite3_exec(connection, "PRAGMA synchronous = OFF", nullptr, nullptr, nullptr);
}

int appendRow(void* rows, int columns, char** values, char**) {
    auto& row = static_cast<std::vector<std::vector<std::string>>*>(rows)->emplace_back();
    for (int i = 0; i < columns; ++i)
        row.emplace_back(values[i] ? values[i] : "NULL");
    return 0;
}

}  // namespace

sqlite3* connectionOf(const std::function<void()>& open) {
    const auto entry = reinterpret_cast<void (*)()>(onOpen);
    sqlite3_auto_extension(entry);
    open();
    sqlite3_cancel_auto_extension(entry);
    return opened;
}

std::vector<std::vector<std::string>> rows(sqlite3* connection, const std::string& sql) {
    std::vector<std::vector<std::string>> found;
    if (sqlite3_exec(connection, sql.c_str(), appendRow, &found, nullptr) != SQLITE_OK)
        throw std::runtime_error(sqlite3_errmsg(connection));
    return found;
}

std::string dump(sqlite3* connection) {
    std::string text;
    for (const std::string table :
         {"changes_log ORDER BY anchor", "nodes ORDER BY brain_id, path", "brains ORDER BY brain_id",
          "pending_changes ORDER BY id", "meta ORDER BY key", "own_writes ORDER BY id"}) {
        text += table + "\n";
        for (const auto& row : rows(connection, "SELECT * FROM " + table)) {
            for (const auto& value : row)
                text += value + "|";
            text += "\n";
        }
    }
    return text;
}

StatementFault::StatementFault(sqlite3* connection, int number) : connection_(connection), left_(number) {
    sqlite3_set_authorizer(connection, authorize, this);
}

StatementFault::~StatementFault() {
    sqlite3_set_authorizer(connection_, nullptr, nullptr);
}

// SQLite asks for everything that a statement is about to do. A rollback is let through: it is what makes a
// failure harmless, and SQLite itself knows no failing one.
int StatementFault::authorize(void* fault, int action, const char* detail, const char*, const char*,
                              const char*) {
    const bool counts = action == SQLITE_SELECT || action == SQLITE_INSERT || action == SQLITE_UPDATE ||
                        action == SQLITE_DELETE ||
                        (action == SQLITE_TRANSACTION && std::string_view(detail) != "ROLLBACK");
    return counts && --static_cast<StatementFault*>(fault)->left_ == 0 ? SQLITE_DENY : SQLITE_OK;
}

}  // namespace vorlinden::tests
