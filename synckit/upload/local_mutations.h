// How a local change enters the catalogue: first as a row of the journal, then, once its outcome is known, in
// `nodes` and `changes_log`, in one transaction with the removal of that row.
//
// Nothing here judges: the plans have decided what may happen, and paths arrive valid. Synchronous, any
// thread; each operation may stand inside a caller's transaction and throws what the store throws, after
// which nothing of it remains.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/seams.h"
#include "synckit/catalogue/records.h"
#include "synckit/server/wire_model.h"
#include "synckit/types.h"

namespace vorlinden {

class MetadataStore;

namespace LocalMutations {

// Each gives the id of its new journal row, based on the brain's cursor of this moment. They open no
// transaction of their own: a caller that stores bytes with the row wraps both.
std::int64_t journalUpsert(MetadataStore& store, const UUID& brainId, const std::string& path,
                           const std::optional<std::string>& nodeId, bool isNew, Timestamp now);
std::int64_t journalMove(MetadataStore& store, const UUID& brainId, const std::optional<std::string>& nodeId,
                         const std::string& fromPath, const std::string& toPath, Timestamp now);
std::int64_t journalDelete(MetadataStore& store, const UUID& brainId,
                           const std::optional<std::string>& nodeId, const std::string& path, Timestamp now);

// The server holds the content: the file's row as it now stands. A row that was there keeps its id and title.
NodeRecord applyUpload(platform::Random& random, MetadataStore& store, const UUID& brainId,
                       const WriteResult& result, NodeKind kind, const std::optional<std::string>& blobHash,
                       const std::optional<std::int64_t>& blobSize, std::optional<std::int64_t> journalId,
                       Timestamp now);
// A file that stays on this machine, in place of whatever stood at the path.
NodeRecord applyLocalOnly(platform::Random& random, MetadataStore& store, const UUID& brainId,
                          const std::string& path, const std::optional<std::string>& uploadError,
                          Timestamp now);
// A folder at the path; one that is there already stays untouched.
NodeRecord applyLocalDirectory(platform::Random& random, MetadataStore& store, const UUID& brainId,
                               const std::string& path, Timestamp now);
// Both give whether a row changed. The journal row goes in any case.
bool applyMove(platform::Random& random, MetadataStore& store, const UUID& brainId,
               const std::string& fromPath, const std::string& toPath, std::optional<std::int64_t> journalId,
               Timestamp now);
bool applyDelete(platform::Random& random, MetadataStore& store, const UUID& brainId, const std::string& path,
                 std::optional<std::int64_t> journalId, Timestamp now);

// What is shown as the item's upload error; absent clears it. Nothing happens if the node has gone.
void markUploadError(MetadataStore& store, const UUID& brainId, const std::string& nodeId,
                     const std::optional<std::string>& message);

}  // namespace LocalMutations

}  // namespace vorlinden
