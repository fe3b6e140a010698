#include "linux/host/status.h"

#include <algorithm>
#include <map>

#include "linux/host/failures.h"
#include "linux/host/sync_loop.h"
#include "linux/host/workspace.h"
#include "synckit/container/app_group.h"

namespace vorlinden::host {
namespace {

BrainStatus statusOf(MetadataStore& store, const BrainRecord& brain, const HostState& state) {
    BrainStatus status;
    status.brain = brain;
    const auto nodes = store.allNodes(brain.brainId);
    status.folders = static_cast<std::size_t>(
        std::count_if(nodes.begin(), nodes.end(), [](const NodeRecord& node) { return node.isDirectory; }));
    status.files = nodes.size() - status.folders;
    status.uploadErrors = store.uploadErrorCount(brain.brainId);
    status.waiting = store.pendingChanges(brain.brainId).size();
    const auto pull = state.pulls().find(brain.brainId);
    if (pull != state.pulls().end()) status.pull = pull->second;
    return status;
}

void readCatalogue(const Workspace& workspace, const HostState& state, Status& status) {
    status.deviceId = workspace.store->meta(MetaKey::deviceId);
    status.deviceName = workspace.store->meta(MetaKey::deviceName);
    for (const auto& brain : workspace.store->brains()) {
        status.brains.push_back(statusOf(*workspace.store, brain, state));
    }
    status.waiting = workspace.store->pendingChanges(std::nullopt).size();
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
    status.syncRuns = isSyncRunning(system, folders);
    if (!system.files->exists(AppGroup::syncDatabaseURL(system))) return status;
    status.recoveredFolder = Recovery::folderOf(system).string();
    status.recovered = Recovery::count(*system.files, status.recoveredFolder);
    const auto workspace = Workspace::open(system, folders);
    readSession(*workspace, status);
    readCatalogue(*workspace, state, status);
    return status;
}

}  // namespace vorlinden::host
