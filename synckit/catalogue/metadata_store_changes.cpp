// The change log: appended by the writers, served to the platform from an anchor.
#include <algorithm>
#include <memory_resource>
#include <unordered_set>

#include "synckit/catalogue/metadata_store.h"
#include "synckit/catalogue/sqlite_statement.h"

namespace vorlinden {

namespace {

struct LogRow {
    std::string_view identifier;  // in the memory of its Log
    bool deleted;
};

// The rows of the log behind an anchor. Their texts lie in one block: a hundred thousand small allocations
// between those of SQLite would cost more than the reading.
class Log {
 public:
    explicit Log(SQLiteStatement statement) {
        while (statement.step())
            rows_.push_back({keep(statement.text(1)), statement.integer(2) != 0});
    }

    // The last row of each identifier, in the order of the log.
    std::vector<LogRow> collapsed() {
        std::vector<LogRow> survivors;
        std::pmr::unordered_set<std::string_view> seen(&memory_);
        survivors.reserve(rows_.size());
        seen.reserve(rows_.size());
        for (auto row = rows_.rbegin(); row != rows_.rend(); ++row) {
            if (seen.insert(row->identifier).second) survivors.push_back(*row);
        }
        std::reverse(survivors.begin(), survivors.end());
        return survivors;
    }

 private:
    std::string_view keep(std::string_view text) {
        auto* copy = static_cast<char*>(memory_.allocate(text.size() + 1, 1));
        std::copy(text.begin(), text.end(), copy);
        return {copy, text.size()};
    }

    std::pmr::monotonic_buffer_resource memory_;
    std::vector<LogRow> rows_;
};

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
        Log log(
            {database_,
             "SELECT anchor, item_identifier, deleted FROM changes_log WHERE anchor > ? ORDER BY anchor ASC",
             {since}});
        for (const LogRow& row : log.collapsed()) {
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
