#include "synckit/upload/path_rules.h"

#include "platform/text.h"

namespace vorlinden::PathRules {

namespace {

std::string folded(std::string_view path) {
    return platform::composed(platform::caseFolded(path));
}

}  // namespace

bool isNormalizedWritePath(std::string_view path) {
    if (path.find_first_of(std::string_view("\\\0", 2)) != std::string_view::npos) return false;
    if (!platform::isValidUTF8(path))
        return false;  // a name of the local disk may be any bytes; JSON holds text
    for (auto rest = path;;) {
        const auto slash = rest.find('/');
        const auto piece = rest.substr(0, slash);
        if (piece.empty() || piece == "." || piece == "..") return false;
        if (slash == std::string_view::npos) return true;
        rest.remove_prefix(slash + 1);
    }
}

bool conflictsCaseInsensitively(std::string_view a, std::string_view b) {
    return a != b && folded(a) == folded(b);
}

}  // namespace vorlinden::PathRules
