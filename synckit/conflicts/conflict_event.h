// What the user must be told of conflicts, which are settled where nobody is watching.
//
// The log is one bounded JSON array in the catalogue's settings, so that both processes reach it and it
// commits or rolls back with the change that it reports. Conflict handling appends; the host drains it and
// shows the messages. Synchronous; both operations run in one immediate transaction or join the caller's, and
// throw what the store throws, and JSONError when what is stored doesn't read: nothing repairs the log, the
// row then stays as it is.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "platform/json.h"
#include "synckit/types.h"

namespace vorlinden {

class MetadataStore;

struct ConflictEvent {
    enum class Kind {
        conflictedCopy,  // a pending edit lost against the server's, or was stale; a copy exists
        readOnlyBounce,  // the server refused a local change; a copy of an edit or a new file exists
        noWriteAccess,   // the server refused a conflict copy, which stays on this machine only
        resetConflict,   // a pending edit lost during a reset; a copy exists
    };

    Kind kind = Kind::conflictedCopy;
    UUID brainId;
    std::string path;
    std::optional<std::string> copyPath;
    std::string message;  // a finished sentence for the user
    Timestamp at{};
    bool operator==(const ConflictEvent&) const = default;
};

namespace ConflictEventLog {

// The oldest events go when there are more.
inline constexpr std::size_t maxEvents = 50;

void append(const std::vector<ConflictEvent>& events, MetadataStore& store);
// All events, oldest first; the log is then empty.
std::vector<ConflictEvent> drain(MetadataStore& store);

// One event in the log's own form, for a host that keeps events. Reading throws JSONError.
platform::JSONText encoded(const ConflictEvent& event);
ConflictEvent decoded(const platform::JSONValue& json);

}  // namespace ConflictEventLog

}  // namespace vorlinden
