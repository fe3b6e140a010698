#include "linux/host/event_history.h"

#include <algorithm>
#include <utility>

#include "platform/json.h"
#include "synckit/catalogue/metadata_store.h"

namespace vorlinden::host {
namespace {

using platform::JSONText;

JSONText encoded(const ToldEvent& told) {
    return platform::JSONObjectBuilder()
        .add("number", told.number)
        .add("brain", told.brain)
        .add("event", ConflictEventLog::encoded(told.event))
        .text();
}

// How many of `drained` stand at the end of `history` already: taken over by a process that died before the
// log was emptied.
std::size_t takenOver(const std::vector<ToldEvent>& history, const std::vector<ConflictEvent>& drained) {
    for (auto count = std::min(history.size(), drained.size()); count > 0; --count) {
        const auto same = [](const ToldEvent& told, const ConflictEvent& event) {
            return told.event == event;
        };
        const auto tail = history.end() - static_cast<std::ptrdiff_t>(count);
        if (std::equal(tail, history.end(), drained.begin(), same)) return count;
    }
    return 0;
}

}  // namespace

const std::string EventHistory::changedName = "vorlinden.events";

EventHistory::EventHistory(const platform::System& system, const std::filesystem::path& folder)
    : files_(system.files), notifications_(system.notifications), file_(folder / "events.json") {}

std::vector<ToldEvent> EventHistory::events() const {
    if (!files_->exists(file_)) return {};
    try {
        const auto text = files_->read(file_);
        const platform::JSONDocument document(text.view());
        std::vector<ToldEvent> events;
        for (const auto& json : document.root().required("events").list()) {
            events.push_back({json.requiredInteger("number"), json.requiredString("brain"),
                              ConflictEventLog::decoded(json.required("event"))});
        }
        return events;
    } catch (const platform::JSONError&) {
        return {};
    }
}

std::vector<ToldEvent> EventHistory::collect(MetadataStore& store) {
    if (!store.meta(MetaKey::conflictEvents)) return {};  // the usual case: no transaction, no write
    const auto news = store.inTransaction([&] {
        auto drained = ConflictEventLog::drain(store);
        auto history = events();
        drained.erase(drained.begin(),
                      drained.begin() + static_cast<std::ptrdiff_t>(takenOver(history, drained)));
        auto number = history.empty() ? 0 : history.back().number;
        std::vector<ToldEvent> told;
        for (const auto& event : drained) {
            const auto brain = store.brain(event.brainId);
            told.push_back({++number, brain ? brain->slug : event.brainId.lowerText(), event});
        }
        history.insert(history.end(), told.begin(), told.end());
        if (history.size() > maxEvents) {
            history.erase(history.begin(), history.end() - static_cast<std::ptrdiff_t>(maxEvents));
        }
        if (!told.empty()) write(history);
        return told;
    });
    if (!news.empty()) notifications_->post(changedName);
    return news;
}

void EventHistory::write(const std::vector<ToldEvent>& events) const {
    std::vector<JSONText> list;
    for (const auto& event : events)
        list.push_back(encoded(event));
    files_->createDirectories(file_.parent_path());
    files_->writeAtomically(Data(platform::JSONObjectBuilder().add("events", list).text().text + "\n"),
                            file_);
}

std::string eventJSON(const ToldEvent& event) {
    return encoded(event).text;
}

}  // namespace vorlinden::host
