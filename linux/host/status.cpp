#include "linux/host/status.h"

#include <algorithm>
#include <map>
#include <set>
#include <variant>

#include "linux/host/failures.h"
#include "linux/host/mark.h"
#include "linux/host/patience.h"
#include "linux/host/workspace.h"
#include "synckit/conflicts/conflict_resolver.h"
#include "synckit/conflicts/conflict_spool.h"
#include "synckit/container/app_group.h"

namespace vorlinden::host {
namespace {

std::vector<BrainSyncStatus> syncStatuses(const Workspace& workspace, const HostState& state) {
    std::set<UUID> syncing;
    std::map<UUID, std::string> errors;
    std::map<UUID, Timestamp> lastSyncAt;
    for (const auto& [brain, record] : state.pulls()) {
        if (Mark::syncs(workspace.folders, brain).isHeld(workspace.system)) syncing.insert(brain);
        if (record.failure) errors[brain] = *record.failure;
        if (record.pulledAt) lastSyncAt[brain] = *record.pulledAt;
    }
    return patiently([&] { return BrainSyncStatus::derive(*workspace.store, syncing, errors, lastSyncAt); });
}

// What the items say themselves, where that is no sentence.
std::string troubleText(const std::string& uploadError) {
    if (uploadError != ConflictResolver::noWriteAccessMessage) return uploadError;
    return "You have no write access to this folder; the file stays on this machine only.";
}

void readBrain(MetadataStore& store, const BrainSyncStatus& sync, Status& status) {
    const auto brain = store.brain(sync.brainId);
    if (!brain) return;  // gone since
    BrainStatus result{.brain = *brain, .sync = sync};
    for (const auto& node : store.allNodes(sync.brainId)) {
        ++(node.isDirectory ? result.folders : result.files);
        if (!node.uploadError) continue;
        status.troubles.push_back({brain->slug + "/" + node.path, troubleText(*node.uploadError)});
    }
    result.waiting = store.pendingChanges(sync.brainId).size();
    status.brains.push_back(std::move(result));
}

std::string describe(const PendingChange& row, const std::string& brain) {
    const auto place = [&](const std::string& path) { return brain + "/" + path; };
    switch (row.changeKind) {
        case PendingChangeKind::create:
            return "the new file " + place(row.path);
        case PendingChangeKind::update:
            return "new content of " + place(row.path);
        case PendingChangeKind::move:
            return "the move of " + place(row.fromPath.value_or("?")) + " to " + place(row.path);
        case PendingChangeKind::remove:
            return "the deletion of " + place(row.path);
        case PendingChangeKind::mkdir:
            return "the new folder " + place(row.path);
    }
    return place(row.path);
}

class Waiting {
 public:
    Waiting(const Workspace& workspace, const HostState& state, const Status& status)
        : workspace_(workspace),
          state_(state),
          status_(status),
          spool_(ConflictSpool::inAppGroup(workspace.system)) {
        for (const auto& brain : status.brains)
            slugs_[brain.brain.brainId] = brain.brain.slug;
    }

    std::vector<WaitingChange> all() const {
        std::vector<WaitingChange> changes;
        for (const auto& row : workspace_.store->pendingChanges(std::nullopt))
            changes.push_back({describe(row, brainName(row.brainId)), row.createdAt, whyItWaits(row)});
        return changes;
    }

 private:
    const PullRecord* record(const UUID& brain) const {
        const auto found = state_.pulls().find(brain);
        return found == state_.pulls().end() ? nullptr : &found->second;
    }
    std::string brainName(const UUID& brain) const {
        if (const auto slug = slugs_.find(brain); slug != slugs_.end()) return slug->second;
        const auto* known = record(brain);
        return known && !known->slug.empty() ? known->slug : brain.lowerText();
    }
    bool bytesAreLost(const PendingChange& row) const {
        const bool carriesContent =
            row.changeKind == PendingChangeKind::create || row.changeKind == PendingChangeKind::update;
        return carriesContent && !spool_.exists(ConflictSpool::editKey(*row.id)) &&
               !spool_.exists(ConflictSpool::copyKey(*row.id));
    }
    // The first reason that stands in the way.
    std::string whyItWaits(const PendingChange& row) const {
        if (!slugs_.contains(row.brainId)) {
            return "You no longer have this brain; the change is kept on this machine.";
        }
        if (bytesAreLost(row)) return "Its bytes are not on this machine any more.";
        if (!status_.signedIn) return "Nobody is signed in.";
        const auto* known = record(row.brainId);
        if (known && known->failure) return *known->failure;
        if (status_.roundFailure) return *status_.roundFailure;
        if (known && known->waitsFor) return *known->waitsFor;
        if (!status_.syncRuns) return "Nothing sends it while `vorlinden sync` isn't running.";
        return "It goes up with the next round.";
    }

    const Workspace& workspace_;
    const HostState& state_;
    const Status& status_;
    const ConflictSpool spool_;
    std::map<UUID, std::string> slugs_;  // of the brains that are there
};

void readCatalogue(const Workspace& workspace, const HostState& state, Status& status) {
    status.deviceId = workspace.store->meta(MetaKey::deviceId);
    status.deviceName = workspace.store->meta(MetaKey::deviceName);
    for (const auto& sync : syncStatuses(workspace, state))
        readBrain(*workspace.store, sync, status);
    status.waiting = Waiting(workspace, state, status).all();
}

void readSession(const Workspace& workspace, Status& status) {
    try {
        workspace.requireSession();
        status.signedIn = true;
    } catch (const TokenManagerError&) {
        // Nobody is signed in.
    } catch (const StoredSignInUnreadable& failure) {
        status.signInProblem = failure.what();
    }
}

}  // namespace

Status gatherStatus(const platform::System& system, const platform::Folders& folders) {
    const HostState state(system, folders.state);
    Status status;
    status.server = baseURLSetting(system);
    status.roundFailure = state.roundFailure();
    status.nextTry = state.nextTry();
    status.syncRuns = Mark::syncRuns(folders).isHeld(system);
    if (!system.files->exists(AppGroup::syncDatabaseURL(system))) return status;
    status.recoveredFolder = Recovery::folderOf(system).string();
    status.recovered = Recovery::count(*system.files, status.recoveredFolder);
    const auto workspace = Workspace::open(system, folders);
    readSession(*workspace, status);
    readCatalogue(*workspace, state, status);
    return status;
}

BrainSyncStatus::State Status::overall() const {
    std::vector<BrainSyncStatus> statuses;
    for (const auto& brain : brains)
        statuses.push_back(brain.sync);
    return BrainSyncStatus::aggregate(statuses);
}

Standing Status::standing() const {
    if (!signedIn || !deviceId || !troubles.empty()) return Standing::needsPerson;
    const bool failing = roundFailure || std::holds_alternative<BrainSyncStatus::Error>(overall());
    return failing || !waiting.empty() ? Standing::somethingWaits : Standing::inStep;
}

}  // namespace vorlinden::host
