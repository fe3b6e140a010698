// Local changes put into the journal without sending them: what an offline write leaves behind.
#pragma once

#include <cstdint>
#include <string>

#include "linux/host/tree_path.h"
#include "linux/host/workspace.h"
#include "synckit/types.h"

// The caller holds the execution lock. A row and its bytes are stored in one transaction. Each gives the
// row's id, and throws ChangeRefused, with the reason, for what the file provider wouldn't journal either.
namespace vorlinden::host::OfflineChanges {

std::int64_t create(const Workspace& workspace, const TreePath& place, const Data& content);
std::int64_t edit(const Workspace& workspace, const TreePath& place, const Data& content);
std::int64_t move(const Workspace& workspace, const TreePath& from, const TreePath& to);
std::int64_t remove(const Workspace& workspace, const TreePath& place);

}  // namespace vorlinden::host::OfflineChanges
