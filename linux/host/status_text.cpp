// The two forms of a Status: lines for a person, JSON for a script.
#include <array>
#include <chrono>
#include <sstream>

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

JSONText brainJSON(const BrainStatus& status) {
    JSONObjectBuilder object;
    object.add("id", status.brain.brainId.lowerText())
        .add("slug", status.brain.slug)
        .add("name", status.brain.name)
        .add("files", static_cast<std::int64_t>(status.files))
        .add("folders", static_cast<std::int64_t>(status.folders))
        .add("pulledAt", timeText(status.pull.pulledAt))
        .add("failure", status.pull.failure)
        .add("uploadErrors", status.uploadErrors)
        .add("waiting", static_cast<std::int64_t>(status.waiting));
    return object.text();
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
    std::ostringstream out;
    out << "  " << status.brain.slug << ": " << counted(status.files, "file") << " in "
        << counted(status.folders, "folder") << ", "
        << (status.pull.pulledAt ? "current as of " + ageText(*status.pull.pulledAt, now) : "not pulled yet");
    if (status.waiting > 0) out << ", " << counted(status.waiting, "change") << " waiting";
    if (status.uploadErrors > 0) out << ", " << counted(status.uploadErrors, "upload error");
    out << "\n";
    if (status.pull.failure) out << "    last try failed: " << *status.pull.failure << "\n";
    return out.str();
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
        .add("waiting", static_cast<std::int64_t>(status.waiting))
        .add("recovered", recoveredJSON(status))
        .add("sync", syncJSON(status));
    if (status.mount) object.add("mount", mountJSON(*status.mount));
    return object.text().text;
}

std::string statusText(const Status& status, platform::Timestamp now) {
    std::ostringstream out;
    out << "signed in: " << sessionText(status) << "\n"
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
    if (status.waiting > 0) out << counted(status.waiting, "change") << " waiting to go to the server\n";
    if (status.recovered > 0) {
        out << counted(status.recovered, "file") << " with bytes that are nowhere else, kept for 30 days in "
            << status.recoveredFolder << "\n";
    }
    return out.str();
}

}  // namespace vorlinden::host
