#include "synckit/upload/ignore_list.h"

#include <algorithm>
#include <array>

using namespace std::string_view_literals;

namespace vorlinden::IgnoreList {

bool isJunk(std::string_view filename) {
    static constexpr std::array names{".DS_Store"sv, ".localized"sv, "Icon\r"sv, ".gitkeep"sv};
    const auto last = filename.substr(filename.rfind('/') + 1);  // npos + 1 is 0
    return std::ranges::find(names, last) != names.end();
}

}  // namespace vorlinden::IgnoreList
