#include "synckit/catalogue/taken_paths.h"

#include <utility>

#include "platform/text.h"

namespace vorlinden {

TakenPaths::TakenPaths(const std::vector<NodeRecord>& rows, const std::vector<PendingChange>& journal) {
    claims_.reserve(rows.size() + journal.size());
    nodes_.reserve(rows.size());
    for (const auto& row : rows)
        nodeWritten(row.nodeId, row.path);
    for (const auto& change : journal)
        if (change.id) changeWritten(*change.id, change.path, change.fromPath);
}

bool TakenPaths::contains(std::string_view path) const {
    return claims_.contains(platform::composed(path));
}

void TakenPaths::nodeWritten(const std::string& nodeId, std::string_view path) {
    const auto now = claim(path);
    const auto before = std::exchange(nodes_[nodeId], now);
    if (before) release(before);
}

void TakenPaths::nodeDeleted(const std::string& nodeId) {
    if (const auto node = nodes_.extract(nodeId)) release(node.mapped());
}

void TakenPaths::changeWritten(std::int64_t id, std::string_view path,
                               const std::optional<std::string>& fromPath) {
    changes_[id] = {claim(path), fromPath ? claim(*fromPath) : nullptr};
}

void TakenPaths::changeRedirected(std::int64_t id, std::string_view path) {
    const auto change = changes_.find(id);
    if (change == changes_.end()) return;
    release(std::exchange(change->second.path, claim(path)));
}

void TakenPaths::changeRemoved(std::int64_t id) {
    const auto change = changes_.extract(id);
    if (!change) return;
    release(change.mapped().path);
    if (change.mapped().fromPath) release(change.mapped().fromPath);
}

TakenPaths::Claim TakenPaths::claim(std::string_view path) {
    auto& entry = *claims_.try_emplace(platform::composed(path), 0).first;
    ++entry.second;
    return &entry;
}

void TakenPaths::release(Claim claim) {
    if (--claim->second == 0) claims_.erase(claims_.find(claim->first));
}

}  // namespace vorlinden
