#include "synckit/conflicts/conflict_detector.h"

#include <string_view>

#include "synckit/conflicts/op_reach.h"

namespace vorlinden::ConflictDetector {

namespace {

bool touches(std::string_view remotePath, bool reachesBelow, std::string_view localPath) {
    if (!localPath.starts_with(remotePath)) return false;
    return localPath.size() == remotePath.size() || (reachesBelow && localPath[remotePath.size()] == '/');
}

}  // namespace

bool remoteChangeCollides(const Op& op, const PendingChange& pending, bool entryFollowsBase) {
    if (!entryFollowsBase) return false;
    const auto reach = OpReach::of(op);
    const auto touchesLocal = [&](std::string_view remotePath) {
        return touches(remotePath, reach.below, pending.path) ||
               (pending.fromPath && touches(remotePath, reach.below, *pending.fromPath));
    };
    return touchesLocal(reach.path) || (reach.newPath && touchesLocal(*reach.newPath));
}

}  // namespace vorlinden::ConflictDetector
