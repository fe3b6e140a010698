// The change log: appended by the writers, served to the platform from an anchor.
#include <algorithm>
#include <unordered_set>

#include "synckit/catalogue/metadata_store.h"
#include "synckit/catalogue/sqlite_statement.h"

namespace vorlinden {

namespace {

struct LogRow {
    std::string identifier;
    bool deleted;
};

std::vector<LogRow> readLog(SQLiteStatement statement) {
    std::vector<LogRow> rows;
    while (statement.step())
        rows.push_back({std::string(statement.text(1)), statement.integer(2) != 0});
    return rows;
}

// Keeps the last row of each identifier, in the order of the log.
std::vector<LogRow> collapsed(std::vector<LogRow> rows) {
    std::vector<LogRow> survivors;
    std::unordered_set<std::string_view> seen;
    survivors.reserve(rows.size());
    seen.reserve(rows.size());
    for (std::size_t index = rows.size(); index-- > 0;) {
        if (seen.insert(rows[index].identifier).second) survivors.push_back(rows[index]);
    }
    std::reverse(survivors.begin(), survivors.end());
    return survivors;
}

}  // namespace

std::int64_t MetadataStore::appendChange(const SyncItemIdentifier& identifier, bool deleted) {
    std::lock_guard hold(lock_);
    const auto brainId = identifier.brainId();
    SQLiteStatement(database_,
                    "INSERT INTO changes_log (brain_id, item_identifier, deleted) VALUES (?, ?, ?)",
                    {brainId ? brainId->upperText() : std::string(), identifier.rawValue(), deleted})
        .run();
    return database_.lastInsertRowID();
}

ChangeSet MetadataStore::changes(std::int64_t since) {
    std::lock_guard hold(lock_);
    // Deferred: a reader that must not wait for the other process's writer, yet sees one moment.
    return database_.transaction(false, [&] {
        ChangeSet changes;
        const auto rows = collapsed(readLog(
            {database_,
             "SELECT anchor, item_identifier, deleted FROM changes_log WHERE anchor > ? ORDER BY anchor ASC",
             {since}}));
        for (const LogRow& row : rows) {
            auto identifier = SyncItemIdentifier::fromRawValue(row.identifier);
            if (!identifier) continue;
            auto item = row.deleted ? std::nullopt : record(*identifier);
            if (item) {
                changes.changed.push_back(*std::move(item));
            } else {
                changes.deleted.push_back(*std::move(identifier));
            }
        }
        changes.anchor = currentAnchor();
        return changes;
    });
}

}  // namespace vorlinden
