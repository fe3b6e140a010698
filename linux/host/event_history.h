// The conflict events that a person was told, beyond the short log in the catalogue that is emptied by
// telling them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/system.h"
#include "synckit/conflicts/conflict_event.h"

namespace vorlinden {
class MetadataStore;
}

namespace vorlinden::host {

struct ToldEvent {
    std::int64_t number = 0;  // rises by one with each event, for ever
    std::string brain;        // its slug when the event was drained; the id where it had gone by then
    ConflictEvent event;
    bool operator==(const ToldEvent&) const = default;

    // Where it happened and what, in one line.
    std::string line() const { return brain + "/" + event.path + ": " + event.message; }
};

// One small file in the host's folder, replaced atomically; one that doesn't read counts as empty. Objects in
// several processes may collect: the catalogue's write transaction keeps them apart.
class EventHistory {
 public:
    static constexpr std::size_t maxEvents = 500;  // the oldest go
    // Posted when there are new ones.
    static const std::string changedName;

    EventHistory(const platform::System& system, const std::filesystem::path& folder);

    // Oldest first.
    std::vector<ToldEvent> events() const;
    // Moves what the catalogue's log holds to the history, and gives it. An event is in the history before it
    // leaves the log, and is taken over once if the process dies in between. Throws FileError, what the store
    // throws, and JSONError for a log that doesn't read.
    std::vector<ToldEvent> collect(MetadataStore& store);

 private:
    void write(const std::vector<ToldEvent>& events) const;

    const std::shared_ptr<platform::FileSystem> files_;
    const std::shared_ptr<platform::NotificationCenter> notifications_;
    const std::filesystem::path file_;
};

// For a script: one line of JSON.
std::string eventJSON(const ToldEvent& event);

}  // namespace vorlinden::host
