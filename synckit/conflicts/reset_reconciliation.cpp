// A reset with local changes about: each is judged against the snapshot before the tree is replaced.
#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "synckit/apply/batch_applier.h"
#include "synckit/apply/tree_rules.h"
#include "synckit/conflicts/change_rules.h"
#include "synckit/conflicts/conflict_namer.h"
#include "synckit/conflicts/conflict_resolver.h"
#include "synckit/conflicts/reset_judgement.h"

namespace vorlinden {

// One call of applyReset(), inside its transaction.
class ConflictResolver::Reset {
 public:
    Reset(ConflictResolver& resolver, const std::vector<SnapshotNode>& snapshot, const UUID& brainId,
          const std::optional<std::string>& responseCursor)
        : resolver_(resolver),
          store_(*resolver.store_),
          snapshot_(snapshot),
          brainId_(brainId),
          responseCursor_(responseCursor),
          pending_(store_.pendingChanges(brainId)),
          rows_(store_.allNodes(brainId)),
          judgement_(rows_, snapshot) {}

    ResetReconciliation run() {
        captureBytes();
        for (const auto& change : pending_)
            if (change.id) settle(change);
        clearRowsWithoutChange();
        makeRoom();
        result_.plan = ResetPlanner::applySnapshot(snapshot_, brainId_, responseCursor_, store_);
        restoreFolders();
        return std::move(result_);
    }

 private:
    // Before anything is written: a reset that would lose an edit's bytes waits until they can be had. What
    // the spool holds is read to see that it can be, and left there: a journal may hold more than memory
    // does.
    void captureBytes() {
        for (const auto& change : pending_) {
            if (!change.id || !carriesContent(change) || resolver_.spool_.pendingBytes(*change.id)) continue;
            const auto* record = judgement_.recordOf(change);
            auto bytes = resolver_.localContent_(change, record ? std::optional(*record) : std::nullopt);
            if (!bytes) throw FileError::noSuchFile();
            foundElsewhere_.emplace(*change.id, *std::move(bytes));
        }
    }

    Data bytesOf(std::int64_t journalId) const {
        if (const auto found = foundElsewhere_.find(journalId); found != foundElsewhere_.end())
            return found->second;
        auto bytes = resolver_.spool_.pendingBytes(journalId);
        if (!bytes) throw FileError::noSuchFile();
        return *std::move(bytes);
    }

    void settle(const PendingChange& change) {
        switch (judgement_.judge(change)) {
            case ResetVerdict::stays: {
                store_.rebasePending(*change.id, responseCursor_);
                auto requeued = change;
                requeued.baseCursor = responseCursor_;
                result_.requeued.push_back(std::move(requeued));
                return;
            }
            case ResetVerdict::dropped:
                store_.removePending(*change.id);
                result_.dropped.push_back(change);
                return;
            case ResetVerdict::copied:
                auto copy = resolver_.makeConflictCopy(brainId_, change.path, bytesOf(*change.id),
                                                       ConflictCopyReason::resetConflict, reserved());
                reserved().insert(copy.copyPath);
                result_.copies.push_back(std::move(copy));
                store_.removePending(*change.id);
                return;
        }
    }

    // A row that existed only for a change that has gone; its bytes live on in the copy.
    void clearRowsWithoutChange() {
        for (const auto& row : rows_) {
            if (!row.localOnly || !isOwned(row) || isRequeued(row)) continue;
            store_.deleteNode(brainId_, row.nodeId);
            store_.appendChange(row.identifier(), true);
        }
    }

    // A file that exists only here, no change waiting, gives way to a node of the snapshot.
    void makeRoom() {
        for (auto row : rows_) {
            if (!row.localOnly || isOwned(row) || !judgement_.claims(row.path)) continue;
            const auto isTaken = [this](const std::string& path) { return reserved().contains(path); };
            row.path = ConflictNamer::conflictCopyPath(row.path, resolver_.safeDeviceName(), resolver_.now_(),
                                                       isTaken);
            store_.upsert(row);
            store_.appendChange(row.identifier(), false);
            reserved().insert(row.path);
        }
    }

    // The snapshot took those away that served only the copies. A file of the snapshot's may stand in the
    // place of one: the server's state wins, and the copy stays below it as an orphan.
    void restoreFolders() {
        BatchApplier tree(brainId_, store_, *resolver_.random_, resolver_.now_());
        for (const auto& copy : result_.copies)
            tree.ensureAncestorsOfCopy(copy.copyPath);
    }

    // Whether a row belongs to a change with content that waited when the reset began.
    bool isOwned(const NodeRecord& row) {
        if (!ownedIds_) {
            ownedIds_.emplace();
            for (const auto& change : pending_)
                if (carriesContent(change) && change.nodeId) ownedIds_->insert(*change.nodeId);
        }
        return ownedIds_->contains(row.nodeId);
    }

    bool isRequeued(const NodeRecord& row) const {
        return std::ranges::any_of(result_.requeued, [&](const PendingChange& change) {
            return change.nodeId == row.nodeId || change.path == row.path;
        });
    }

    // Every path that stands, waits or comes, ancestors included. Made when the first name is needed: most
    // resets need none.
    CanonicalPathSet& reserved() {
        if (!reserved_) {
            reserved_.emplace();
            for (const auto& row : rows_)
                reserveWithAncestors(row.path);
            for (const auto& [path, node] : judgement_.incoming())
                reserveWithAncestors(path);
            for (const auto& change : pending_) {
                reserved_->insert(change.path);
                if (change.fromPath) reserved_->insert(*change.fromPath);
            }
        }
        return *reserved_;
    }
    void reserveWithAncestors(std::string_view path) {
        reserved_->insert(path);
        for (const auto ancestor : properAncestors(path))
            reserved_->insert(ancestor);
    }

    ConflictResolver& resolver_;
    MetadataStore& store_;
    const std::vector<SnapshotNode>& snapshot_;
    const UUID& brainId_;
    const std::optional<std::string>& responseCursor_;
    const std::vector<PendingChange> pending_;
    const std::vector<NodeRecord> rows_;  // by path
    const ResetJudgement judgement_;
    std::unordered_map<std::int64_t, Data>
        foundElsewhere_;  // bytes that the spool doesn't hold, by journal id
    std::optional<std::unordered_set<std::string>> ownedIds_;
    std::optional<CanonicalPathSet> reserved_;
    ResetReconciliation result_;
};

ResetReconciliation ConflictResolver::applyReset(const std::vector<SnapshotNode>& snapshot,
                                                 const UUID& brainId,
                                                 const std::optional<std::string>& responseCursor) {
    return store_->inTransaction([&] { return Reset(*this, snapshot, brainId, responseCursor).run(); });
}

}  // namespace vorlinden
