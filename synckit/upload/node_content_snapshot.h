// Where a node's bytes are to be had, at one moment.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "synckit/catalogue/records.h"
#include "synckit/types.h"

namespace vorlinden {

class ConflictSpool;
class MetadataStore;

// A value. Retained bytes need no download; without them `record.path` is to be downloaded at `cursor`, which
// is absent for a brain that was never pulled. The two never hold together.
struct NodeContentSnapshot {
    NodeRecord record;
    std::optional<Data> retainedBytes;
    std::optional<std::string> cursor;
    bool operator==(const NodeContentSnapshot&) const = default;

    // Absent if there is no such node. Of a local-only node the newest queued bytes count; having none at all
    // is FileError::noSuchFile(), not an empty file. Throws what store and spool throw.
    static std::optional<NodeContentSnapshot> read(const UUID& brainId, std::string_view nodeId,
                                                   MetadataStore& store, const ConflictSpool& spool);
};

}  // namespace vorlinden
