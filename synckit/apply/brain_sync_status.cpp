#include "synckit/apply/brain_sync_status.h"

#include <algorithm>

#include "synckit/catalogue/metadata_store.h"

namespace vorlinden {

namespace {

using State = BrainSyncStatus::State;

std::string uploadErrors(std::int64_t count) {
    return std::to_string(count) + " upload error" + (count == 1 ? "" : "s");
}

State state(bool syncing, const std::string* error, std::int64_t pendingErrorCount) {
    if (syncing) return BrainSyncStatus::Syncing{};
    if (error) return BrainSyncStatus::Error{*error};
    if (pendingErrorCount >= 1) return BrainSyncStatus::Error{uploadErrors(pendingErrorCount)};
    return BrainSyncStatus::Idle{};
}

template <class Value>
const Value* find(const std::map<UUID, Value>& values, const UUID& brainId) {
    const auto found = values.find(brainId);
    return found == values.end() ? nullptr : &found->second;
}

}  // namespace

std::vector<BrainSyncStatus> BrainSyncStatus::derive(MetadataStore& store, const std::set<UUID>& syncing,
                                                     const std::map<UUID, std::string>& errors,
                                                     const std::map<UUID, Timestamp>& lastSyncAt) {
    return store.inTransaction([&] {
        std::vector<BrainSyncStatus> statuses;
        for (const BrainRecord& brain : store.brains()) {
            const UUID& id = brain.brainId;
            const auto errorCount = store.uploadErrorCount(id);
            const Timestamp* synced = find(lastSyncAt, id);
            statuses.push_back({.brainId = id,
                                .name = brain.name,
                                .state = vorlinden::state(syncing.contains(id), find(errors, id), errorCount),
                                .lastSyncAt = synced ? std::optional(*synced) : std::nullopt,
                                .pendingErrorCount = errorCount});
        }
        return statuses;
    });
}

State BrainSyncStatus::aggregate(const std::vector<BrainSyncStatus>& statuses) {
    for (const BrainSyncStatus& status : statuses) {
        if (std::holds_alternative<Error>(status.state)) return status.state;
        if (status.pendingErrorCount > 0) return Error{"Upload errors"};
    }
    const bool anySyncing = std::any_of(statuses.begin(), statuses.end(), [](const BrainSyncStatus& status) {
        return std::holds_alternative<Syncing>(status.state);
    });
    return anySyncing ? State(Syncing{}) : State(Idle{});
}

}  // namespace vorlinden
