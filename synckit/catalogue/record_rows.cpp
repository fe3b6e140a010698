#include "synckit/catalogue/record_rows.h"

namespace vorlinden {

namespace {

// The parsed value, or the failure that names what stood there.
template <class Value>
Value valid(const std::optional<Value>& parsed, std::string_view what, std::string_view text) {
    if (parsed) return *parsed;
    throw MetadataStoreError::corruptRow(std::string("invalid ").append(what).append(" \"").append(text) +
                                         "\"");
}

UUID uuid(std::string_view text) {
    return valid(UUID::parse(text), "UUID", text);
}

Timestamp date(std::string_view text) {
    return valid(platform::parseTimestamp(text), "date", text);
}

NodeKind nodeKind(std::string_view text) {
    return valid(nodeKindFromRawValue(text), "node kind", text);
}

PendingChangeKind changeKind(std::string_view text) {
    return valid(pendingChangeKindFromRawValue(text), "change kind", text);
}

}  // namespace

BrainRecord readBrain(const SQLiteStatement& row) {
    return {.brainId = uuid(row.text(0)),
            .slug = std::string(row.text(1)),
            .name = std::string(row.text(2)),
            .cursor = row.optionalText(3)};
}

// What can be corrupt is read first: the first fault in this order is the one reported.
NodeRecord readNode(const SQLiteStatement& row) {
    const NodeKind kind = nodeKind(row.text(5));
    const UUID brainId = uuid(row.text(0));
    const Timestamp updatedAt = date(row.text(8));
    return {.brainId = brainId,
            .nodeId = std::string(row.text(1)),
            .path = std::string(row.text(2)),
            .title = std::string(row.text(3)),
            .isDirectory = row.integer(4) != 0,
            .kind = kind,
            .blobHash = row.optionalText(6),
            .blobSize = row.optionalInteger(7),
            .updatedAt = updatedAt,
            .contentVersion = row.integer(9),
            .localOnly = row.integer(10) != 0,
            .uploadError = row.optionalText(11)};
}

PendingChange readPendingChange(const SQLiteStatement& row) {
    const PendingChangeKind kind = changeKind(row.text(3));
    const UUID brainId = uuid(row.text(1));
    const Timestamp createdAt = date(row.text(7));
    return {.id = row.optionalInteger(0),
            .brainId = brainId,
            .nodeId = row.optionalText(2),
            .changeKind = kind,
            .path = std::string(row.text(4)),
            .fromPath = row.optionalText(5),
            .baseCursor = row.optionalText(6),
            .createdAt = createdAt};
}

}  // namespace vorlinden
