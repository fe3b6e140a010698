// New content of a file that is there.
#pragma once

#include <cstdint>
#include <optional>

#include "fileprovider/handed_content.h"
#include "fileprovider/write_frame.h"

namespace vorlinden::fileprovider {

struct ContentEdit {
    NodeRecord record;          // as it stands now
    bool fetchContent = false;  // the edited bytes went into a conflict copy
};

// The node's record now, or what stands at `path` in its place. Throws noSuchItem.
NodeRecord reloadNode(MetadataStore& store, const NodeRecord& record, const std::string& path);

// Takes the edit to the server unless the file is local-only (its bytes then stay here), too large (then only
// the error is kept) or newer than `baseVersion`, the content version that the user began with: a stale edit
// becomes a conflict copy. An absent base counts as current. Throws what passes; row and bytes then wait.
Task<ContentEdit> applyContentEdit(CorePtr core, const WriteContext& context, const NodeRecord& record,
                                   std::optional<std::int64_t> baseVersion, const HandedContent& content);

}  // namespace vorlinden::fileprovider
