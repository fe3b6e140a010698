// Undoing local changes that the server refused, or that were made on something out of date.
#include "synckit/apply/batch_applier.h"
#include "synckit/apply/tree_rules.h"
#include "synckit/conflicts/conflict_resolver.h"
#include "synckit/upload/ignore_list.h"
#include "synckit/upload/local_mutations.h"

namespace vorlinden {

namespace {

std::string noAccessTo(std::string_view path, std::string_view outcome) {
    return std::string("You don't have write access to “")
        .append(lastComponent(path))
        .append("”. ")
        .append(outcome);
}

}  // namespace

BounceResult ConflictResolver::bounceUpsert(const UUID& brainId, const std::string& path,
                                            std::optional<std::int64_t> journalId, const Data& data) {
    return keepAsCopy(brainId, path, journalId, data, ConflictCopyReason::readOnly);
}

BounceResult ConflictResolver::divertStaleEdit(const UUID& brainId, const std::string& path,
                                               std::optional<std::int64_t> journalId, const Data& data) {
    return keepAsCopy(brainId, path, journalId, data, ConflictCopyReason::staleEdit);
}

// The file's version rises although the server's content is what it was: the platform holds the edited bytes
// under the old version and must fetch anew.
BounceResult ConflictResolver::keepAsCopy(const UUID& brainId, const std::string& path,
                                          std::optional<std::int64_t> journalId, const Data& data,
                                          ConflictCopyReason reason) {
    return store_->inTransaction([&] {
        if (journalId) store_->removePending(*journalId);
        auto record = store_->nodeByPath(brainId, path);
        if (record && record->isDirectory) record.reset();
        if (record) {
            record->contentVersion += 1;
            record->uploadError = std::nullopt;
            store_->upsert(*record);
            store_->appendChange(record->identifier(), false);
        }
        auto copy = makeConflictCopy(brainId, path, data, reason);
        return BounceResult{std::move(record), std::move(copy)};
    });
}

BounceResult ConflictResolver::bounceCreate(const UUID& brainId, const std::string& path,
                                            std::optional<std::int64_t> journalId, const Data& data) {
    return store_->inTransaction([&] {
        auto copy = makeConflictCopy(brainId, path, data, ConflictCopyReason::readOnly);
        if (journalId) store_->removePending(*journalId);
        const auto refused = store_->nodeByPath(brainId, path);
        if (refused && refused->localOnly) {
            store_->deleteNode(brainId, refused->nodeId);
            store_->appendChange(refused->identifier(), true);
        }
        return BounceResult{store_->nodeByPath(brainId, path), std::move(copy)};
    });
}

void ConflictResolver::bounceMove(const UUID& brainId, const std::string& fromPath, const std::string& toPath,
                                  std::optional<std::int64_t> journalId) {
    store_->inTransaction([&] {
        if (journalId) store_->removePending(*journalId);
        putBack(brainId, fromPath, toPath);
        announceAgain(brainId, fromPath);
        auto record = store_->nodeByPath(brainId, fromPath);
        if (record && record->uploadError) {
            record->uploadError = std::nullopt;
            store_->upsert(*record);
            store_->appendChange(record->identifier(), false);
        }
        tell({ConflictEvent::Kind::readOnlyBounce, brainId, fromPath, std::nullopt,
              noAccessTo(fromPath, "It was not moved."), now_()});
    });
}

void ConflictResolver::bounceDelete(const UUID& brainId, const std::string& path,
                                    std::optional<std::int64_t> journalId) {
    store_->inTransaction([&] {
        if (journalId) store_->removePending(*journalId);
        announceAgain(brainId, path);
        tell({ConflictEvent::Kind::readOnlyBounce, brainId, path, std::nullopt,
              noAccessTo(path, "It was not deleted."), now_()});
    });
}

void ConflictResolver::copyUploadBounced(const UUID& brainId, const std::string& nodeId,
                                         const std::string& copyPath, std::int64_t journalId) {
    store_->inTransaction([&] {
        const auto bytes = spool_.pendingBytes(journalId);
        if (!bytes) throw FileError::noSuchFile();
        auto record = store_->nodeById(brainId, nodeId);
        if (record) {
            record->localOnly = true;
            record->uploadError = noWriteAccessMessage;
            store_->upsert(*record);
            store_->appendChange(record->identifier(), false);
        } else {
            record = LocalMutations::applyLocalOnly(*random_, *store_, brainId, copyPath,
                                                    std::string(noWriteAccessMessage), now_());
        }
        spool_.write(*bytes, ConflictSpool::nodeKey(record->nodeId));
        store_->removePending(journalId);
        auto message = std::string("You don't have write access to this folder, so “")
                           .append(lastComponent(copyPath))
                           .append("” stays on this Mac only.");
        tell({ConflictEvent::Kind::noWriteAccess, brainId, copyPath, std::nullopt, std::move(message),
              now_()});
    });
}

// Undoes a move that the catalogue already shows. A junk name has no counterpart on the server: nothing came
// from one, and nothing went to one.
void ConflictResolver::putBack(const UUID& brainId, const std::string& fromPath, const std::string& toPath) {
    if (store_->nodeByPath(brainId, fromPath) || !store_->nodeByPath(brainId, toPath)) return;
    if (IgnoreList::isJunk(toPath)) return;
    BatchApplier tree(brainId, *store_, *random_, now_());
    if (IgnoreList::isJunk(fromPath)) {
        tree.deleteSubtree(toPath);
    } else {
        tree.applyMove(toPath, fromPath);
    }
}

// The rows stand as the server has them; the platform, which has moved or deleted its items, looks again.
void ConflictResolver::announceAgain(const UUID& brainId, const std::string& path) {
    for (const auto& node : store_->subtree(brainId, path))
        store_->appendChange(node.identifier(), false);
}

}  // namespace vorlinden
