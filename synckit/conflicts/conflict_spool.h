// The bytes that must outlive a process, beside the catalogue: edits and copies that wait for upload, and the
// content of files that exist only here.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files.h"
#include "synckit/types.h"

namespace vorlinden {

namespace platform {
struct System;
}

class MetadataStore;

// A value over one folder: one file per key, holding the bytes and nothing else; that a file exists is the
// truth. Any thread, any process; the atomic write is the only protection between them. The folder is made by
// the first write. Operations block and throw FileError.
class ConflictSpool {
 public:
    ConflictSpool(std::shared_ptr<platform::FileSystem> files, std::filesystem::path directory);
    // The spool in the shared container. Throws MetadataStoreError::containerUnavailable.
    static ConflictSpool inAppGroup(const platform::System& system);

    static std::string editKey(std::int64_t journalId);
    static std::string copyKey(std::int64_t journalId);
    static std::string nodeKey(std::string_view nodeId);
    // The node whose key this is; absent for any other name.
    static std::optional<std::string> nodeIdOf(std::string_view key);

    const std::filesystem::path& directory() const { return directory_; }

    void write(const Data& bytes, const std::string& key) const;
    std::optional<Data> read(const std::string& key) const;  // absent if there is no such entry
    bool exists(const std::string& key) const;
    void remove(const std::string& key) const;  // no entry, no failure

    // A journal row has one entry: each of these removes the other kind first.
    void writeNewEdit(const Data& bytes, std::int64_t journalId) const;
    void writeNewCopy(const Data& bytes, std::int64_t journalId) const;
    // writeNewCopy() without making the entry durable: flush() does so for many entries at once.
    void stageNewCopy(const Data& bytes, std::int64_t journalId) const;
    void flush(const std::vector<std::string>& keys) const;
    // The edit entry of a journal row, else its copy entry.
    std::optional<Data> pendingBytes(std::int64_t journalId) const;

    // Removes the entries that no journal row and no node can reach any more, under the store's lock and
    // write transaction, so that no row appears meanwhile. Names of other forms stay. The first removal that
    // fails ends the sweep.
    void prune(MetadataStore& store) const;
    // What prune() would remove: for a host that keeps the bytes elsewhere first.
    std::vector<std::string> unreachable(MetadataStore& store) const;

 private:
    std::filesystem::path file(const std::string& key) const { return directory_ / key; }

    std::shared_ptr<platform::FileSystem> files_;
    std::filesystem::path directory_;
};

}  // namespace vorlinden
