// Names for folders whose items can't all be shown under their own.
//
// An item may be called what no folder can show, or like another item of its folder. Nothing is hidden for
// that: such an item gets a substitute, made from its name and identifier alone, so that it is the same after
// a restart and whatever comes and goes beside it. Pure functions, any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vorlinden::mount {

inline constexpr std::size_t maximumNameBytes = 255;

// Whether the kernel takes it as a name: not empty, ".", "..", over 255 bytes, nor with a "/" or NUL in it.
bool canBeShown(std::string_view name);

struct NamedItem {
    std::string_view name;
    std::string_view identifier;
    bool stray = false;  // not in its folder's own listing: gives way to one that is
};

// The names under which items of one folder are shown, in the order given: all different, each its true name
// wherever that can be.
std::vector<std::string> shownNames(const std::vector<NamedItem>& items);

}  // namespace vorlinden::mount
