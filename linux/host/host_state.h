// What the host remembers for itself between runs: nothing that the catalogue needs, only what `status` shows
// and which server this program is registered with.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/system.h"
#include "platform/timestamp.h"
#include "platform/uuid.h"

namespace vorlinden::host {

// How the last turns of a brain went.
struct PullRecord {
    std::optional<platform::Timestamp> pulledAt;  // the last one that succeeded
    std::optional<std::string> failure;           // of the last one, if it failed, for a person
    std::optional<std::string> waitsFor;          // why changes had to wait in the last one, for a person
    std::string slug;
    bool operator==(const PullRecord&) const = default;
};

// One small file, read once on construction and replaced atomically by each change; one that can't be read
// counts as empty. Not thread-safe: an object belongs to one task. Writers are few and the last one wins.
class HostState {
 public:
    HostState(const platform::System& system, const std::filesystem::path& folder);

    std::optional<std::string> registeredAt() const { return registeredAt_; }
    void setRegisteredAt(std::string issuer);

    const std::map<platform::UUID, PullRecord>& pulls() const { return pulls_; }
    // Why the last round could not be held at all, for a person; absent if it could.
    std::optional<std::string> roundFailure() const { return roundFailure_; }
    // When sync asks again; absent where nobody waits for that.
    std::optional<platform::Timestamp> nextTry() const { return nextTry_; }
    // A round was held. Replaces all records. Where nothing but time has passed the file is written once a
    // minute, to spare the disk of an idle machine.
    void setRound(std::map<platform::UUID, PullRecord> pulls);
    void setRoundFailure(std::string failure);
    void setNextTry(std::optional<platform::Timestamp> at);

 private:
    void read();
    void write() const;

    const std::shared_ptr<platform::FileSystem> files_;
    const std::filesystem::path file_;
    std::optional<std::string> registeredAt_;
    std::optional<std::string> roundFailure_;
    std::optional<platform::Timestamp> nextTry_;
    std::map<platform::UUID, PullRecord> pulls_;
};

}  // namespace vorlinden::host
