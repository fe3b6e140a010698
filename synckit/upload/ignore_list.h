// Names that are never synchronised: what a desktop leaves behind in folders by itself.
#pragma once

#include <string_view>

namespace vorlinden::IgnoreList {

// Whether the last component of `filename` (a bare name or a whole path) is a junk name. Names are compared
// whole and by bytes; a path that ends in "/" has an empty last component and is not junk.
bool isJunk(std::string_view filename);

}  // namespace vorlinden::IgnoreList
