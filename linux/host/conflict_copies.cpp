#include "linux/host/conflict_copies.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>
#include <utility>

#include "platform/json.h"

namespace vorlinden::host {
namespace {

constexpr std::string_view opening = " (conflicted copy ";
constexpr std::string_view dayForm = "0000-00-00";

bool isDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// "0" stands for any digit.
bool hasForm(std::string_view text, std::string_view form) {
    return std::equal(text.begin(), text.end(), form.begin(), form.end(),
                      [](char c, char f) { return f == '0' ? isDigit(c) : c == f; });
}

// "DEVICE 2026-03-04" or "DEVICE 2026-03-04 2".
bool namesDeviceAndDay(std::string_view text) {
    const auto blank = text.rfind(' ');
    if (blank == std::string_view::npos) return false;
    const auto last = text.substr(blank + 1);
    if (!last.empty() && std::all_of(last.begin(), last.end(), isDigit)) text = text.substr(0, blank);
    if (text.size() < dayForm.size() + 2) return false;
    const auto day = text.substr(text.size() - dayForm.size());
    return hasForm(day, dayForm) && text[text.size() - dayForm.size() - 1] == ' ';
}

using Place = std::pair<UUID, std::string>;

std::map<Place, std::string> originalsTold(const std::vector<ToldEvent>& told) {
    std::map<Place, std::string> originals;
    for (const auto& [number, brain, event] : told)
        if (event.copyPath) originals[{event.brainId, *event.copyPath}] = event.path;
    return originals;
}

platform::JSONText encoded(const ConflictCopyListing& listing) {
    return platform::JSONObjectBuilder()
        .add("brain", listing.brain)
        .add("copy", listing.copy)
        .add("original", listing.original)
        .add("originalExists", listing.originalExists)
        .add("shown", listing.shown)
        .add("waits", listing.waits)
        .add("onlyHere", listing.onlyHere)
        .add("uploadError", listing.uploadError)
        .text();
}

std::string stateText(const ConflictCopyListing& listing) {
    if (listing.uploadError) return "only on this machine: " + *listing.uploadError;
    if (!listing.shown) return "waits to go to the server, and is shown again from then on";
    if (listing.waits) return "waits to go to the server";
    return listing.onlyHere ? "only on this machine" : "on the server too";
}

// The copies of one brain.
class BrainCopies {
 public:
    BrainCopies(MetadataStore& store, const BrainRecord& brain, const std::map<Place, std::string>& told)
        : store_(store), brain_(brain), told_(told) {
        for (const auto& row : store.pendingChanges(brain.brainId))
            if (row.changeKind == PendingChangeKind::create) waiting_.insert(row.path);
    }

    std::vector<ConflictCopyListing> all() {
        std::vector<ConflictCopyListing> copies;
        for (const auto& node : store_.allNodes(brain_.brainId)) {
            const auto original = node.isDirectory ? std::nullopt : originalOf(node.path);
            if (!original) continue;
            copies.push_back(listing(node.path, *original));
            copies.back().onlyHere = node.localOnly;
            copies.back().uploadError = node.uploadError;
            shown_.insert(node.path);
        }
        for (const auto& path : waiting_) {
            const auto original = shown_.contains(path) ? std::nullopt : originalOf(path);
            if (!original) continue;
            copies.push_back(listing(path, *original));
            copies.back().onlyHere = true;
            copies.back().shown = false;
        }
        std::ranges::sort(copies, {}, &ConflictCopyListing::copy);
        return copies;
    }

 private:
    std::optional<std::string> originalOf(const std::string& path) const {
        const auto known = told_.find({brain_.brainId, path});
        return known == told_.end() ? originalByName(path) : std::optional(known->second);
    }
    ConflictCopyListing listing(const std::string& path, const std::string& original) {
        ConflictCopyListing listing;
        listing.brain = brain_.slug;
        listing.copy = path;
        listing.original = original;
        listing.originalExists = store_.nodeByPath(brain_.brainId, original).has_value();
        listing.waits = waiting_.contains(path);
        return listing;
    }

    MetadataStore& store_;
    const BrainRecord& brain_;
    const std::map<Place, std::string>& told_;
    std::set<std::string> waiting_;  // paths of new files in the journal
    std::set<std::string> shown_;
};

}  // namespace

std::optional<std::string> originalByName(std::string_view path) {
    const auto nameStart = path.rfind('/') + 1;
    const auto start = path.rfind(opening);
    if (start == std::string_view::npos || start <= nameStart) return std::nullopt;
    const auto end = path.rfind(')');
    const auto inside = start + opening.size();
    if (end == std::string_view::npos || end < inside) return std::nullopt;
    const auto extension = path.substr(end + 1);
    if (!extension.empty() && !extension.starts_with('.')) return std::nullopt;
    if (!namesDeviceAndDay(path.substr(inside, end - inside))) return std::nullopt;
    return std::string(path.substr(0, start)).append(extension);
}

std::vector<ConflictCopyListing> conflictCopies(MetadataStore& store, const std::vector<ToldEvent>& told) {
    const auto originals = originalsTold(told);
    return store.inTransaction([&] {
        std::vector<ConflictCopyListing> copies;
        for (const auto& brain : store.brains())
            for (auto& copy : BrainCopies(store, brain, originals).all())
                copies.push_back(std::move(copy));
        return copies;
    });
}

std::string conflictCopiesJSON(const std::vector<ConflictCopyListing>& copies) {
    std::vector<platform::JSONText> list;
    for (const auto& copy : copies)
        list.push_back(encoded(copy));
    return platform::toJSON(list).text;
}

std::string conflictCopiesText(const std::vector<ConflictCopyListing>& copies) {
    std::string text;
    for (const auto& copy : copies) {
        text += copy.brain + "/" + copy.copy + "\n";
        text += "  a copy of " + copy.brain + "/" + copy.original +
                (copy.originalExists ? "" : ", which is gone") + "; " + stateText(copy) + "\n";
    }
    return text;
}

}  // namespace vorlinden::host
