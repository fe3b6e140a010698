#include "synckit/conflicts/conflict_spool.h"

#include <cerrno>
#include <charconv>
#include <iterator>
#include <unordered_set>
#include <utility>

#include <boost/algorithm/hex.hpp>

#include "platform/system.h"
#include "platform/text.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/container/app_group.h"

namespace vorlinden {

namespace {

constexpr std::string_view editPrefix = "edit-";
constexpr std::string_view copyPrefix = "copy-";
constexpr std::string_view nodePrefix = "node-";

std::optional<std::int64_t> parseInteger(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) return std::nullopt;
    }
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// The journal row that an entry belongs to; absent for any other name.
std::optional<std::int64_t> journalIdOf(std::string_view name) {
    if (!name.starts_with(editPrefix) && !name.starts_with(copyPrefix)) return std::nullopt;
    return parseInteger(name.substr(editPrefix.size()));
}

// What the catalogue still refers to, as it stands in one transaction.
class Reachable {
 public:
    explicit Reachable(MetadataStore& store) : store_(store), brains_(store.brains()) {
        for (const auto& change : store.pendingChanges(std::nullopt))
            journalIds_.insert(*change.id);
    }

    bool holds(std::string_view name) const {
        if (const auto id = journalIdOf(name)) return journalIds_.contains(*id);
        if (const auto id = ConflictSpool::nodeIdOf(name)) return anyBrainHas(*id);
        return true;  // not ours to judge
    }

 private:
    bool anyBrainHas(const std::string& nodeId) const {
        for (const auto& brain : brains_)
            if (store_.nodeById(brain.brainId, nodeId)) return true;
        return false;
    }

    MetadataStore& store_;
    std::unordered_set<std::int64_t> journalIds_;
    std::vector<BrainRecord> brains_;
};

}  // namespace

ConflictSpool::ConflictSpool(std::shared_ptr<platform::FileSystem> files, std::filesystem::path directory)
    : files_(std::move(files)), directory_(std::move(directory)) {}

ConflictSpool ConflictSpool::inAppGroup(const platform::System& system) {
    return ConflictSpool(system.files, AppGroup::spoolDirectory(system));
}

std::string ConflictSpool::editKey(std::int64_t journalId) {
    return std::string(editPrefix) + std::to_string(journalId);
}

std::string ConflictSpool::copyKey(std::int64_t journalId) {
    return std::string(copyPrefix) + std::to_string(journalId);
}

std::string ConflictSpool::nodeKey(std::string_view nodeId) {
    std::string key(nodePrefix);
    boost::algorithm::hex_lower(nodeId.begin(), nodeId.end(), std::back_inserter(key));
    return key;
}

std::optional<std::string> ConflictSpool::nodeIdOf(std::string_view key) {
    if (!key.starts_with(nodePrefix)) return std::nullopt;
    try {
        return platform::repairedUTF8(boost::algorithm::unhex(std::string(key.substr(nodePrefix.size()))));
    } catch (const boost::algorithm::hex_decode_error&) {
        return std::nullopt;
    }
}

void ConflictSpool::write(const Data& bytes, const std::string& key) const {
    files_->createDirectories(directory_);
    files_->writeAtomically(bytes, file(key));
}

std::optional<Data> ConflictSpool::read(const std::string& key) const {
    if (!exists(key)) return std::nullopt;
    try {
        return files_->read(file(key));
    } catch (const platform::FileError& error) {
        if (error.code != ENOENT) throw;
        return std::nullopt;  // another process took it just now
    }
}

bool ConflictSpool::exists(const std::string& key) const {
    return files_->exists(file(key));
}

void ConflictSpool::remove(const std::string& key) const {
    if (!exists(key)) return;
    try {
        files_->remove(file(key));
    } catch (const platform::FileError& error) {
        if (error.code != ENOENT) throw;  // another process took it just now
    }
}

void ConflictSpool::writeNewEdit(const Data& bytes, std::int64_t journalId) const {
    remove(copyKey(journalId));
    write(bytes, editKey(journalId));
}

void ConflictSpool::writeNewCopy(const Data& bytes, std::int64_t journalId) const {
    remove(editKey(journalId));
    write(bytes, copyKey(journalId));
}

void ConflictSpool::stageNewCopy(const Data& bytes, std::int64_t journalId) const {
    remove(editKey(journalId));
    files_->createDirectories(directory_);
    files_->writeUnflushed(bytes, file(copyKey(journalId)));
}

void ConflictSpool::flush(const std::vector<std::string>& keys) const {
    std::vector<std::filesystem::path> paths;
    for (const auto& key : keys)
        paths.push_back(file(key));
    files_->flush(paths);
}

std::optional<Data> ConflictSpool::pendingBytes(std::int64_t journalId) const {
    if (auto bytes = read(editKey(journalId))) return bytes;
    return read(copyKey(journalId));
}

void ConflictSpool::prune(MetadataStore& store) const {
    if (!files_->exists(directory_)) return;
    store.inTransaction([&] {
        for (const auto& name : unreachable(store))
            remove(name);
    });
}

std::vector<std::string> ConflictSpool::unreachable(MetadataStore& store) const {
    if (!files_->exists(directory_)) return {};
    return store.inTransaction([&] {
        const Reachable reachable(store);
        auto names = files_->list(directory_);
        std::erase_if(names, [&](const std::string& name) { return reachable.holds(name); });
        return names;
    });
}

}  // namespace vorlinden
