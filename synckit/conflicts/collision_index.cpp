#include "synckit/conflicts/collision_index.h"

#include <algorithm>

#include "synckit/conflicts/op_reach.h"

namespace vorlinden {

CollisionIndex::CollisionIndex(const std::vector<PendingChange>& journal) : journal_(journal) {
    for (std::size_t i = 0; i < journal.size(); ++i) {
        paths_.emplace_back(journal[i].path, i);
        if (journal[i].fromPath) paths_.emplace_back(*journal[i].fromPath, i);
    }
    std::ranges::sort(paths_);
}

std::vector<std::size_t> CollisionIndex::collisions(const Op& op) const {
    std::vector<std::size_t> found;
    if (paths_.empty()) return found;
    const auto reach = OpReach::of(op);
    collect(reach.path, reach.below, found);
    if (reach.newPath) collect(*reach.newPath, reach.below, found);
    std::erase_if(found, [this](std::size_t i) {
        const auto& base = journal_[i].baseCursor;
        return base && seen_.contains(*base);
    });
    std::ranges::sort(found);
    found.erase(std::ranges::unique(found).begin(), found.end());
    return found;
}

void CollisionIndex::collect(std::string_view remotePath, bool reachesBelow,
                             std::vector<std::size_t>& found) const {
    auto at = std::ranges::lower_bound(paths_, remotePath, {}, &LocalPath::first);
    for (; at != paths_.end() && at->first == remotePath; ++at)
        found.push_back(at->second);
    if (!reachesBelow) return;
    const auto below = std::string(remotePath) + "/";
    at = std::ranges::lower_bound(paths_, below, {}, &LocalPath::first);
    for (; at != paths_.end() && at->first.starts_with(below); ++at)
        found.push_back(at->second);
}

}  // namespace vorlinden
