// Finds the waiting local changes that a remote op collides with, without asking each of them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "synckit/catalogue/records.h"
#include "synckit/server/wire_model.h"

namespace vorlinden {

// Gives exactly what ConflictDetector::remoteChangeCollides() says of each change in turn, in journal order.
// A value over a journal that must outlive it and stay unchanged; it remembers which feed entries went by,
// since a change collides only with entries that its base does not include.
class CollisionIndex {
 public:
    explicit CollisionIndex(const std::vector<PendingChange>& journal);

    // A feed entry begins: changes based on its cursor know it and all that follow.
    void beginEntry(const std::string& cursor) { seen_.insert(cursor); }
    // Places in the journal, ascending, each once.
    std::vector<std::size_t> collisions(const Op& op) const;

 private:
    void collect(std::string_view remotePath, bool reachesBelow, std::vector<std::size_t>& found) const;

    using LocalPath = std::pair<std::string_view, std::size_t>;  // and the change it belongs to

    const std::vector<PendingChange>& journal_;
    std::vector<LocalPath> paths_;  // sorted
    std::unordered_set<std::string> seen_;
};

}  // namespace vorlinden
