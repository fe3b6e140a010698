#include "synckit/upload/local_mutations.h"

#include "synckit/apply/batch_applier.h"
#include "synckit/apply/tree_rules.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/upload/ignore_list.h"
#include "synckit/upload/upload_planner.h"

namespace vorlinden::LocalMutations {

namespace {

PendingChange intent(PendingChangeKind kind, MetadataStore& store, const UUID& brainId,
                     const std::optional<std::string>& nodeId, const std::string& path, Timestamp now) {
    PendingChange change;
    change.brainId = brainId;
    change.nodeId = nodeId;
    change.changeKind = kind;
    change.path = path;
    change.baseCursor = store.cursor(brainId);
    change.createdAt = now;
    return change;
}

NodeRecord newFile(const UUID& brainId, std::string nodeId, const std::string& path, Timestamp now) {
    NodeRecord file;
    file.brainId = brainId;
    file.nodeId = std::move(nodeId);
    file.path = path;
    file.title = UploadPlanner::defaultTitle(path);
    file.updatedAt = now;
    file.contentVersion = 1;
    return file;
}

NodeRecord write(const NodeRecord& record, MetadataStore& store) {
    store.upsert(record);
    store.appendChange(record.identifier(), false);
    return record;
}

// The row that an uploaded file goes into: the file that is there with a raised version, or a new one in
// place of a folder or of nothing.
NodeRecord fileForUpload(const NodeRef& uploaded, MetadataStore& store, BatchApplier& tree,
                         const UUID& brainId, Timestamp now) {
    tree.ensureAncestors(uploaded.path);
    auto existing = store.nodeByPath(brainId, uploaded.path);
    if (existing && !existing->isDirectory) {
        existing->contentVersion += 1;
        return *std::move(existing);
    }
    if (existing) tree.deleteSubtree(uploaded.path);
    return newFile(brainId, uploaded.nodeId, uploaded.path, now);
}

}  // namespace

std::int64_t journalUpsert(MetadataStore& store, const UUID& brainId, const std::string& path,
                           const std::optional<std::string>& nodeId, bool isNew, Timestamp now) {
    const auto kind = isNew ? PendingChangeKind::create : PendingChangeKind::update;
    return store.enqueue(intent(kind, store, brainId, nodeId, path, now));
}

std::int64_t journalMove(MetadataStore& store, const UUID& brainId, const std::optional<std::string>& nodeId,
                         const std::string& fromPath, const std::string& toPath, Timestamp now) {
    auto change = intent(PendingChangeKind::move, store, brainId, nodeId, toPath, now);
    change.fromPath = fromPath;
    return store.enqueue(change);
}

std::int64_t journalDelete(MetadataStore& store, const UUID& brainId,
                           const std::optional<std::string>& nodeId, const std::string& path, Timestamp now) {
    return store.enqueue(intent(PendingChangeKind::remove, store, brainId, nodeId, path, now));
}

NodeRecord applyUpload(platform::Random& random, MetadataStore& store, const UUID& brainId,
                       const WriteResult& result, NodeKind kind, const std::optional<std::string>& blobHash,
                       const std::optional<std::int64_t>& blobSize, std::optional<std::int64_t> journalId,
                       Timestamp now) {
    return store.inTransaction([&] {
        BatchApplier tree(brainId, store, random, now);
        auto file = fileForUpload(result.node, store, tree, brainId, now);
        const bool isBlob = kind == NodeKind::blob;
        file.kind = kind;
        file.blobHash = isBlob ? blobHash : std::nullopt;
        file.blobSize = isBlob ? blobSize : std::nullopt;
        file.updatedAt = now;
        file.localOnly = false;
        file.uploadError = std::nullopt;
        write(file, store);
        if (journalId) store.removePending(*journalId);
        return file;
    });
}

NodeRecord applyLocalOnly(platform::Random& random, MetadataStore& store, const UUID& brainId,
                          const std::string& path, const std::optional<std::string>& uploadError,
                          Timestamp now) {
    return store.inTransaction([&] {
        BatchApplier tree(brainId, store, random, now);
        tree.ensureAncestors(path);
        if (store.nodeByPath(brainId, path)) tree.deleteSubtree(path);
        auto file = newFile(brainId, freshLocalId(random), path, now);
        file.localOnly = true;
        file.uploadError = uploadError;
        return write(file, store);
    });
}

NodeRecord applyLocalDirectory(platform::Random& random, MetadataStore& store, const UUID& brainId,
                               const std::string& path, Timestamp now) {
    return store.inTransaction([&] {
        BatchApplier tree(brainId, store, random, now);
        tree.ensureAncestors(path);
        const auto existing = store.nodeByPath(brainId, path);
        if (existing && existing->isDirectory) return *existing;
        if (existing) tree.deleteSubtree(path);
        return write(derivedDirectory(brainId, path, now), store);
    });
}

bool applyMove(platform::Random& random, MetadataStore& store, const UUID& brainId,
               const std::string& fromPath, const std::string& toPath, std::optional<std::int64_t> journalId,
               Timestamp now) {
    return store.inTransaction([&] {
        BatchApplier tree(brainId, store, random, now);
        if (IgnoreList::isJunk(fromPath)) {
            // It has no counterpart on the server, whatever the row says.
        } else if (IgnoreList::isJunk(toPath)) {
            tree.deleteSubtree(fromPath);
        } else {
            tree.applyMove(fromPath, toPath);
        }
        if (journalId) store.removePending(*journalId);
        return tree.changed();
    });
}

bool applyDelete(platform::Random& random, MetadataStore& store, const UUID& brainId, const std::string& path,
                 std::optional<std::int64_t> journalId, Timestamp now) {
    return store.inTransaction([&] {
        BatchApplier tree(brainId, store, random, now);
        tree.deleteSubtree(path);
        if (journalId) store.removePending(*journalId);
        return tree.changed();
    });
}

void markUploadError(MetadataStore& store, const UUID& brainId, const std::string& nodeId,
                     const std::optional<std::string>& message) {
    store.inTransaction([&] {
        auto node = store.nodeById(brainId, nodeId);
        if (!node) return;
        node->uploadError = message;
        write(*node, store);
    });
}

}  // namespace vorlinden::LocalMutations
