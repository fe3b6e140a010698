#include "synckit/catalogue/metadata_store.h"
#include "synckit/catalogue/record_rows.h"

namespace vorlinden {

namespace {

// A list that outgrows some pages gets room for a large folder at once: memory that is never touched costs
// nothing, while growing step by step touches twice what is needed in the end.
template <class Element>
Element& append(std::vector<Element>& list) {
    constexpr std::size_t some = 256, many = 16'384;
    if (list.size() == list.capacity() && list.size() >= some && list.size() < many) list.reserve(many);
    return list.emplace_back();
}

// All rows of a statement.
template <class Record>
std::vector<Record> allRows(SQLiteStatement statement) {
    RecordReader rows(std::move(statement));
    std::vector<Record> records;
    while (rows.next())
        rows.read(append(records));
    return records;
}

// The same, each as an item.
template <class Record>
std::vector<SyncItem> allItems(SQLiteStatement statement) {
    RecordReader rows(std::move(statement));
    std::vector<SyncItem> items;
    while (rows.next())
        rows.read(append(items).value.template emplace<Record>());
    return items;
}

// The first row, or absent.
template <class Record>
std::optional<Record> firstRow(SQLiteStatement statement) {
    RecordReader rows(std::move(statement));
    std::optional<Record> record;
    if (rows.next()) rows.read(record.emplace());
    return record;
}

template <class Record>
std::optional<SyncItem> asItem(std::optional<Record> record) {
    if (!record) return std::nullopt;
    return SyncItem{*std::move(record)};
}

// The one integer of a statement that always has a row; NULL counts as 0.
std::int64_t singleInteger(SQLiteStatement statement) {
    return statement.step() ? statement.integer(0) : 0;
}

SQLiteStatement selectBrains(SQLiteDatabase& database) {
    return {database, "SELECT " VORLINDEN_BRAIN_COLUMNS " FROM brains ORDER BY slug, brain_id"};
}

// What lies under a path sorts between path + "/" and path + "0", the character right behind "/".
std::string lowerBound(std::string_view path) {
    return std::string(path) + "/";
}
std::string upperBound(std::string_view path) {
    return std::string(path) + "0";
}

SQLiteStatement selectDescendants(SQLiteDatabase& database, const UUID& brainId, std::string_view path) {
    return {database,
            "SELECT " VORLINDEN_NODE_COLUMNS
            " FROM nodes\n"
            "WHERE brain_id = ? AND path > ? AND path < ?\n"
            "ORDER BY path",
            {brainId.upperText(), lowerBound(path), upperBound(path)}};
}

SQLiteStatement selectTopLevel(SQLiteDatabase& database, const UUID& brainId) {
    return {database,
            "SELECT " VORLINDEN_NODE_COLUMNS
            " FROM nodes\n"
            "WHERE brain_id = ? AND instr(path, '/') = 0\n"
            "ORDER BY path",
            {brainId.upperText()}};
}

SQLiteStatement selectChildren(SQLiteDatabase& database, const UUID& brainId, std::string_view parentPath) {
    if (parentPath.empty()) return selectTopLevel(database, brainId);
    const std::string prefix = lowerBound(parentPath);
    return {database,
            "SELECT " VORLINDEN_NODE_COLUMNS
            " FROM nodes\n"
            "WHERE brain_id = ? AND path > ? AND path < ?\n"
            "  AND instr(substr(path, length(?) + 1), '/') = 0\n"
            "ORDER BY path",
            {brainId.upperText(), prefix, upperBound(parentPath), prefix}};
}

}  // namespace

std::vector<BrainRecord> MetadataStore::brains() {
    std::lock_guard hold(lock_);
    return allRows<BrainRecord>(selectBrains(database_));
}

std::optional<BrainRecord> MetadataStore::brain(const UUID& id) {
    std::lock_guard hold(lock_);
    return firstRow<BrainRecord>(
        {database_, "SELECT " VORLINDEN_BRAIN_COLUMNS " FROM brains WHERE brain_id = ?", {id.upperText()}});
}

std::optional<std::string> MetadataStore::cursor(const UUID& brainId) {
    std::lock_guard hold(lock_);
    SQLiteStatement statement(database_, "SELECT cursor FROM brains WHERE brain_id = ?",
                              {brainId.upperText()});
    return statement.step() ? statement.optionalText(0) : std::nullopt;
}

std::optional<NodeRecord> MetadataStore::nodeById(const UUID& brainId, std::string_view nodeId) {
    std::lock_guard hold(lock_);
    return firstRow<NodeRecord>({database_,
                                 "SELECT " VORLINDEN_NODE_COLUMNS
                                 " FROM nodes WHERE brain_id = ? AND node_id = ?",
                                 {brainId.upperText(), nodeId}});
}

std::optional<NodeRecord> MetadataStore::nodeByPath(const UUID& brainId, std::string_view path) {
    std::lock_guard hold(lock_);
    return firstRow<NodeRecord>({database_,
                                 "SELECT " VORLINDEN_NODE_COLUMNS
                                 " FROM nodes WHERE brain_id = ? AND path = ?",
                                 {brainId.upperText(), path}});
}

std::vector<NodeRecord> MetadataStore::allNodes(const UUID& brainId) {
    std::lock_guard hold(lock_);
    return allRows<NodeRecord>({database_,
                                "SELECT " VORLINDEN_NODE_COLUMNS
                                " FROM nodes WHERE brain_id = ? ORDER BY path",
                                {brainId.upperText()}});
}

std::vector<NodeRecord> MetadataStore::children(const UUID& brainId, std::string_view parentPath) {
    std::lock_guard hold(lock_);
    return allRows<NodeRecord>(selectChildren(database_, brainId, parentPath));
}

std::vector<NodeRecord> MetadataStore::descendants(const UUID& brainId, std::string_view path) {
    std::lock_guard hold(lock_);
    if (path.empty()) return allNodes(brainId);
    return allRows<NodeRecord>(selectDescendants(database_, brainId, path));
}

std::vector<NodeRecord> MetadataStore::subtree(const UUID& brainId, std::string_view path) {
    std::lock_guard hold(lock_);
    auto node = nodeByPath(brainId, path);
    auto nodes = descendants(brainId, path);
    if (node) nodes.insert(nodes.begin(), *std::move(node));
    return nodes;
}

std::vector<SyncItem> MetadataStore::enumerate(const SyncItemIdentifier& parent) {
    std::lock_guard hold(lock_);
    struct Children {
        MetadataStore& store;

        std::vector<SyncItem> under(const UUID& brainId, std::string_view path) const {
            return allItems<NodeRecord>(selectChildren(store.database_, brainId, path));
        }
        std::vector<SyncItem> operator()(const SyncItemIdentifier::Root&) const {
            return allItems<BrainRecord>(selectBrains(store.database_));
        }
        std::vector<SyncItem> operator()(const SyncItemIdentifier::Brain& brain) const {
            return under(brain.brainId, "");
        }
        std::vector<SyncItem> operator()(const SyncItemIdentifier::Node& id) const {
            const auto node = store.nodeById(id.brainId, id.nodeId);
            if (!node || !node->isDirectory) return {};
            return under(id.brainId, node->path);
        }
    };
    return std::visit(Children{*this}, parent.value);
}

std::optional<SyncItem> MetadataStore::record(const SyncItemIdentifier& identifier) {
    std::lock_guard hold(lock_);
    struct Lookup {
        MetadataStore& store;

        std::optional<SyncItem> operator()(const SyncItemIdentifier::Root&) const { return std::nullopt; }
        std::optional<SyncItem> operator()(const SyncItemIdentifier::Brain& id) const {
            return asItem(store.brain(id.brainId));
        }
        std::optional<SyncItem> operator()(const SyncItemIdentifier::Node& id) const {
            return asItem(store.nodeById(id.brainId, id.nodeId));
        }
    };
    return std::visit(Lookup{*this}, identifier.value);
}

SyncItemIdentifier MetadataStore::parentIdentifier(const NodeRecord& node) {
    std::lock_guard hold(lock_);
    const std::string parentPath = node.parentPath();
    const auto parent = parentPath.empty() ? std::nullopt : nodeByPath(node.brainId, parentPath);
    return parent ? parent->identifier() : SyncItemIdentifier::brain(node.brainId);
}

std::int64_t MetadataStore::currentAnchor() {
    std::lock_guard hold(lock_);
    return singleInteger({database_, "SELECT MAX(anchor) FROM changes_log"});
}

std::vector<PendingChange> MetadataStore::pendingChanges(std::optional<UUID> brainId) {
    std::lock_guard hold(lock_);
    if (!brainId) {
        return allRows<PendingChange>(
            {database_, "SELECT " VORLINDEN_PENDING_COLUMNS " FROM pending_changes ORDER BY id ASC"});
    }
    return allRows<PendingChange>({database_,
                                   "SELECT " VORLINDEN_PENDING_COLUMNS
                                   " FROM pending_changes WHERE brain_id = ? ORDER BY id ASC",
                                   {brainId->upperText()}});
}

std::optional<PendingChange> MetadataStore::pendingChange(std::int64_t id) {
    std::lock_guard hold(lock_);
    return firstRow<PendingChange>(
        {database_, "SELECT " VORLINDEN_PENDING_COLUMNS "\nFROM pending_changes WHERE id = ?", {id}});
}

std::int64_t MetadataStore::uploadErrorCount(const UUID& brainId) {
    std::lock_guard hold(lock_);
    return singleInteger({database_,
                          "SELECT COUNT(*) FROM nodes WHERE brain_id = ? AND upload_error IS NOT NULL",
                          {brainId.upperText()}});
}

std::int64_t MetadataStore::ownWriteCount(const UUID& brainId, std::string_view path) {
    std::lock_guard hold(lock_);
    return singleInteger({database_,
                          "SELECT COUNT(*) FROM own_writes WHERE brain_id = ? AND path = ?",
                          {brainId.upperText(), path}});
}

std::optional<std::string> MetadataStore::meta(std::string_view key) {
    std::lock_guard hold(lock_);
    SQLiteStatement statement(database_, "SELECT value FROM meta WHERE key = ?", {key});
    if (!statement.step()) return std::nullopt;
    return std::string(statement.text(0));
}

}  // namespace vorlinden
