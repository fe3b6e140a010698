#include "linux/host/host_state.h"

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

#include "platform/json.h"

namespace vorlinden::host {
namespace {

platform::JSONText encoded(const platform::UUID& brain, const PullRecord& record) {
    platform::JSONObjectBuilder object;
    object.add("brain", brain.upperText());
    if (record.pulledAt) object.add("pulledAt", platform::formatTimestamp(*record.pulledAt));
    object.add("failure", record.failure).add("waitsFor", record.waitsFor).add("slug", record.slug);
    return object.text();
}

// Whether two rounds went alike, the later one no more than a minute after the other.
bool sayTheSame(const std::map<platform::UUID, PullRecord>& a,
                const std::map<platform::UUID, PullRecord>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& one, const auto& other) {
        auto alike = other.second;
        alike.pulledAt = one.second.pulledAt;
        if (one.first != other.first || one.second != alike) return false;
        if (one.second.pulledAt == other.second.pulledAt) return true;
        if (!one.second.pulledAt || !other.second.pulledAt) return false;
        const auto apart = *other.second.pulledAt - *one.second.pulledAt;
        return apart >= std::chrono::seconds(0) && apart < std::chrono::minutes(1);
    });
}

}  // namespace

HostState::HostState(const platform::System& system, const std::filesystem::path& folder)
    : files_(system.files), file_(folder / "host.json") {
    try {
        read();
    } catch (const platform::FileError&) {
        // Not written yet.
    } catch (const platform::JSONError&) {
        registeredAt_.reset();
        roundFailure_.reset();
        nextTry_.reset();
        pulls_.clear();
    }
}

void HostState::read() {
    const auto text = files_->read(file_);
    const platform::JSONDocument document(text.view());
    const auto root = document.root();
    registeredAt_ = root.optionalString("registeredAt");
    roundFailure_ = root.optionalString("roundFailure");
    if (const auto at = root.optionalString("nextTry")) nextTry_ = platform::parseTimestamp(*at);
    for (const auto& value : root.required("pulls").list()) {
        const auto brain = platform::UUID::parse(value.requiredString("brain"));
        if (!brain) throw value.corrupted("not a UUID");
        const auto at = value.optionalString("pulledAt");
        pulls_[*brain] = {at ? platform::parseTimestamp(*at) : std::nullopt, value.optionalString("failure"),
                          value.optionalString("waitsFor"), value.optionalString("slug").value_or("")};
    }
}

void HostState::write() const {
    std::vector<platform::JSONText> pulls;
    for (const auto& [brain, record] : pulls_)
        pulls.push_back(encoded(brain, record));
    platform::JSONObjectBuilder root;
    root.add("registeredAt", registeredAt_)
        .add("roundFailure", roundFailure_)
        .add("nextTry", nextTry_ ? std::optional(platform::formatTimestamp(*nextTry_)) : std::nullopt)
        .add("pulls", platform::toJSON(pulls));
    files_->createDirectories(file_.parent_path());
    files_->writeAtomically(platform::Data(root.text().text + "\n"), file_);
}

void HostState::setRegisteredAt(std::string issuer) {
    registeredAt_ = std::move(issuer);
    write();
}

void HostState::setRound(std::map<platform::UUID, PullRecord> pulls) {
    if (!roundFailure_ && sayTheSame(pulls_, pulls)) return;
    pulls_ = std::move(pulls);
    roundFailure_.reset();
    write();
}

void HostState::setRoundFailure(std::string failure) {
    roundFailure_ = std::move(failure);
    write();
}

void HostState::setNextTry(std::optional<platform::Timestamp> at) {
    if (nextTry_ == at) return;
    nextTry_ = at;
    write();
}

}  // namespace vorlinden::host
