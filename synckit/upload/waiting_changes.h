// Which waiting changes must not overtake each other on their way to the server.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "synckit/catalogue/records.h"

namespace vorlinden {

// The changes of a drain that still wait. A value; paths are compared as bytes.
class WaitingChanges {
 public:
    void add(const PendingChange& change);
    // Whether one of them is about the same item of the brain, or has a path at, above or below one of the
    // change's own. Such a change sent first would be undone, or its bytes overwritten by older ones, once
    // the waiting one gets through.
    bool holdBack(const PendingChange& change) const;

 private:
    struct OfBrain {
        std::unordered_set<std::string> nodeIds;
        std::set<std::string, std::less<>> paths;
        bool meets(std::string_view path) const;
    };
    std::unordered_map<UUID, OfBrain> brains_;
};

}  // namespace vorlinden
