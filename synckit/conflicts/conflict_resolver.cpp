#include "synckit/conflicts/conflict_resolver.h"

#include <algorithm>
#include <cstdlib>
#include <set>
#include <utility>

#include "platform/text.h"
#include "synckit/apply/batch_applier.h"
#include "synckit/apply/tree_rules.h"
#include "synckit/conflicts/change_rules.h"
#include "synckit/conflicts/collision_index.h"
#include "synckit/conflicts/conflict_namer.h"
#include "synckit/upload/upload_planner.h"

namespace vorlinden {

namespace {

constexpr std::string_view tooLargeMessage = "File is too large to sync (limit 100 MB)";

struct Wording {
    ConflictEvent::Kind kind;
    std::string_view first;   // before the name of the file that lost
    std::string_view middle;  // between it and the copy's
};

Wording wordingOf(ConflictCopyReason reason) {
    using Kind = ConflictEvent::Kind;
    switch (reason) {
        case ConflictCopyReason::remoteEdit:
            return {Kind::conflictedCopy, "“",
                    "” changed on another device while you were editing it. Your version was saved as “"};
        case ConflictCopyReason::resetConflict:
            return {
                Kind::resetConflict, "“",
                "” changed on the server while this Mac was offline or out of date. Your version was kept "
                "as “"};
        case ConflictCopyReason::readOnly:
            return {Kind::readOnlyBounce, "You don't have write access to “", "”. Your edit was kept as “"};
        case ConflictCopyReason::staleEdit:
            return {Kind::conflictedCopy, "“",
                    "” changed elsewhere after you started editing it. Your version was saved as “"};
    }
    std::abort();  // no other reason exists
}

ConflictEvent copyEvent(ConflictCopyReason reason, const UUID& brainId, const std::string& path,
                        const std::string& copyPath, Timestamp at) {
    const auto wording = wordingOf(reason);
    auto message = std::string(wording.first)
                       .append(lastComponent(path))
                       .append(wording.middle)
                       .append(lastComponent(copyPath))
                       .append("”.");
    return {wording.kind, brainId, path, copyPath, std::move(message), at};
}

// What the copy's row says of its content.
void describeContent(NodeRecord& copy, const ContentUploadPlan& plan) {
    if (const auto* blob = std::get_if<ContentUploadPlan::Blob>(&plan.value)) {
        copy.kind = NodeKind::blob;
        copy.blobHash = blob->sha256;
        copy.blobSize = blob->size;
    } else if (std::holds_alternative<ContentUploadPlan::TooLarge>(plan.value)) {
        copy.uploadError = tooLargeMessage;
    }
}

// Whether the row is the local file of the waiting change, about to be moved with a folder above it: its
// bytes live on in the copy, and nothing would stand behind the row at its new place.
bool isCarriedOff(const NodeRecord& row, const Op& op, const PendingChange& pending) {
    const auto* move = std::get_if<Op::Move>(&op.value);
    return move && row.localOnly && row.nodeId == pending.nodeId && isBelow(row.path, move->path);
}

PendingChange uploadOf(const NodeRecord& copy, const std::optional<std::string>& baseCursor) {
    PendingChange change;
    change.brainId = copy.brainId;
    change.nodeId = copy.nodeId;
    change.changeKind = PendingChangeKind::create;
    change.path = copy.path;
    change.baseCursor = baseCursor;
    change.createdAt = copy.updatedAt;
    return change;
}

}  // namespace

ConflictResolver::ConflictResolver(std::shared_ptr<platform::Random> random,
                                   std::shared_ptr<MetadataStore> store, std::string deviceName,
                                   ConflictSpool spool, Now now, LocalContent localContent)
    : random_(std::move(random)),
      store_(std::move(store)),
      deviceName_(std::move(deviceName)),
      spool_(std::move(spool)),
      now_(std::move(now)),
      localContent_(std::move(localContent)) {}

std::vector<ConflictCopy> ConflictResolver::copies() const {
    std::lock_guard hold(stateLock_);
    return createdCopies_;
}

ConflictHandler ConflictResolver::conflictHandler() {
    return [self = shared_from_this()](const FeedEntry& entry, const Op& op, const PendingChange& pending) {
        return self->handle(entry, op, pending);
    };
}

ConflictResolution ConflictResolver::handle(const FeedEntry&, const Op& op, const PendingChange& pending) {
    if (!pending.id) return ConflictResolution::remoteWins;
    store_->inTransaction([&] {
        // A batch holds the journal as it stood at its start: an earlier op may have settled this row.
        if (!store_->pendingChange(*pending.id)) return;
        if (!carriesContent(pending)) return store_->removePending(*pending.id);
        if (leavesContentAlone(op)) return;
        const auto row = store_->nodeByPath(pending.brainId, pending.path);
        if (!row || !row->isDirectory) {
            const auto bytes = localContent_(pending, row);
            if (!bytes) throw FileError::noSuchFile();
            makeConflictCopy(pending.brainId, pending.path, *bytes, ConflictCopyReason::remoteEdit);
            if (row && isCarriedOff(*row, op, pending)) {
                store_->deleteNode(row->brainId, row->nodeId);
                store_->appendChange(row->identifier(), true);
            }
        }
        store_->removePending(*pending.id);
    });
    return ConflictResolution::remoteWins;
}

std::vector<PendingChange> ConflictResolver::collidingPending(const std::vector<FeedEntry>& entries,
                                                              const std::vector<PendingChange>& pending) {
    CollisionIndex index(pending);
    std::set<std::size_t> places;
    for (const auto& entry : entries) {
        index.beginEntry(entry.cursor);
        for (const auto& op : entry.ops)
            for (const auto place : index.collisions(op))
                places.insert(place);
    }
    std::vector<PendingChange> colliding;
    for (const auto place : places)
        colliding.push_back(pending[place]);
    return colliding;
}

// The spool is written last but for the event: whatever fails before leaves no file behind.
ConflictCopy ConflictResolver::makeConflictCopy(const UUID& brainId, const std::string& path,
                                                const Data& data, ConflictCopyReason reason,
                                                const CanonicalPathSet& reserved) {
    const auto stamp = now_();
    const auto& taken = store_->takenPaths(brainId);
    const auto isTaken = [&](const std::string& candidate) {
        return reserved.contains(candidate) || taken.contains(candidate);
    };
    NodeRecord copy;
    copy.brainId = brainId;
    copy.path = ConflictNamer::conflictCopyPath(path, safeDeviceName(), stamp, isTaken);
    BatchApplier(brainId, *store_, *random_, stamp).ensureAncestorsOfCopy(copy.path);

    const auto plan = UploadPlanner::planContentUpload(data);
    describeContent(copy, plan);
    copy.nodeId = freshLocalId(*random_);
    copy.title = UploadPlanner::defaultTitle(copy.path);
    copy.updatedAt = stamp;
    copy.contentVersion = 1;
    copy.localOnly = true;
    store_->upsert(copy);
    store_->appendChange(copy.identifier(), false);

    std::int64_t journalId = 0;
    if (std::holds_alternative<ContentUploadPlan::TooLarge>(plan.value)) {
        spool_.write(data, ConflictSpool::nodeKey(copy.nodeId));
    } else {
        journalId = store_->enqueue(uploadOf(copy, store_->cursor(brainId)));
        spoolCopy(data, journalId);
    }
    tell(copyEvent(reason, brainId, path, copy.path, stamp));

    ConflictCopy made{brainId, path, copy.path, copy.nodeId, journalId};
    std::lock_guard hold(stateLock_);
    createdCopies_.push_back(made);
    return made;
}

// A pull after a day offline may make a thousand copies: their bytes become durable together, before the
// commit that makes anything refer to them.
void ConflictResolver::spoolCopy(const Data& data, std::int64_t journalId) {
    spool_.stageNewCopy(data, journalId);
    auto keys = unflushed_.lock();
    if (!keys) {
        keys = std::make_shared<std::vector<std::string>>();
        unflushed_ = keys;
        store_->beforeCommit([spool = spool_, keys] { spool.flush(*keys); });
    }
    keys->push_back(ConflictSpool::copyKey(journalId));
}

// As it may stand in a file name: no separators of any system, no blanks at its ends, not empty.
std::string ConflictResolver::safeDeviceName() const {
    auto name = deviceName_;
    std::ranges::replace_if(
        name, [](char c) { return c == '/' || c == ':'; }, '-');
    name = platform::trimmed(name);
    return name.empty() ? "Mac" : name;
}

void ConflictResolver::tell(ConflictEvent event) {
    ConflictEventLog::append({std::move(event)}, *store_);
}

}  // namespace vorlinden
