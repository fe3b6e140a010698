// A server that keeps its tree in order, and the feed and snapshots that it sends.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/conflicts/random_world.h"
#include "tests/support/catalogue.h"

namespace vorlinden::tests {

// Every ancestor is a folder, no move goes onto an occupied path or an ancestor. Draws its ops; only inside a
// RapidCheck property.
class ServerTree {
 public:
    // Holds what the rows of a catalogue say that the server has; with `junk`, also makes nodes of names that
    // stay off the catalogue.
    explicit ServerTree(const std::vector<NodeRecord>& rows, bool junk = true);

    // Changes the tree and tells of it.
    Batch anyBatch();
    Snapshot snapshot() const;
    // Whose content the last batch made or changed, by path.
    std::vector<std::string> filesToFetch() const;

 private:
    std::optional<Op> anyOp();
    std::optional<Op> put(const std::string& path);
    std::optional<Op> makeFolder(const std::string& path);
    std::optional<Op> retitle(const std::string& path);
    std::optional<Op> move(const std::string& from, const std::string& to);
    Op remove(const std::string& path);
    bool makeAncestors(const std::string& path);  // false if a file is in the way
    SnapshotNode& add(const std::string& path, bool isDirectory);
    std::string anyNode() const;

    std::map<std::string, SnapshotNode> nodes_;
    std::set<std::string> edited_;
    const bool junk_;
    int made_ = 0;
    Timestamp now_ = instant(0);  // of the entry being made
};

}  // namespace vorlinden::tests
