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

UUID RecordReader::brainId(std::string_view text) {
    if (brainText_.empty() || text != brainText_) {
        brainId_ = valid(UUID::parse(text), "UUID", text);
        brainText_ = text;
    }
    return brainId_;
}

void RecordReader::read(BrainRecord& record) {
    record.brainId = brainId(row_.text(0));
    record.slug = row_.text(1);
    record.name = row_.text(2);
    record.cursor = row_.optionalText(3);
}

// What can be corrupt is read first: the first fault in this order is the one reported.
void RecordReader::read(NodeRecord& record) {
    record.kind = nodeKind(row_.text(5));
    record.brainId = brainId(row_.text(0));
    record.updatedAt = date(row_.text(8));
    record.nodeId = row_.text(1);
    record.path = row_.text(2);
    record.title = row_.text(3);
    record.isDirectory = row_.integer(4) != 0;
    record.blobHash = row_.optionalText(6);
    record.blobSize = row_.optionalInteger(7);
    record.contentVersion = row_.integer(9);
    record.localOnly = row_.integer(10) != 0;
    record.uploadError = row_.optionalText(11);
}

void RecordReader::read(PendingChange& record) {
    record.changeKind = changeKind(row_.text(3));
    record.brainId = brainId(row_.text(1));
    record.createdAt = date(row_.text(7));
    record.id = row_.optionalInteger(0);
    record.nodeId = row_.optionalText(2);
    record.path = row_.text(4);
    record.fromPath = row_.optionalText(5);
    record.baseCursor = row_.optionalText(6);
}

}  // namespace vorlinden
