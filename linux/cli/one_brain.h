// A person's choice about one file, carried to the server at once.
#pragma once

#include <functional>

#include "linux/cli/machine.h"
#include "linux/cli/program.h"
#include "linux/host/tree_path.h"
#include "linux/host/workspace.h"

namespace vorlinden::cli {

struct Choice {
    host::WorkspaceRef workspace;
    host::TreePath place;
};

// Opens the workspace and finds `text` in the tree. Throws host::NoSuchPlace.
Choice choiceAt(const Machine& machine, const std::string& text);

// Runs `change` under the execution lock and then syncs the brain, and tells the person how that went: `done`
// if nothing of the brain is left to send, else what stands in the way and the exit status for it.
ExitStatus changeAndSync(const Machine& machine, const Choice& choice,
                         const std::function<platform::Task<>()>& change);

}  // namespace vorlinden::cli
