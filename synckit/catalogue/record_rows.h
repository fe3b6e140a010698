// Rows of the catalogue read into records. For the sources of MetadataStore.
//
// Columns stand in the order in which the readers take them. A text column that isn't text reads as "", an
// integer column that isn't an integer as 0, an optional one as absent; only what no record can hold (a kind,
// a UUID, a date) makes the row corrupt.
#pragma once

#include "synckit/catalogue/metadata_store.h"
#include "synckit/catalogue/sqlite_statement.h"

// Macros, so that statements are joined from literals when compiled.
#define VORLINDEN_NODE_COLUMNS                                                               \
    "brain_id, node_id, path, title, is_directory, kind, blob_hash, blob_size, updated_at, " \
    "content_version, local_only, upload_error"
#define VORLINDEN_PENDING_COLUMNS \
    "id, brain_id, node_id, change_kind, path, from_path, base_cursor, created_at"
#define VORLINDEN_BRAIN_COLUMNS "brain_id, slug, name, cursor"

namespace vorlinden {

// Steps through a statement and fills records where they stand: lists of records are long. read() throws
// MetadataStoreError::corruptRow; its record is then of no use.
class RecordReader {
 public:
    explicit RecordReader(SQLiteStatement statement) : row_(std::move(statement)) {}

    bool next() { return row_.step(); }
    void read(BrainRecord& record);
    void read(NodeRecord& record);
    void read(PendingChange& record);

 private:
    UUID brainId(std::string_view text);

    SQLiteStatement row_;
    // Nearly all rows of a list are of one brain: the last text that was parsed, and its value.
    std::string brainText_;
    UUID brainId_;
};

}  // namespace vorlinden
