// Makes a brain of a real folder, and brings it up to date when the folder has changed.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "linux/server/storage.h"

namespace vorlinden::server {

// What an import did and what it left out, in files and folders.
struct ImportReport {
    std::string slug;
    std::int64_t added = 0;
    std::int64_t changed = 0;
    std::int64_t deleted = 0;
    std::int64_t unchanged = 0;
    std::int64_t kept = 0;           // changed in the folder and on the server: the server's stays
    std::int64_t links = 0;          // skipped, as is all below
    std::int64_t special = 0;        // sockets, devices, pipes
    std::int64_t unreadable = 0;     // files and folders
    std::int64_t unusableNames = 0;  // junk, not UTF-8, with a backslash, or too long a path

    std::int64_t skipped() const { return links + special + unreadable + unusableNames; }
};

// One sentence for a person.
std::string summary(const ImportReport& report);

// Compares the folder with what the last import brought, and sends what is new, changed or gone, in entries
// of some hundred ops. What members have made or changed on the server since is theirs and stays. Makes the
// brain if it isn't there. Throws platform::FileError if the folder itself can't be read.
ImportReport importFolder(Storage& storage, const std::string& slug, const std::filesystem::path& folder,
                          std::int64_t keepFeed);

}  // namespace vorlinden::server
