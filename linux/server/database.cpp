#include "linux/server/database.h"

#include <sqlite3.h>

namespace vorlinden::server {

DatabaseError::DatabaseError(int sqliteCode, const std::string& message, std::string sqlText)
    : Failure("The server's database failed: " + message + "."), code(sqliteCode), sql(std::move(sqlText)) {}

void CloseDatabase::operator()(sqlite3* handle) const {
    sqlite3_close_v2(handle);
}
void FinalizeStatement::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

Query::~Query() {
    if (!statement_) return;
    sqlite3_reset(statement_.get());
    sqlite3_clear_bindings(statement_.get());
    database_->keep(sql_, std::move(statement_));
}

bool Query::next() {
    const int result = sqlite3_step(statement_.get());
    if (result == SQLITE_ROW) return true;
    if (result != SQLITE_DONE) database_->fail(result, sql_);
    return false;
}

std::int64_t Query::integer(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

std::string Query::text(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
    if (!text) return {};
    return std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column)));
}

std::optional<std::string> Query::optionalText(int column) const {
    if (sqlite3_column_type(statement_.get(), column) == SQLITE_NULL) return std::nullopt;
    return text(column);
}

std::optional<std::int64_t> Query::optionalInteger(int column) const {
    if (sqlite3_column_type(statement_.get(), column) == SQLITE_NULL) return std::nullopt;
    return integer(column);
}

std::optional<platform::Data> Query::bytes(int column) const {
    if (sqlite3_column_type(statement_.get(), column) == SQLITE_NULL) return std::nullopt;
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_.get(), column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
    return bytes ? platform::Data::copyOf({bytes, size}) : platform::Data();
}

void Query::bind(int index, std::int64_t value) {
    check(sqlite3_bind_int64(statement_.get(), index, value));
}

void Query::bind(int index, std::string_view value) {
    // A null pointer would bind NULL, which an empty view may hold.
    const char* text = value.data() ? value.data() : "";
    check(sqlite3_bind_text64(statement_.get(), index, text, value.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

void Query::bind(int index, const platform::Data& value) {
    const void* bytes = value.empty() ? "" : static_cast<const void*>(value.data());
    check(sqlite3_bind_blob64(statement_.get(), index, bytes, value.size(), SQLITE_STATIC));
}

void Query::bindNull(int index) {
    check(sqlite3_bind_null(statement_.get(), index));
}

void Query::check(int result) const {
    if (result != SQLITE_OK) database_->fail(result, sql_);
}

Database::Database(const std::filesystem::path& file, Mode mode) {
    const int flags =
        SQLITE_OPEN_NOMUTEX |
        (mode == Mode::readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(file.c_str(), &handle, flags, nullptr);
    handle_.reset(handle);
    if (result != SQLITE_OK) fail(result, "open");
    sqlite3_extended_result_codes(handle, 1);
    sqlite3_busy_timeout(handle, 5'000);
}

void Database::script(const std::string& sql) {
    const int result = sqlite3_exec(handle_.get(), sql.c_str(), nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) fail(result, sql);
}

std::int64_t Database::lastRow() const {
    return sqlite3_last_insert_rowid(handle_.get());
}
std::int64_t Database::changes() const {
    return sqlite3_changes64(handle_.get());
}

StatementHandle Database::prepared(std::string_view sql) {
    auto& idle = idle_[sql];
    if (!idle.empty()) {
        auto statement = std::move(idle.back());
        idle.pop_back();
        return statement;
    }
    sqlite3_stmt* statement = nullptr;
    const int result = sqlite3_prepare_v3(handle_.get(), sql.data(), static_cast<int>(sql.size()),
                                          SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (result != SQLITE_OK) fail(result, sql);
    return StatementHandle(statement);
}

void Database::keep(std::string_view sql, StatementHandle statement) {
    idle_[sql].push_back(std::move(statement));
}

void Database::fail(int code, std::string_view sql) const {
    const char* message = handle_ ? sqlite3_errmsg(handle_.get()) : sqlite3_errstr(code);
    throw DatabaseError(code, message, std::string(sql));
}

}  // namespace vorlinden::server
