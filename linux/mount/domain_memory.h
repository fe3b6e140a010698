// How far a domain's changes have been read, remembered across restarts of the daemon.
#pragma once

#include <filesystem>
#include <vector>

#include "platform/fileprovider/protocol.h"
#include "platform/files.h"

namespace vorlinden::mount {

// A value.
struct DomainMemory {
    platform::fileprovider::SyncAnchor anchor;
    // Items that hang right under a brain and may be in no listing: only a change tells of them, once.
    std::vector<platform::fileprovider::ItemIdentifier> strays;
    bool operator==(const DomainMemory&) const = default;
};

// The memory of a daemon that has read nothing yet. Its anchor stands before all changes, for an extension
// that counts them; another finds it expired, and the daemon enumerates instead.
DomainMemory freshMemory();

// A fresh memory if there is none or it can't be read: then more is read than need be, and nothing is missed.
DomainMemory loadMemory(platform::FileSystem& files, const std::filesystem::path& file);
// Not flushed: an older memory that a crash brings back only means to read something twice. Throws FileError.
void saveMemory(platform::FileSystem& files, const std::filesystem::path& file, const DomainMemory& memory);

}  // namespace vorlinden::mount
