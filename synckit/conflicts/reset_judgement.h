// Which waiting local changes still stand against a snapshot. Pure: decided from what stood in catalogue and
// journal when the reset began.
#pragma once

#include <map>
#include <string_view>
#include <vector>

#include "synckit/catalogue/records.h"
#include "synckit/server/wire_model.h"

namespace vorlinden {

enum class ResetVerdict {
    stays,    // the server still has what the change was made on
    dropped,  // overtaken, and nothing is lost with it
    copied,   // overtaken, and its bytes become a conflict copy
};

// A value that borrows rows and snapshot, which must outlive it.
class ResetJudgement {
 public:
    // `rows`: all rows of the brain, by path.
    ResetJudgement(const std::vector<NodeRecord>& rows, const std::vector<SnapshotNode>& snapshot);

    // The row that a change was made on: at its source, if it has one. Null if there is none.
    const NodeRecord* recordOf(const PendingChange& change) const;
    ResetVerdict judge(const PendingChange& change) const;
    // Whether the snapshot has a node at `path` or below it.
    bool claims(std::string_view path) const;

    // Without junk names, by path; of two nodes of one path the later.
    const std::map<std::string_view, const SnapshotNode*>& incoming() const { return incoming_; }

 private:
    const SnapshotNode* nodeAt(std::string_view path) const;
    const NodeRecord* rowAt(std::string_view path) const;
    bool contentStands(const PendingChange& change) const;
    bool sourceUnchanged(std::string_view path, const NodeRecord* record) const;
    bool folderUnchanged(std::string_view path) const;

    const std::vector<NodeRecord>& rows_;
    std::map<std::string_view, const SnapshotNode*> incoming_;
};

}  // namespace vorlinden
