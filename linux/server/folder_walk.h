// What lies in a real folder and can become nodes of a brain.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "linux/server/contents.h"
#include "linux/server/importer.h"

namespace vorlinden::server {

// The findings of one walk. Paths are relative to the folder, in the form that brains use.
struct FolderWalk {
    std::set<std::string> files;
    std::set<std::string> folders;
    std::set<std::string> unreadable;  // files or folders; what lies below isn't known

    // Looks at the whole tree, follows no link, reads no file, and counts in `report` what it leaves out.
    // Throws platform::FileError if `folder` itself can't be read.
    static FolderWalk of(const std::filesystem::path& folder, ImportReport& report);
    bool isKnown(const std::string& path) const;  // false for what is, or lies in something, unreadable
};

// Reads a whole file; false if it can't be read or isn't an ordinary file any more.
bool readInto(IncomingContent& content, const std::filesystem::path& file);

}  // namespace vorlinden::server
