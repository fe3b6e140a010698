#include <algorithm>
#include <map>
#include <optional>
#include <utility>
#include <variant>

#include "linux/host/pauses.h"
#include "linux/host/settle.h"
#include "synckit/conflicts/conflict_detector.h"
#include "synckit/conflicts/conflict_resolver.h"

namespace vorlinden::host {
namespace {

bool carriesContent(const PendingChange& row) {
    return row.changeKind == PendingChangeKind::create || row.changeKind == PendingChangeKind::update;
}

std::string cursorOfFirstTouch(const std::vector<FeedEntry>& entries, const PendingChange& row) {
    const auto touches = [&](const FeedEntry& entry) {
        return std::ranges::any_of(
            entry.ops, [&](const Op& op) { return ConflictDetector::remoteChangeCollides(op, row, true); });
    };
    return std::ranges::find_if(entries, touches)->cursor;
}

Data bytesOf(DownloadedFile file) {
    if (auto* text = std::get_if<DownloadedFile::Text>(&file.value)) return Data(std::move(text->content));
    return std::get<DownloadedFile::Blob>(std::move(file.value)).bytes;
}

// What the server holds at a path; absent if it holds no such file, or won't give it.
Task<std::optional<Data>> serversBytes(WorkspaceRef workspace, UUID brainId, std::string path,
                                       std::string cursor) {
    const auto ask = [workspace, brainId, path, cursor] {
        return workspace->client->downloadFile(brainId.lowerText(), path, cursor);
    };
    try {
        co_return bytesOf(co_await workspace->tokens->withAuthRetry<DownloadedFile>(ask));
    } catch (const SyncAPIError& error) {
        if (isPassing(error.status) || error.status == 401) throw;
        co_return std::nullopt;
    }
}

}  // namespace

Task<std::vector<OwnEcho>> ownEchoes(WorkspaceRef workspace, UUID brainId,
                                     ChangesResponse::Incremental feed) {
    std::vector<OwnEcho> echoes;
    const auto spool = ConflictSpool::inAppGroup(workspace->system);
    auto colliding =
        ConflictResolver::collidingPending(feed.entries, workspace->store->pendingChanges(brainId));
    if (!feed.cursor) co_return echoes;
    std::map<std::string, std::optional<Data>> held;  // by path: what the server has
    std::map<std::string, bool> echoed;               // by path: an earlier row is what the server has
    for (const auto& row : colliding) {
        if (!row.id || !carriesContent(row)) continue;
        const auto mine = spool.pendingBytes(*row.id);
        if (!mine) continue;
        if (!held.contains(row.path)) {
            auto bytes = co_await serversBytes(workspace, brainId, row.path, *feed.cursor);
            held.emplace(row.path, std::move(bytes));
        }
        auto& isEcho = echoed[row.path];
        isEcho = isEcho || held[row.path] == mine;
        if (isEcho) echoes.push_back({*row.id, cursorOfFirstTouch(feed.entries, row)});
    }
    co_return echoes;
}

}  // namespace vorlinden::host
