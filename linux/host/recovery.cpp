#include "linux/host/recovery.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <optional>
#include <string_view>

#include "platform/text.h"
#include "synckit/container/app_group.h"
#include "synckit/upload/upload_planner.h"

namespace vorlinden::host {
namespace {

constexpr std::size_t stampLength = std::string_view("2026-03-04T05:06:07.089Z").size();
// Leaves room for the stamp in the 255 bytes of a name.
constexpr std::size_t longestOrigin = 220;

// One component of a path: what can't stand in one is written as %XX.
std::string asFileName(std::string_view origin) {
    static constexpr std::string_view digits = "0123456789ABCDEF";
    std::string name;
    for (const char c : origin) {
        const auto byte = static_cast<unsigned char>(c);
        if (c != '/' && c != '%' && std::iscntrl(byte) == 0) {
            name += c;
            continue;
        }
        name += '%';
        name += digits[byte >> 4];
        name += digits[byte & 15];
    }
    if (name.size() <= longestOrigin) return name;
    // The end says more than the beginning: the file's name and its extension.
    auto start = name.size() - longestOrigin;
    while (start < name.size() && (static_cast<unsigned char>(name[start]) & 0xC0) == 0x80)
        ++start;
    return "…" + name.substr(start);
}

bool isEntry(const std::string& name) {
    return name.starts_with("edit-") || name.starts_with("copy-") || name.starts_with("node-");
}

std::optional<Timestamp> stampOf(const std::string& name) {
    if (name.size() <= stampLength || name[stampLength] != ' ') return std::nullopt;
    return platform::parseTimestamp(std::string_view(name).substr(0, stampLength));
}

// The contents that the spool goes on holding after the sweep.
std::unordered_set<std::string> hashesBeside(const ConflictSpool& spool, platform::FileSystem& files,
                                             const std::vector<std::string>& leaving) {
    const std::unordered_set<std::string> gone(leaving.begin(), leaving.end());
    std::unordered_set<std::string> hashes;
    for (const auto& name : files.list(spool.directory())) {
        if (!isEntry(name) || gone.contains(name)) continue;
        if (const auto bytes = spool.read(name)) hashes.insert(ContentClassifier::blobHash(*bytes));
    }
    return hashes;
}

}  // namespace

Recovery::Recovery(const platform::System& system)
    : clock_(system.clock),
      files_(system.files),
      spool_(ConflictSpool::inAppGroup(system)),
      folder_(folderOf(system)) {}

std::filesystem::path Recovery::folderOf(const platform::System& system) {
    return AppGroup::spoolDirectory(system).parent_path() / "Recovered";
}

std::size_t Recovery::count(platform::FileSystem& files, const std::filesystem::path& folder) {
    if (!files.exists(folder)) return 0;
    const auto names = files.list(folder);
    return static_cast<std::size_t>(std::count_if(
        names.begin(), names.end(), [](const auto& name) { return stampOf(name).has_value(); }));
}

bool Recovery::hasWork() const {
    const auto holdsFiles = [this](const std::filesystem::path& folder) {
        return files_->exists(folder) && !files_->list(folder).empty();
    };
    return holdsFiles(spool_.directory()) || holdsFiles(folder_);
}

void Recovery::noteOrigins(MetadataStore& store) {
    if (!files_->exists(spool_.directory())) return;
    const auto names = files_->list(spool_.directory());
    if (names.empty()) return;
    std::map<UUID, std::string> slugs;
    for (const auto& brain : store.brains())
        slugs[brain.brainId] = brain.slug;
    for (const auto& row : store.pendingChanges(std::nullopt)) {
        const auto slug = slugs.find(row.brainId);
        if (slug == slugs.end()) continue;  // its brain has gone; it was noted while there was one
        const auto origin = slug->second + "/" + row.path;
        origins_[ConflictSpool::editKey(*row.id)] = origin;
        origins_[ConflictSpool::copyKey(*row.id)] = origin;
    }
    for (const auto& name : names) {
        const auto nodeId = ConflictSpool::nodeIdOf(name);
        if (!nodeId) continue;
        for (const auto& [id, slug] : slugs)
            if (const auto node = store.nodeById(id, *nodeId)) origins_[name] = slug + "/" + node->path;
    }
}

void Recovery::keepLocalOnly(MetadataStore& store, const BrainRecord& brain) {
    for (const auto& node : store.allNodes(brain.brainId)) {
        if (!node.localOnly) continue;
        const auto key = ConflictSpool::nodeKey(node.nodeId);
        origins_[key] = brain.slug + "/" + node.path;
        if (const auto bytes = spool_.read(key)) keep(key, *bytes);
    }
}

void Recovery::prune(MetadataStore& store) {
    const auto leaving = spool_.unreachable(store);
    if (!leaving.empty()) {
        const auto held = hashesBeside(spool_, *files_, leaving);
        for (const auto& key : leaving) {
            const auto bytes = spool_.read(key);
            if (bytes && !held.contains(ContentClassifier::blobHash(*bytes))) keep(key, *bytes);
        }
        spool_.prune(store);
        for (const auto& key : leaving)
            origins_.erase(key);
    }
    dropOld();
}

void Recovery::keep(const std::string& key, const Data& bytes) {
    const auto mark = key + " " + ContentClassifier::blobHash(bytes);
    if (kept_.contains(mark)) return;
    const auto origin = origins_.find(key);
    files_->createDirectories(folder_);
    files_->writeAtomically(bytes, freePlace(origin == origins_.end() ? "unknown " + key : origin->second));
    kept_.insert(mark);
}

// Names differ in their time, so that they stay alike in form.
std::filesystem::path Recovery::freePlace(const std::string& origin) const {
    const auto name = asFileName(origin);
    for (auto at = clock_->now();; at += std::chrono::milliseconds(1)) {
        auto place = folder_ / (platform::formatTimestamp(at) + " " + name);
        if (!files_->exists(place)) return place;
    }
}

void Recovery::dropOld() {
    if (!files_->exists(folder_)) return;
    files_->sweepTemporaries(folder_);
    const auto oldest = clock_->now() - keptFor;
    for (const auto& name : files_->list(folder_)) {
        const auto at = stampOf(name);
        if (at && *at < oldest) files_->remove(folder_ / name);
    }
}

}  // namespace vorlinden::host
