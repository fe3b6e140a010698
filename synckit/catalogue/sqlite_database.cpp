#include "synckit/catalogue/sqlite_database.h"

#include <chrono>

#include <sqlite3.h>

#include "synckit/catalogue/sqlite_statement.h"

namespace vorlinden {

namespace {

constexpr std::chrono::milliseconds busyTimeout{5000};

std::string describe(std::int32_t code, const std::string& message, const std::optional<std::string>& sql) {
    std::string text = "SQLite error " + std::to_string(code) + ": " + message;
    return sql ? text + " [" + *sql + "]" : text;
}

void bindAll(SQLiteStatement& statement, const std::vector<SQLiteValue>& parameters) {
    int position = 0;
    for (const SQLiteValue& parameter : parameters)
        statement.bind(++position, parameter);
}

template <class Payload>
std::optional<Payload> payload(const SQLiteValue& value) {
    const auto* held = std::get_if<Payload>(&value.value);
    return held ? std::optional<Payload>(*held) : std::nullopt;
}

}  // namespace

SQLiteError::SQLiteError(std::int32_t theCode, std::string theMessage, std::optional<std::string> theSql)
    : Failure(describe(theCode, theMessage, theSql)),
      code(theCode),
      message(std::move(theMessage)),
      sql(std::move(theSql)) {}

SQLiteValue SQLiteValue::integer(std::optional<std::int64_t> value) {
    return value ? SQLiteValue{*value} : null();
}
SQLiteValue SQLiteValue::text(std::optional<std::string> value) {
    return value ? SQLiteValue{*std::move(value)} : null();
}
SQLiteValue SQLiteValue::blob(Data value) {
    return {std::move(value)};
}
SQLiteValue SQLiteValue::boolean(bool value) {
    return {std::int64_t{value}};
}

bool SQLiteValue::isNull() const {
    return std::holds_alternative<std::monostate>(value);
}
std::optional<std::int64_t> SQLiteValue::integerValue() const {
    return payload<std::int64_t>(*this);
}
std::optional<std::string> SQLiteValue::textValue() const {
    return payload<std::string>(*this);
}
std::optional<Data> SQLiteValue::blobValue() const {
    return payload<Data>(*this);
}

std::string SQLiteRow::string(std::size_t column) const {
    return optionalString(column).value_or("");
}
std::optional<std::string> SQLiteRow::optionalString(std::size_t column) const {
    return values[column].textValue();
}
std::int64_t SQLiteRow::int64(std::size_t column) const {
    return optionalInt64(column).value_or(0);
}
std::optional<std::int64_t> SQLiteRow::optionalInt64(std::size_t column) const {
    return values[column].integerValue();
}
std::optional<Data> SQLiteRow::optionalData(std::size_t column) const {
    return values[column].blobValue();
}
bool SQLiteRow::isNull(std::size_t column) const {
    return values[column].isNull();
}

void SQLiteDatabase::Close::operator()(sqlite3* handle) const noexcept {
    sqlite3_close_v2(handle);
}

SQLiteDatabase::SQLiteDatabase(const std::string& path) {
    sqlite3* opened = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
    const int code = sqlite3_open_v2(path.c_str(), &opened, flags, nullptr);
    handle_.reset(opened);  // SQLite hands out a connection even for most failures
    if (code != SQLITE_OK)
        throw SQLiteError(code, opened ? sqlite3_errmsg(opened) : "unable to open " + path);
    execute("PRAGMA busy_timeout=" + std::to_string(busyTimeout.count()));
    switchToWriteAheadLog();
    execute("PRAGMA foreign_keys=ON");
}

// Two processes that create the file at the same moment each hold it for reading while they ask for the
// switch. SQLite sees the deadlock coming and answers "busy" at once, without its time-out, so the waiting is
// done here.
void SQLiteDatabase::switchToWriteAheadLog() {
    const auto deadline = std::chrono::steady_clock::now() + busyTimeout;
    for (;;) {
        try {
            query("PRAGMA journal_mode=WAL");
            return;
        } catch (const SQLiteError& error) {
            if (error.code != SQLITE_BUSY || std::chrono::steady_clock::now() >= deadline) throw;
        }
        sqlite3_sleep(5);
    }
}

void SQLiteDatabase::close() {
    handle_.reset();
}

void SQLiteDatabase::execute(std::string_view sql, const std::vector<SQLiteValue>& parameters) {
    const std::string text(sql);
    SQLiteStatement statement(*this, text.c_str());
    bindAll(statement, parameters);
    statement.run();
}

std::vector<SQLiteRow> SQLiteDatabase::query(std::string_view sql,
                                             const std::vector<SQLiteValue>& parameters) {
    const std::string text(sql);
    SQLiteStatement statement(*this, text.c_str());
    bindAll(statement, parameters);
    const int columns = statement.columnCount();
    std::vector<SQLiteRow> rows;
    while (statement.step()) {
        auto& values = rows.emplace_back().values;
        values.reserve(static_cast<std::size_t>(columns));
        for (int column = 0; column < columns; ++column)
            values.push_back(statement.value(column));
    }
    return rows;
}

int SQLiteDatabase::changes() const {
    return handle_ ? sqlite3_changes(handle_.get()) : 0;
}

std::int64_t SQLiteDatabase::lastInsertRowID() const {
    return handle_ ? sqlite3_last_insert_rowid(handle_.get()) : 0;
}

void SQLiteDatabase::begin(bool immediate) {
    SQLiteStatement(*this, immediate ? "BEGIN IMMEDIATE" : "BEGIN").run();
}

void SQLiteDatabase::commit() {
    SQLiteStatement(*this, "COMMIT").run();
}

void SQLiteDatabase::rollback() noexcept {
    try {
        SQLiteStatement(*this, "ROLLBACK").run();
    } catch (const SQLiteError&) {
        // What made the unit fail is what the caller must hear.
    }
}

}  // namespace vorlinden
