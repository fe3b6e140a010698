#include "synckit/catalogue/sqlite_statement.h"

#include <algorithm>

#include <sqlite3.h>

namespace vorlinden {

namespace {

int bindText(sqlite3_stmt* statement, int position, std::string_view text) {
    // A view without memory would bind NULL; the view needn't end with a NUL, so its length is given, up to
    // the first NUL, where a C string ends.
    const char* bytes = text.data() ? text.data() : "";
    const auto length = std::min(text.find('\0'), text.size());
    return sqlite3_bind_text64(statement, position, bytes, length, SQLITE_TRANSIENT, SQLITE_UTF8);
}

int bindBlob(sqlite3_stmt* statement, int position, const Data& data) {
    // An empty buffer has no memory and would become NULL.
    if (data.empty()) return sqlite3_bind_zeroblob(statement, position, 0);
    return sqlite3_bind_blob64(statement, position, data.data(), data.size(), SQLITE_TRANSIENT);
}

struct Binder {
    sqlite3_stmt* statement;
    int position;

    int operator()(std::monostate) const { return sqlite3_bind_null(statement, position); }
    int operator()(std::int64_t integer) const { return sqlite3_bind_int64(statement, position, integer); }
    int operator()(std::string_view text) const { return bindText(statement, position, text); }
    int operator()(const Data* data) const { return bindBlob(statement, position, *data); }
};

std::string_view columnText(sqlite3_stmt* statement, int column) {
    const unsigned char* text = sqlite3_column_text(statement, column);
    return text ? std::string_view(reinterpret_cast<const char*>(text)) : std::string_view();
}

Data columnBlob(sqlite3_stmt* statement, int column) {
    const void* bytes = sqlite3_column_blob(statement, column);
    const int length = sqlite3_column_bytes(statement, column);
    if (!bytes || length < 1) return {};
    return Data::copyOf({static_cast<const char*>(bytes), static_cast<std::size_t>(length)});
}

}  // namespace

SQLiteParameter::SQLiteParameter(const std::optional<std::string>& text) {
    if (text) value_ = std::string_view(*text);
}

SQLiteParameter::SQLiteParameter(std::optional<std::int64_t> integer) {
    if (integer) value_ = *integer;
}

SQLiteParameter::SQLiteParameter(const SQLiteValue& value) {
    if (const auto* integer = std::get_if<std::int64_t>(&value.value)) value_ = *integer;
    if (const auto* text = std::get_if<std::string>(&value.value)) value_ = std::string_view(*text);
    if (const auto* data = std::get_if<Data>(&value.value)) value_ = data;
}

void SQLiteStatement::Finalize::operator()(sqlite3_stmt* statement) const noexcept {
    sqlite3_finalize(statement);
}

SQLiteStatement::SQLiteStatement(SQLiteDatabase& database, const char* sql,
                                 std::initializer_list<SQLiteParameter> parameters)
    : connection_(database.handle_.get()), sql_(sql) {
    if (!connection_) throw SQLiteError(SQLITE_MISUSE, "database is closed", sql);
    sqlite3_stmt* prepared = nullptr;
    const int code = sqlite3_prepare_v2(connection_, sql, -1, &prepared, nullptr);
    statement_.reset(prepared);
    if (code != SQLITE_OK || !prepared) fail(code);
    int position = 0;
    for (const SQLiteParameter& parameter : parameters)
        bind(++position, parameter);
}

void SQLiteStatement::bind(int position, const SQLiteParameter& parameter) {
    const int code = std::visit(Binder{statement_.get(), position}, parameter.value_);
    if (code != SQLITE_OK) fail(code);
}

bool SQLiteStatement::step() {
    const int code = sqlite3_step(statement_.get());
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    fail(code);
}

void SQLiteStatement::run() {
    while (step()) {
    }
}

int SQLiteStatement::columnCount() const {
    return sqlite3_column_count(statement_.get());
}

SQLiteValue SQLiteStatement::value(int column) const {
    switch (sqlite3_column_type(statement_.get(), column)) {
        case SQLITE_INTEGER:
            return SQLiteValue::integer(sqlite3_column_int64(statement_.get(), column));
        case SQLITE_TEXT:
            return SQLiteValue::text(std::string(columnText(statement_.get(), column)));
        case SQLITE_BLOB:
            return SQLiteValue::blob(columnBlob(statement_.get(), column));
        default:
            return SQLiteValue::null();
    }
}

std::string_view SQLiteStatement::text(int column) const {
    const auto* text = textOrNull(column);
    return text ? std::string_view(text) : std::string_view();
}

std::optional<std::string> SQLiteStatement::optionalText(int column) const {
    const auto* text = textOrNull(column);
    return text ? std::optional<std::string>(text) : std::nullopt;
}

std::int64_t SQLiteStatement::integer(int column) const {
    return optionalInteger(column).value_or(0);
}

std::optional<std::int64_t> SQLiteStatement::optionalInteger(int column) const {
    if (sqlite3_column_type(statement_.get(), column) != SQLITE_INTEGER) return std::nullopt;
    return sqlite3_column_int64(statement_.get(), column);
}

const char* SQLiteStatement::textOrNull(int column) const {
    if (sqlite3_column_type(statement_.get(), column) != SQLITE_TEXT) return nullptr;
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
    return text ? text : "";  // null only when memory ran out
}

void SQLiteStatement::fail(int code) const {
    throw SQLiteError(code, sqlite3_errmsg(connection_), sql_);
}

}  // namespace vorlinden
