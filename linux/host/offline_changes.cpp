#include "linux/host/offline_changes.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "linux/host/failures.h"
#include "synckit/conflicts/conflict_spool.h"
#include "synckit/upload/local_mutations.h"
#include "synckit/upload/upload_planner.h"

namespace vorlinden::host::OfflineChanges {
namespace {

std::string lastName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

NodeRecord existing(const Workspace& workspace, const TreePath& place) {
    auto node = workspace.store->nodeByPath(place.brain.brainId, place.path);
    if (!node) throw NoSuchPlace("There is no “" + place.text() + "”.");
    return *std::move(node);
}

struct Parent {
    SyncItemIdentifier identifier;
    std::optional<std::string> path;  // absent for the brain itself
};

Parent parentOf(const Workspace& workspace, const TreePath& place) {
    const auto slash = place.path.rfind('/');
    if (slash == std::string::npos) return {SyncItemIdentifier::brain(place.brain.brainId), std::nullopt};
    const TreePath folder{place.brain, place.path.substr(0, slash)};
    const auto node = existing(workspace, folder);
    if (!node.isDirectory) throw ChangeRefused("“" + folder.text() + "” is not a folder.");
    return {node.identifier(), node.path};
}

void requireSendable(const Data& content) {
    const auto plan = UploadPlanner::planContentUpload(content);
    if (const auto* tooLarge = std::get_if<ContentUploadPlan::TooLarge>(&plan.value)) {
        throw ChangeRefused(UploadPlanError::tooLarge(tooLarge->size).errorDescription());
    }
}

std::int64_t journalContent(const Workspace& workspace, const TreePath& place,
                            const std::optional<std::string>& nodeId, bool isNew, const Data& content) {
    const auto spool = ConflictSpool::inAppGroup(workspace.system);
    return workspace.store->inTransaction([&] {
        const auto row = LocalMutations::journalUpsert(*workspace.store, place.brain.brainId, place.path,
                                                       nodeId, isNew, workspace.system.clock->now());
        spool.writeNewEdit(content, row);
        return row;
    });
}

bool waits(const Workspace& workspace, const NodeRecord& node) {
    const auto rows = workspace.store->pendingChanges(node.brainId);
    return std::any_of(rows.begin(), rows.end(), [&](const auto& row) { return row.nodeId == node.nodeId; });
}

void requireOnServer(const NodeRecord& node, const TreePath& place) {
    if (!node.localOnly) return;
    throw ChangeRefused("“" + place.text() +
                        "” is only on this machine, so the server would not be told of it.");
}

// What a move comes to, beside the one case that is journalled.
struct Unsent {
    MovePlan::Move operator()(const MovePlan::Move& plan) const { return plan; }
    MovePlan::Move operator()(const MovePlan::LocalOnly&) const {
        throw ChangeRefused("That move stays on this machine, so the server would not be told of it.");
    }
    MovePlan::Move operator()(const MovePlan::Rejected& plan) const {
        throw ChangeRefused(plan.error.errorDescription());
    }
    MovePlan::Move operator()(const MovePlan::NoChange&) const {
        throw ChangeRefused("It has that name already.");
    }
    MovePlan::Move operator()(const MovePlan::CrossBrainUnsupported&) const {
        throw ChangeRefused(std::string(UploadPlanner::crossBrainMessage));
    }
};

}  // namespace

std::int64_t create(const Workspace& workspace, const TreePath& place, const Data& content) {
    if (workspace.store->nodeByPath(place.brain.brainId, place.path)) {
        throw ChangeRefused("“" + place.text() + "” exists already.");
    }
    const auto parent = parentOf(workspace, place);
    const auto plan =
        UploadPlanner::planCreate(parent.identifier, parent.path, lastName(place.path), false, std::nullopt);
    if (const auto* rejected = std::get_if<CreatePlan::Rejected>(&plan.value)) {
        throw ChangeRefused(rejected->error.errorDescription());
    }
    if (!std::holds_alternative<CreatePlan::Upload>(plan.value)) {
        throw ChangeRefused("Files of this name stay on the machine where they were made.");
    }
    requireSendable(content);
    return journalContent(workspace, place, std::nullopt, true, content);
}

std::int64_t edit(const Workspace& workspace, const TreePath& place, const Data& content) {
    const auto node = existing(workspace, place);
    if (node.isDirectory) throw ChangeRefused("“" + place.text() + "” is a folder.");
    if (!waits(workspace, node)) requireOnServer(node, place);
    requireSendable(content);
    return journalContent(workspace, place, node.nodeId, false, content);
}

std::int64_t move(const Workspace& workspace, const TreePath& from, const TreePath& to) {
    const auto node = existing(workspace, from);
    const auto parent = parentOf(workspace, to);
    const auto plan =
        UploadPlanner::planMove(node, lastName(to.path), parent.identifier, parent.path, std::nullopt);
    const auto sent = std::visit(Unsent{}, plan.value);
    return LocalMutations::journalMove(*workspace.store, sent.brainId, node.nodeId, sent.fromPath,
                                       sent.toPath, workspace.system.clock->now());
}

std::int64_t remove(const Workspace& workspace, const TreePath& place) {
    const auto node = existing(workspace, place);
    requireOnServer(node, place);
    return LocalMutations::journalDelete(*workspace.store, place.brain.brainId, node.nodeId, place.path,
                                         workspace.system.clock->now());
}

}  // namespace vorlinden::host::OfflineChanges
