// Where paths on the command line are looked for.
#pragma once

#include "linux/cli/machine.h"
#include "linux/host/tree_path.h"

namespace vorlinden::cli {

// This process' working folder, and the folder in which the tree is shown now. Throws FileError.
host::TreeSurroundings treeSurroundings(const Machine& machine);

}  // namespace vorlinden::cli
