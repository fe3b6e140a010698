// What a user waits for, beside a bare loop over SQLite that runs the same statements, prepares each per call
// and reads the columns out: a folder of 10,000 children, 100,000 rows of the change log, and 100,000 nodes
// written and logged in one transaction.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <sqlite3.h>

#include "bench/comparison.h"
#include "synckit/catalogue/metadata_store.h"

namespace vorlinden::bench {
namespace {

constexpr int childCount = 10'000;
constexpr int changeCount = 100'000;
constexpr int rounds = 9;

#define NODE_COLUMNS                                                                         \
    "brain_id, node_id, path, title, is_directory, kind, blob_hash, blob_size, updated_at, " \
    "content_version, local_only, upload_error"

const UUID brain = *UUID::parse("6BA7B810-9DAD-11D1-80B4-00C04FD430C8");

[[noreturn]] void die(const char* what) {
    std::fprintf(stderr, "catalogue_bench: %s\n", what);
    std::exit(1);
}

NodeRecord node(std::string path, std::string nodeId) {
    NodeRecord record;
    record.brainId = brain;
    record.nodeId = std::move(nodeId);
    record.path = std::move(path);
    record.title = "A title of ordinary length";
    record.updatedAt = Timestamp(std::chrono::milliseconds(1'700'000'000'123));
    record.contentVersion = 1;
    return record;
}

// In a transaction that is undone, so that every round starts from the same file.
void writeNodes(MetadataStore& store, const std::vector<NodeRecord>& nodes) {
    struct Undo {};
    try {
        store.inTransaction([&] {
            for (const NodeRecord& record : nodes) {
                store.upsert(record);
                store.appendChange(record.identifier(), false);
            }
            throw Undo();
        });
    } catch (const Undo&) {
    }
}

std::vector<NodeRecord> newNodes() {
    std::vector<NodeRecord> nodes;
    for (int number = 0; number < changeCount; ++number) {
        const std::string text = std::to_string(1'000'000 + number);
        nodes.push_back(node("new notes/document " + text + ".md", "fedcba9876543210fedcba9876" + text));
    }
    return nodes;
}

void fill(MetadataStore& store) {
    store.inTransaction([&] {
        NodeRecord folder = node("notes/folder", NodeRecord::derivedDirectoryId("notes/folder"));
        folder.isDirectory = true;
        store.upsert(folder);
        for (int number = 0; number < changeCount; ++number) {
            const std::string text = std::to_string(number);
            const bool child = number < childCount;
            NodeRecord file =
                node((child ? "notes/folder/document " : "notes/other/document ") + text + ".md",
                     "0123456789abcdef0123456789" + std::to_string(1'000'000 + number));
            store.upsert(file);
            store.appendChange(file.identifier(), false);
        }
    });
}

// A statement of the bare loop: prepared, bound, stepped and finalized by its user.
sqlite3_stmt* prepare(sqlite3* connection, const char* sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(connection, sql, -1, &statement, nullptr) != SQLITE_OK)
        die(sqlite3_errmsg(connection));
    return statement;
}

void bind(sqlite3_stmt* statement, int position, const char* text) {
    sqlite3_bind_text(statement, position, text, -1, SQLITE_TRANSIENT);
}

// Steps once and finalizes; rows are of no interest.
void finish(sqlite3* connection, sqlite3_stmt* statement) {
    const int code = sqlite3_step(statement);
    if (code != SQLITE_DONE && code != SQLITE_ROW) die(sqlite3_errmsg(connection));
    sqlite3_finalize(statement);
}

void run(sqlite3* connection, const char* sql) {
    finish(connection, prepare(connection, sql));
}

std::size_t readNode(sqlite3_stmt* statement) {
    std::size_t sum = 0;
    for (const int column : {0, 1, 2, 3, 5, 6, 8, 11}) {
        if (sqlite3_column_text(statement, column)) {
            sum += static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
        }
    }
    for (const int column : {4, 7, 9, 10})
        sum += static_cast<std::size_t>(sqlite3_column_int64(statement, column));
    return sum;
}

// Runs a statement over nodes to its end and gives its number of rows.
int readNodes(sqlite3_stmt* statement, std::size_t& sum) {
    int rows = 0;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        sum += readNode(statement);
        ++rows;
    }
    sqlite3_finalize(statement);
    return rows;
}

int nodeById(sqlite3* connection, const char* brainId, const char* nodeId, std::size_t& sum) {
    sqlite3_stmt* lookup =
        prepare(connection, "SELECT " NODE_COLUMNS " FROM nodes WHERE brain_id = ? AND node_id = ?");
    bind(lookup, 1, brainId);
    bind(lookup, 2, nodeId);
    return readNodes(lookup, sum);
}

int bareChildren(sqlite3* connection, const std::string& brainId, std::size_t& sum) {
    nodeById(connection, brainId.c_str(), "dir:notes/folder", sum);
    sqlite3_stmt* children = prepare(connection, "SELECT " NODE_COLUMNS
                                                 " FROM nodes\n"
                                                 "WHERE brain_id = ? AND path > ? AND path < ?\n"
                                                 "  AND instr(substr(path, length(?) + 1), '/') = 0\n"
                                                 "ORDER BY path");
    bind(children, 1, brainId.c_str());
    bind(children, 2, "notes/folder/");
    bind(children, 3, "notes/folder0");
    bind(children, 4, "notes/folder/");
    return readNodes(children, sum);
}

