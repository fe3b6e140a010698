#include "linux/host/choices.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "linux/host/failures.h"
#include "synckit/conflicts/conflict_spool.h"
#include "synckit/upload/local_mutations.h"
#include "synckit/upload/node_content_snapshot.h"

namespace vorlinden::host::Choices {
namespace {

std::optional<NodeRecord> fileAt(const Workspace& workspace, const TreePath& place) {
    auto node = workspace.store->nodeByPath(place.brain.brainId, place.path);
    if (node && node->isDirectory) throw ChangeRefused("“" + place.text() + "” is a folder.");
    return node;
}

// Rows that carry the content of this file, or make it.
std::vector<PendingChange> contentRows(const Workspace& workspace, const TreePath& place,
                                       const std::optional<NodeRecord>& node) {
    auto rows = workspace.store->pendingChanges(place.brain.brainId);
    std::erase_if(rows, [&](const PendingChange& row) {
        const bool carries =
            row.changeKind == PendingChangeKind::create || row.changeKind == PendingChangeKind::update;
        const bool same = row.path == place.path || (node && row.nodeId == node->nodeId);
        return !carries || !same;
    });
    return rows;
}

std::int64_t journal(const Workspace& workspace, const TreePath& place, const std::optional<NodeRecord>& node,
                     bool isNew) {
    const auto nodeId = node ? std::optional(node->nodeId) : std::nullopt;
    return LocalMutations::journalUpsert(*workspace.store, place.brain.brainId, place.path, nodeId, isNew,
                                         workspace.system.clock->now());
}

// A refused new file goes up as a conflict copy does: refused again it stays what it is, where an edit would
// become a copy of itself.
void journalAgain(const Workspace& workspace, const TreePath& place, const NodeRecord& node,
                  const Data& bytes) {
    const auto spool = ConflictSpool::inAppGroup(workspace.system);
    if (node.nodeId.starts_with("local:")) {
        spool.writeNewCopy(bytes, journal(workspace, place, node, true));
    } else {
        spool.writeNewEdit(bytes, journal(workspace, place, node, false));
    }
}

// A file that the server has goes with the next round, one that it doesn't have goes at once, with what
// waited for it.
void removeFile(const Workspace& workspace, const TreePath& place) {
    auto& store = *workspace.store;
    const auto node = fileAt(workspace, place);
    for (const auto& row : contentRows(workspace, place, node))
        store.removePending(*row.id);
    const auto now = workspace.system.clock->now();
    if (!node) return;
    if (node->localOnly) {
        LocalMutations::applyDelete(*workspace.system.random, store, place.brain.brainId, place.path,
                                    std::nullopt, now);
    } else {
        LocalMutations::journalDelete(store, place.brain.brainId, node->nodeId, place.path, now);
    }
}

}  // namespace

Task<Data> content(WorkspaceRef workspace, TreePath place) {
    const auto spool = ConflictSpool::inAppGroup(workspace->system);
    const auto node = fileAt(*workspace, place);
    const auto rows = contentRows(*workspace, place, node);
    if (!rows.empty()) {
        if (auto bytes = spool.pendingBytes(*rows.back().id)) co_return *std::move(bytes);
    }
    if (!node) throw NoSuchPlace("There is no “" + place.text() + "”.");
    const auto snapshot = NodeContentSnapshot::read(node->brainId, node->nodeId, *workspace->store, spool);
    if (snapshot && snapshot->retainedBytes) co_return *snapshot->retainedBytes;
    const auto cursor = workspace->store->cursor(node->brainId).value_or("");
    const auto ask = [workspace, brain = node->brainId.lowerText(), path = place.path, cursor] {
        return workspace->client->downloadFile(brain, path, cursor);
    };
    auto file = co_await workspace->tokens->withAuthRetry<DownloadedFile>(ask);
    if (auto* text = std::get_if<DownloadedFile::Text>(&file.value)) co_return Data(std::move(text->content));
    co_return std::get<DownloadedFile::Blob>(file.value).bytes;
}

ConflictCopyListing conflictCopy(const Workspace& workspace, const TreePath& place) {
    const EventHistory history(workspace.system, workspace.folders.state);
    for (auto& copy : conflictCopies(*workspace.store, history.events()))
        if (copy.brain == place.brain.slug && copy.copy == place.path) return std::move(copy);
    throw ChangeRefused("“" + place.text() + "” is no conflict copy. `vorlinden conflicts` lists them.");
}

void retry(const Workspace& workspace, const TreePath& place) {
    workspace.store->inTransaction([&] {
        const auto node = fileAt(workspace, place);
        if (!node) throw NoSuchPlace("There is no “" + place.text() + "”.");
        if (!contentRows(workspace, place, node).empty()) return;  // it waits already
        if (!node->localOnly) {
            throw ChangeRefused("The server has “" + place.text() +
                                "”. What it refused was a move or a deletion: make that again.");
        }
        const auto spool = ConflictSpool::inAppGroup(workspace.system);
        const auto bytes = spool.read(ConflictSpool::nodeKey(node->nodeId));
        if (!bytes) {
            throw ChangeRefused("The content of “" + place.text() +
                                "” is not on this machine: files of this "
                                "name or size are never taken over.");
        }
        LocalMutations::markUploadError(*workspace.store, node->brainId, node->nodeId, std::nullopt);
        journalAgain(workspace, place, *node, *bytes);
    });
}

Task<> keepMine(WorkspaceRef workspace, TreePath copy) {
    const auto listing = conflictCopy(*workspace, copy);
    const auto bytes = co_await content(workspace, copy);
    const TreePath original{copy.brain, listing.original};
    workspace->store->inTransaction([&] {
        const auto node = fileAt(*workspace, original);
        const auto row = journal(*workspace, original, node, !node);
        ConflictSpool::inAppGroup(workspace->system).writeNewEdit(bytes, row);
        if (node && node->uploadError) {
            LocalMutations::markUploadError(*workspace->store, node->brainId, node->nodeId, std::nullopt);
        }
        removeFile(*workspace, copy);
    });
}

void keepTheirs(const Workspace& workspace, const TreePath& copy) {
    conflictCopy(workspace, copy);
    workspace.store->inTransaction([&] { removeFile(workspace, copy); });
}

}  // namespace vorlinden::host::Choices
