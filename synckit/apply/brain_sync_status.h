// One line of status per brain and one overall, from what the host knows and what the catalogue holds.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "synckit/types.h"

namespace vorlinden {

class MetadataStore;

// A value; its identity is the brain.
struct BrainSyncStatus {
    struct Error {
        std::string message;  // for the user
        bool operator==(const Error&) const = default;
    };
    struct Idle {
        bool operator==(const Idle&) const = default;
    };
    struct Syncing {
        bool operator==(const Syncing&) const = default;
    };
    using State = std::variant<Error, Idle, Syncing>;

    UUID brainId;
    std::string name;
    State state = Idle{};
    std::optional<Timestamp> lastSyncAt;
    std::int64_t pendingErrorCount = 0;  // rows of the brain that show an upload error

    const UUID& id() const { return brainId; }
    bool operator==(const BrainSyncStatus&) const = default;

    // One status per brain of the catalogue, in its order, all read at one moment; what the arguments say of
    // other brains is ignored. A sync in progress hides an earlier error. `errors` holds the last failure and
    // `lastSyncAt` the last good sync per brain. Throws what the store throws.
    static std::vector<BrainSyncStatus> derive(MetadataStore& store, const std::set<UUID>& syncing,
                                               const std::map<UUID, std::string>& errors,
                                               const std::map<UUID, Timestamp>& lastSyncAt);

    // The state of the whole list: the first trouble in it, upload errors of a syncing brain included, else
    // syncing if any is.
    static State aggregate(const std::vector<BrainSyncStatus>& statuses);
};

}  // namespace vorlinden
