#include "synckit/apply/reconciler.h"

#include "synckit/apply/batch_applier.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/conflicts/collision_index.h"
#include "synckit/upload/ignore_list.h"

namespace vorlinden::Reconciler {

namespace {

// Applies single ops to the tree, as the server applied them to its own.
class OpApplier {
 public:
    OpApplier(const UUID& brainId, MetadataStore& store, BatchApplier& tree)
        : brainId_(brainId), store_(store), tree_(tree) {}

    void operator()(const Op::Create& op) {
        if (IgnoreList::isJunk(op.path)) return;
        const auto kind = op.nodeKind.value_or(NodeKind::text);
        const auto existing = store_.nodeByPath(brainId_, op.path);
        if (!existing) return tree_.insertNode(op.path, op.title, op.isDirectory, kind);
        if (op.isDirectory && existing->isDirectory) return adoptTitle(*existing, op.title);

        const bool sameFile = !op.isDirectory && !existing->isDirectory && existing->kind == kind &&
                              existing->title == op.title;
        if (sameFile) return tree_.applyUpdate(op.path, op.title, true, op.nodeKind);
        tree_.deleteSubtree(op.path);
        tree_.insertNode(op.path, op.title, op.isDirectory, kind);
    }

    void operator()(const Op::Update& op) {
        if (IgnoreList::isJunk(op.path)) return;
        tree_.applyUpdate(op.path, op.title, op.bodyChanged, op.nodeKind);
    }

    void operator()(const Op::Move& op) {
        if (IgnoreList::isJunk(op.path)) return;
        if (IgnoreList::isJunk(op.newPath)) {
            tree_.deleteSubtree(op.path);
        } else {
            tree_.applyMove(op.path, op.newPath);
        }
    }

    void operator()(const Op::Mkdir& op) {
        if (IgnoreList::isJunk(op.path)) return;
        const auto existing = store_.nodeByPath(brainId_, op.path);
        if (existing && existing->isDirectory) return adoptTitle(*existing, op.title);
        if (existing) tree_.deleteSubtree(op.path);
        tree_.insertNode(op.path, op.title, true, NodeKind::text);
    }

    // Also of a junk name: a row of that name may have got in by other means.
    void operator()(const Op::Delete& op) { tree_.deleteSubtree(op.path); }

 private:
    void adoptTitle(const NodeRecord& folder, const std::string& title) {
        if (!title.empty() && title != folder.title) tree_.retitle(folder, title);
    }

    const UUID& brainId_;
    MetadataStore& store_;
    BatchApplier& tree_;
};

// The handler settles every collision of one op, even when one of them has already decided that the op must
// wait.
void settleCollisions(const FeedEntry& entry, const Op& op, const std::vector<PendingChange>& journal,
                      const CollisionIndex& index, const ConflictHandler& handler) {
    bool keepLocal = false;
    for (const auto place : index.collisions(op))
        if (handler(entry, op, journal[place]) == ConflictResolution::keepLocal) keepLocal = true;
    if (keepLocal) throw FileError::noSuchFile();
}

}  // namespace

ReconcileResult applyFeedEntries(platform::Random& random, const std::vector<FeedEntry>& entries,
                                 const UUID& brainId, const std::optional<std::string>& responseCursor,
                                 MetadataStore& store, const ConflictHandler& conflictHandler) {
    return store.inTransaction([&] {
        // Read once: the handler may remove rows meanwhile and copes with being asked for them again.
        const auto journal = store.pendingChanges(brainId);
        CollisionIndex index(journal);
        BatchApplier tree(brainId, store, random, Timestamp{});
        OpApplier apply(brainId, store, tree);
        for (const auto& entry : entries) {
            index.beginEntry(entry.cursor);
            for (const auto& op : entry.ops) {
                settleCollisions(entry, op, journal, index, conflictHandler);
                tree.setEntryDate(entry.at);
                std::visit(apply, op.value);
            }
        }
        auto downloads = tree.makeDownloads(responseCursor);
        store.setCursor(responseCursor, brainId);
        return ReconcileResult{std::move(downloads), tree.changed()};
    });
}

}  // namespace vorlinden::Reconciler
