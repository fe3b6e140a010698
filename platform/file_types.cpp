#include "platform/file_types.h"

#include "platform/mime_globs.h"

namespace vorlinden::platform {

FileType FileType::folder() {
    return {"inode/directory"};
}

FileType FileType::data() {
    return {"application/octet-stream"};
}

std::optional<FileType> FileType::forExtension(std::string_view extension) {
    static const MimeGlobs globs = MimeGlobs::ofSystem();
    std::optional<std::string> type = globs.typeFor(extension);
    // Types of the kind "inode/..." are of things that hold no bytes.
    if (!type || type->starts_with("inode/")) return std::nullopt;
    return FileType{std::move(*type)};
}

std::string pathExtension(std::string_view filename) {
    const std::size_t dot = filename.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == filename.size()) return {};
    return std::string(filename.substr(dot + 1));
}

}  // namespace vorlinden::platform