int bareChanges(sqlite3* connection, const std::string& brainId, std::size_t& sum) {
    constexpr std::size_t prefix = 5 + 36 + 1;  // "node:", the UUID, ":"
    int rows = 0;
    run(connection, "BEGIN");
    sqlite3_stmt* log = prepare(
        connection,
        "SELECT anchor, item_identifier, deleted FROM changes_log WHERE anchor > ? ORDER BY anchor ASC");
    sqlite3_bind_int64(log, 1, 0);
    while (sqlite3_step(log) == SQLITE_ROW) {
        const char* identifier = reinterpret_cast<const char*>(sqlite3_column_text(log, 1));
        sum += static_cast<std::size_t>(sqlite3_column_int64(log, 0) + sqlite3_column_int64(log, 2));
        rows += nodeById(connection, brainId.c_str(), identifier + prefix, sum);
    }
    sqlite3_finalize(log);
    run(connection, "SELECT MAX(anchor) FROM changes_log");
    run(connection, "COMMIT");
    return rows;
}

void bareUpsert(sqlite3* connection, const char* brainId, const NodeRecord& record) {
    sqlite3_stmt* upsert = prepare(connection, "INSERT INTO nodes (" NODE_COLUMNS
                                               ") VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)\n"
                                               "ON CONFLICT(brain_id, node_id) DO UPDATE SET\n"
                                               "  path = excluded.path,\n"
                                               "  title = excluded.title,\n"
                                               "  is_directory = excluded.is_directory,\n"
                                               "  kind = excluded.kind,\n"
                                               "  blob_hash = excluded.blob_hash,\n"
                                               "  blob_size = excluded.blob_size,\n"
                                               "  updated_at = excluded.updated_at,\n"
                                               "  content_version = excluded.content_version,\n"
                                               "  local_only = excluded.local_only,\n"
                                               "  upload_error = excluded.upload_error");
    bind(upsert, 1, brainId);
    bind(upsert, 2, record.nodeId.c_str());
    bind(upsert, 3, record.path.c_str());
    bind(upsert, 4, record.title.c_str());
    sqlite3_bind_int64(upsert, 5, 0);
    bind(upsert, 6, "text");
    sqlite3_bind_null(upsert, 7);
    sqlite3_bind_null(upsert, 8);
    bind(upsert, 9, "2023-11-14T22:13:20.123Z");
    sqlite3_bind_int64(upsert, 10, 1);
    sqlite3_bind_int64(upsert, 11, 0);
    sqlite3_bind_null(upsert, 12);
    finish(connection, upsert);
}

void bareLog(sqlite3* connection, const char* brainId, const char* identifier) {
    sqlite3_stmt* log =
        prepare(connection, "INSERT INTO changes_log (brain_id, item_identifier, deleted) VALUES (?, ?, ?)");
    bind(log, 1, brainId);
    bind(log, 2, identifier);
    sqlite3_bind_int64(log, 3, 0);
    finish(connection, log);
}

void bareWrites(sqlite3* connection, const std::string& brainId, const std::vector<NodeRecord>& nodes) {
    run(connection, "BEGIN IMMEDIATE");
    for (const NodeRecord& record : nodes) {
        bareUpsert(connection, brainId.c_str(), record);
        const std::string identifier = "node:" + brainId + ":" + record.nodeId;
        bareLog(connection, brainId.c_str(), identifier.c_str());
    }
    run(connection, "ROLLBACK");
}

void expect(bool holds) {
    if (!holds) die("a read gave another number of rows than was written");
}

int measure(const std::filesystem::path& folder) {
    const std::string file = (folder / "sync.sqlite").string();
    MetadataStore store(file);
    fill(store);
    sqlite3* connection = nullptr;
    if (sqlite3_open_v2(file.c_str(), &connection, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr) !=
        SQLITE_OK)
        die("can't open the catalogue");
    const std::string brainId = brain.upperText();
    const auto parent = SyncItemIdentifier::node(brain, "dir:notes/folder");
    std::size_t sum = 0;

    printHeading();
    compare(
        "enumerate(parent:), 10,000 children", rounds,
        [&] { expect(store.enumerate(parent).size() == childCount); },
        [&] { expect(bareChildren(connection, brainId, sum) == childCount); });
    compare(
        "changes(since:), 100,000 rows", rounds,
        [&] { expect(store.changes(0).changed.size() == changeCount); },
        [&] { expect(bareChanges(connection, brainId, sum) == changeCount); });
    const auto nodes = newNodes();
    compare(
        "100,000 nodes, upsert(_:) and appendChange", rounds, [&] { writeNodes(store, nodes); },
        [&] { bareWrites(connection, brainId, nodes); });
    sqlite3_close(connection);
    return sum == 0;
}

}  // namespace
}  // namespace vorlinden::bench

int main() {
    std::string folder = (std::filesystem::temp_directory_path() / "vorlinden-bench-XXXXXX").string();
    if (!mkdtemp(folder.data())) return 1;
    const int status = vorlinden::bench::measure(folder);
    std::filesystem::remove_all(folder);
    return status;
}
