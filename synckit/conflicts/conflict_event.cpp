#include "synckit/conflicts/conflict_event.h"

#include <array>
#include <string_view>
#include <utility>

#include "platform/json.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/server/sync_json.h"

namespace vorlinden::ConflictEventLog {

namespace {

using platform::JSONText;
using platform::JSONValue;

// In the order of the enumerators.
constexpr std::array<std::string_view, 4> kinds = {"conflictedCopy", "readOnlyBounce", "noWriteAccess",
                                                   "resetConflict"};

ConflictEvent::Kind readKind(const JSONValue& json) {
    for (std::size_t index = 0; index < kinds.size(); ++index) {
        if (kinds[index] == json.text()) return static_cast<ConflictEvent::Kind>(index);
    }
    throw json.corrupted("Unknown kind of conflict event");
}

UUID readUUID(const JSONValue& json) {
    if (const auto id = UUID::parse(json.text())) return *id;
    throw json.corrupted("Invalid UUID");
}

Timestamp readTimestamp(const JSONValue& json) {
    if (const auto time = SyncJSON::date(json.text())) return *time;
    throw json.corrupted("Invalid ISO 8601 date");
}

std::vector<ConflictEvent> stored(MetadataStore& store) {
    std::vector<ConflictEvent> events;
    const auto text = store.meta(MetaKey::conflictEvents);
    if (!text) return events;
    const platform::JSONDocument document(*text);
    for (const JSONValue& event : document.root().list())
        events.push_back(decoded(event));
    return events;
}

// An empty log has no row.
void write(const std::vector<ConflictEvent>& events, MetadataStore& store) {
    if (events.empty()) return store.setMeta(std::nullopt, MetaKey::conflictEvents);
    std::vector<JSONText> list;
    for (const ConflictEvent& event : events)
        list.push_back(encoded(event));
    store.setMeta(platform::toJSON(list).text, MetaKey::conflictEvents);
}

}  // namespace

ConflictEvent decoded(const JSONValue& json) {
    return {.kind = readKind(json.required("kind")),
            .brainId = readUUID(json.required("brainId")),
            .path = json.requiredString("path"),
            .copyPath = json.optionalString("copyPath"),
            .message = json.requiredString("message"),
            .at = readTimestamp(json.required("at"))};
}

JSONText encoded(const ConflictEvent& event) {
    return platform::JSONObjectBuilder()
        .add("kind", kinds[static_cast<std::size_t>(event.kind)])
        .add("brainId", event.brainId.upperText())
        .add("path", event.path)
        .add("copyPath", event.copyPath)
        .add("message", event.message)
        .add("at", SyncJSON::string(event.at))
        .sortedText();
}

void append(const std::vector<ConflictEvent>& events, MetadataStore& store) {
    if (events.empty()) return;
    store.inTransaction([&] {
        auto log = stored(store);
        log.insert(log.end(), events.begin(), events.end());
        if (log.size() > maxEvents) log.erase(log.begin(), log.end() - maxEvents);
        write(log, store);
    });
}

std::vector<ConflictEvent> drain(MetadataStore& store) {
    return store.inTransaction([&] {
        auto log = stored(store);
        if (!log.empty()) write({}, store);
        return log;
    });
}

}  // namespace vorlinden::ConflictEventLog
