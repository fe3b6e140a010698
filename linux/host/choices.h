// What a person decides about a file: to try a refused one again, or which side of a conflict to keep.
#pragma once

#include <cstdint>
#include <string>

#include "linux/host/conflict_copies.h"
#include "linux/host/tree_path.h"
#include "linux/host/workspace.h"
#include "synckit/types.h"

// Each change is one transaction of the catalogue with its bytes in the spool, so that it is made whole or
// not at all; the next round of the brain carries it to the server. Throws NoSuchPlace and ChangeRefused with
// the reason, and what store, spool and server throw.
namespace vorlinden::host::Choices {

// The content of a file: the bytes kept here, or else the server's at the position of the last pull. Needs no
// lock.
Task<Data> content(WorkspaceRef workspace, TreePath place);

// The conflict copy at a path.
ConflictCopyListing conflictCopy(const Workspace& workspace, const TreePath& place);

// The rest changes the catalogue: the caller holds the execution lock.

// Puts a file that the server refused, and that is only here now, into the journal again.
void retry(const Workspace& workspace, const TreePath& place);
// The copy's bytes become the content of the file that it came from, which is made again if it is gone, and
// the copy goes.
Task<> keepMine(WorkspaceRef workspace, TreePath copy);
// The copy goes.
void keepTheirs(const Workspace& workspace, const TreePath& copy);

}  // namespace vorlinden::host::Choices
