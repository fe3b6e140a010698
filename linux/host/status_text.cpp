// The two forms of a Status: lines for a person, JSON for a script.
#include <algorithm>
#include <array>
#include <chrono>
#include <sstream>
#include <variant>

#include "linux/host/status.h"
#include "platform/json.h"

namespace vorlinden::host {
namespace {

using platform::JSONObjectBuilder;
using platform::JSONText;

std::string counted(std::size_t count, const std::string& one) {
    return std::to_string(count) + " " + one + (count == 1 ? "" : "s");
}

std::optional<std::string> timeText(const std::optional<platform::Timestamp>& time) {
    if (!time) return std::nullopt;
    return platform::formatTimestamp(*time);
}

struct StateName {
    const char* operator()(const BrainSyncStatus::Error&) const { return "error"; }
    const char* operator()(const BrainSyncStatus::Idle&) const { return "idle"; }
    const char* operator()(const BrainSyncStatus::Syncing&) const { return "syncing"; }
};

std::optional<std::string> errorOf(const BrainSyncStatus::State& state) {
    const auto* error = std::get_if<BrainSyncStatus::Error>(&state);
    return error ? std::optional(error->message) : std::nullopt;
}

JSONText stateJSON(const BrainSyncStatus::State& state) {
    JSONObjectBuilder object;
    object.add("state", std::visit(StateName(), state)).add("message", errorOf(state));
    return object.text();
}

JSONText brainJSON(const BrainStatus& status) {
    JSONObjectBuilder object;
    object.add("id", status.brain.brainId.lowerText())
        .add("slug", status.brain.slug)
        .add("name", status.brain.name)
        .add("files", static_cast<std::int64_t>(status.files))
        .add("folders", static_cast<std::int64_t>(status.folders))
        .add("sync", stateJSON(status.sync.state))
        .add("pulledAt", timeText(status.sync.lastSyncAt))
        .add("uploadErrors", status.sync.pendingErrorCount)
        .add("waiting", static_cast<std::int64_t>(status.waiting));
    return object.text();
}

JSONText waitingJSON(const Status& status) {
    std::vector<JSONText> changes;
    for (const auto& change : status.waiting) {
        JSONObjectBuilder object;
        object.add("what", change.what)
            .add("since", platform::formatTimestamp(change.since))
            .add("why", change.why);
        changes.push_back(object.text());
    }
    return platform::toJSON(changes);
}

JSONText troublesJSON(const Status& status) {
    std::vector<JSONText> troubles;
    for (const auto& trouble : status.troubles) {
        JSONObjectBuilder object;
        object.add("path", trouble.place).add("message", trouble.message);
        troubles.push_back(object.text());
    }
    return platform::toJSON(troubles);
}

const char* standingName(Standing standing) {
    switch (standing) {
        case Standing::inStep:
            return "in step";
        case Standing::somethingWaits:
            return "something waits";
        case Standing::needsPerson:
            return "needs you";
    }
    return "";
}

JSONText serverJSON(const BaseURLSetting& server) {
    JSONObjectBuilder object;
    object.add("url", server.inUse).add("isDefault", server.isDefault).add("override", server.override);
    return object.text();
}

JSONText deviceJSON(const Status& status) {
    JSONObjectBuilder object;
    object.add("id", status.deviceId).add("name", status.deviceName);
    return object.text();
}

JSONText syncJSON(const Status& status) {
    JSONObjectBuilder object;
    object.add("running", status.syncRuns).add("failure", status.roundFailure);
    return object.text();
}

JSONText recoveredJSON(const Status& status) {
    JSONObjectBuilder object;
    object.add("files", static_cast<std::int64_t>(status.recovered)).add("folder", status.recoveredFolder);
    return object.text();
}

JSONText mountJSON(const MountStatus& mount) {
    JSONObjectBuilder object;
    object.add("path", mount.mountPoint).add("server", mount.server).add("trouble", mount.trouble);
    if (const auto& failed = mount.failedFetch) {
        JSONObjectBuilder fetch;
        fetch.add("path", failed->path)
            .add("reason", failed->sentence)
            .add("at", platform::formatTimestamp(failed->at));
        object.add("failedFetch", fetch.text());
    }
    JSONObjectBuilder lock;
    lock.add("operations", mount.lockOperations).add("waitedMilliseconds", mount.lockMilliseconds);
    object.add("executionLock", lock.text());
    return object.text();
}

std::string mountText(const std::optional<MountStatus>& mount, platform::Timestamp now) {
    if (!mount) return "mount: none; show the tree with `vorlinden mount FOLDER`\n";
    std::ostringstream out;
    out << "mount: " << mount->mountPoint << "\n";
    if (mount->trouble) out << "  " << *mount->trouble << "\n";
    if (mount->server == "unreachable") {
        out << "  the server can't be reached: what isn't cached can't be read now\n";
    } else if (mount->server == "signed out") {
        out << "  signed out: what isn't cached can't be read\n";
    }
    if (const auto& failed = mount->failedFetch) {
        out << "  could not fetch " << failed->path << " (" << ageText(failed->at, now)
            << "): " << failed->sentence << "\n";
    }
    return out.str();
}

std::string brainText(const BrainStatus& status, platform::Timestamp now) {
    const auto& at = status.sync.lastSyncAt;
    std::ostringstream out;
    out << "  " << status.brain.slug << ": " << counted(status.files, "file") << " in "
        << counted(status.folders, "folder") << ", "
        << (at ? "current as of " + ageText(*at, now) : "not pulled yet");
    if (std::holds_alternative<BrainSyncStatus::Syncing>(status.sync.state)) out << ", syncing now";
    if (status.waiting > 0) out << ", " << counted(status.waiting, "change") << " waiting";
    out << "\n";
    if (const auto error = errorOf(status.sync.state)) out << "    " << *error << "\n";
    return out.str();
}

std::string nextTryText(const Status& status, platform::Timestamp now) {
    if (!status.syncRuns || !status.nextTry || *status.nextTry <= now) return "";
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(*status.nextTry - now).count();
    return "; next try in " + counted(static_cast<std::size_t>(seconds), "second");
}

// The first ones of a list that may be long, each as a line or two.
template <class Item, class Line>
void list(std::ostream& out, const std::vector<Item>& items, const Line& line) {
    constexpr std::size_t shown = 20;
    for (std::size_t i = 0; i < std::min(items.size(), shown); ++i)
        out << "  " << line(items[i]) << "\n";
    if (items.size() > shown) out << "  and " << items.size() - shown << " more; see --json\n";
}

void changesText(std::ostream& out, const Status& status, platform::Timestamp now) {
    if (!status.waiting.empty()) {
        out << "waiting: " << counted(status.waiting.size(), "change") << nextTryText(status, now) << "\n";
        list(out, status.waiting, [&](const WaitingChange& change) {
            return change.what + " (" + ageText(change.since, now) + "): " + change.why;
        });
    }
    if (!status.troubles.empty()) {
        out << "needs you: " << counted(status.troubles.size(), "item")
            << " that the server doesn't have as shown here; `vorlinden retry PATH` tries a file again\n";
        list(out, status.troubles,
             [](const ItemTrouble& trouble) { return trouble.place + ": " + trouble.message; });
    }
}

std::string sessionText(const Status& status) {
    if (status.signInProblem) return *status.signInProblem + " Sign in with `vorlinden login`.";
    if (!status.signedIn) return "nobody; sign in with `vorlinden login`";
    return status.deviceName ? "yes, as device " + *status.deviceName
                             : "yes, but unfinished: run `vorlinden login`";
}

}  // namespace

std::string ageText(platform::Timestamp then, platform::Timestamp now) {
    using namespace std::chrono;
    struct Unit {
        seconds length;
        const char* name;
    };
    static constexpr std::array units{Unit{hours(24), "day"}, Unit{hours(1), "hour"},
                                      Unit{minutes(1), "minute"}};
    const auto age = duration_cast<seconds>(now - then);
    for (const auto& unit : units) {
        if (age >= unit.length)
            return counted(static_cast<std::size_t>(age / unit.length), unit.name) + " ago";
    }
    return "just now";
}

std::string statusJSON(const Status& status) {
    std::vector<JSONText> brains;
    for (const auto& brain : status.brains)
        brains.push_back(brainJSON(brain));
    JSONObjectBuilder object;
    object.add("signedIn", status.signedIn)
        .add("signInProblem", status.signInProblem)
        .add("server", serverJSON(status.server))
        .add("device", deviceJSON(status))
        .add("brains", brains)
        .add("standing", standingName(status.standing()))
        .add("overall", stateJSON(status.overall()))
        .add("waiting", waitingJSON(status))
        .add("nextTry", timeText(status.nextTry))
        .add("troubles", troublesJSON(status))
        .add("recovered", recoveredJSON(status))
        .add("sync", syncJSON(status));
    if (status.mount) object.add("mount", mountJSON(*status.mount));
    return object.text().text;
}

std::string statusText(const Status& status, platform::Timestamp now) {
    std::ostringstream out;
    out << "state: " << standingName(status.standing()) << "\n"
        << "signed in: " << sessionText(status) << "\n"
        << "server: " << status.server.inUse << (status.server.isDefault ? " (the default)" : "") << "\n";
    if (status.server.isDefault && status.server.override) {
        out << "  the setting \"" << *status.server.override
            << "\" is no usable address and is passed over; see `vorlinden config base-url`\n";
    }
    out << "sync: " << (status.syncRuns ? "running" : "not running; start it with `vorlinden sync`") << "\n";
    if (status.roundFailure) out << "  last try failed: " << *status.roundFailure << "\n";
    out << mountText(status.mount, now);
    out << "brains: " << (status.brains.empty() ? "none" : std::to_string(status.brains.size())) << "\n";
    for (const auto& brain : status.brains)
        out << brainText(brain, now);
    changesText(out, status, now);
    if (status.recovered > 0) {
        out << counted(status.recovered, "file") << " with bytes that are nowhere else, kept for 30 days in "
            << status.recoveredFolder << "\n";
    }
    return out.str();
}

}  // namespace vorlinden::host
