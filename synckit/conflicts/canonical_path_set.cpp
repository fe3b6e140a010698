#include "synckit/conflicts/canonical_path_set.h"

#include "platform/text.h"

namespace vorlinden {

CanonicalPathSet::CanonicalPathSet(std::initializer_list<std::string_view> paths) {
    for (const auto path : paths)
        insert(path);
}

void CanonicalPathSet::insert(std::string_view path) {
    composed_.insert(platform::composed(path));
}

bool CanonicalPathSet::contains(std::string_view path) const {
    return composed_.contains(platform::composed(path));
}

}  // namespace vorlinden
