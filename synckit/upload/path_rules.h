// What a path inside a brain may look like. Pure functions, any thread.
#pragma once

#include <string_view>

namespace vorlinden::PathRules {

// Whether the server would take `path` as it stands: text (UTF-8), not empty, no backslash, no NUL, no
// component that is empty, "." or "..". Nothing is normalised and no length is limited.
bool isNormalizedWritePath(std::string_view path);

// Whether two different paths would be one on a file system that folds case or composes Unicode.
bool conflictsCaseInsensitively(std::string_view a, std::string_view b);

}  // namespace vorlinden::PathRules
