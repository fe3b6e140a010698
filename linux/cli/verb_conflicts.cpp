// vorlinden conflicts [--json]
#include <iostream>
#include <memory>

#include "linux/cli/machine.h"
#include "linux/cli/verbs.h"
#include "linux/host/conflict_copies.h"
#include "linux/host/workspace.h"

namespace vorlinden::cli {
namespace {

int list(bool json) {
    const Machine machine;
    const auto workspace = host::Workspace::open(machine.system, machine.folders);
    const host::EventHistory history(machine.system, machine.folders.state);
    const auto copies = host::conflictCopies(*workspace->store, history.events());
    if (json) {
        std::cout << host::conflictCopiesJSON(copies) << "\n";
    } else if (copies.empty()) {
        std::cerr << "There are no conflict copies.\n";
    } else {
        std::cout << host::conflictCopiesText(copies);
    }
    return done;
}

}  // namespace

void addConflicts(Program& program) {
    const auto json = std::make_shared<bool>(false);
    auto& verb = program.addVerb("conflicts", "List the conflict copies, each with the file it came from",
                                 [json] { return list(*json); });
    verb.add_flag("--json", *json, "One line of JSON, for scripts");
    verb.footer("`diff`, `keep-mine` and `keep-theirs COPY` come with writing.");
}

}  // namespace vorlinden::cli
