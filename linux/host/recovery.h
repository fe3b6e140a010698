// Bytes that the spool is about to lose, kept for a while in a folder that a person can look into.
//
// The sweep of the spool removes whatever nothing in the catalogue refers to any more: what was sent, but
// also an edit whose row a reset dropped, or a file that was deleted here before it ever went up. Nobody can
// get those anywhere else, so the host puts them into `Recovered/` first, beside the spool, for 30 days.
#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "platform/system.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/conflicts/conflict_spool.h"

namespace vorlinden::host {

// Lives as long as the host's work, since it remembers where spool entries came from after their rows have
// gone. Not thread-safe: every operation is called while the process holds the execution lock, but for
// hasWork() and count(). They throw FileError and what the store throws; nothing is lost by that.
class Recovery {
 public:
    static constexpr std::chrono::days keptFor{30};

    explicit Recovery(const platform::System& system);

    const std::filesystem::path& folder() const { return folder_; }

    // Remembers the file that each entry of the spool belongs to now. To be called before rows go.
    void noteOrigins(MetadataStore& store);
    // Keeps the bytes of the files of a brain that exist only here. To be called before the brain goes.
    void keepLocalOnly(MetadataStore& store, const BrainRecord& brain);
    // Sweeps the spool, after the bytes that are nowhere else have been kept, and drops what was kept for
    // long enough.
    void prune(MetadataStore& store);

    // Whether prune() could have anything to do. Needs no lock.
    bool hasWork() const;

    // The files in the folder.
    static std::size_t count(platform::FileSystem& files, const std::filesystem::path& folder);
    static std::filesystem::path folderOf(const platform::System& system);

 private:
    void keep(const std::string& key, const Data& bytes);
    std::filesystem::path freePlace(const std::string& origin) const;
    void dropOld();

    const std::shared_ptr<platform::Clock> clock_;
    const std::shared_ptr<platform::FileSystem> files_;
    const ConflictSpool spool_;
    const std::filesystem::path folder_;
    std::unordered_map<std::string, std::string> origins_;  // by key: "brain/folder/file"
    std::unordered_set<std::string> kept_;                  // key and hash of what this object has kept
};

}  // namespace vorlinden::host
