#include "synckit/upload/waiting_changes.h"

#include <algorithm>

#include "synckit/apply/tree_rules.h"

namespace vorlinden {

void WaitingChanges::add(const PendingChange& change) {
    auto& brain = brains_[change.brainId];
    if (change.nodeId) brain.nodeIds.insert(*change.nodeId);
    brain.paths.insert(change.path);
    if (change.fromPath) brain.paths.insert(*change.fromPath);
}

bool WaitingChanges::holdBack(const PendingChange& change) const {
    const auto found = brains_.find(change.brainId);
    if (found == brains_.end()) return false;
    const auto& brain = found->second;
    return (change.nodeId && brain.nodeIds.contains(*change.nodeId)) || brain.meets(change.path) ||
           (change.fromPath && brain.meets(*change.fromPath));
}

bool WaitingChanges::OfBrain::meets(std::string_view path) const {
    if (paths.contains(path)) return true;
    const auto above = properAncestors(path);
    if (std::ranges::any_of(above, [&](auto folder) { return paths.contains(folder); })) return true;
    const auto below = paths.lower_bound(std::string(path) + "/");
    return below != paths.end() && isBelow(*below, path);
}

}  // namespace vorlinden
