// Content types of files by the shared MIME database (freedesktop.org shared-mime-info).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorlinden::platform {

// A type's MIME name, opaque to the library but for these questions.
struct FileType {
    std::string name;
    bool operator==(const FileType&) const = default;

    static FileType folder();  // inode/directory
    static FileType data();    // application/octet-stream
    // The type for a file name extension (without the dot) that conforms to data; absent if the database has
    // none.
    static std::optional<FileType> forExtension(std::string_view extension);

    bool isDirectory() const { return *this == folder(); }
};

// What follows the last "." of a file name; empty where there is no dot, or the dot is the first or last
// byte.
std::string pathExtension(std::string_view filename);

}  // namespace vorlinden::platform
