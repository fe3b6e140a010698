#include "linux/host/tree_path.h"

#include <algorithm>

#include "linux/host/failures.h"

namespace vorlinden::host {
namespace {

namespace fs = std::filesystem;

// `path` as seen from `folder`; absent if it doesn't lie in it.
std::optional<fs::path> below(const fs::path& path, const std::optional<fs::path>& folder) {
    if (!folder) return std::nullopt;
    auto relative = path.lexically_normal().lexically_relative(folder->lexically_normal());
    if (relative.empty() || *relative.begin() == "..") return std::nullopt;
    return relative;
}

std::string inTree(const std::string& text, const TreeSurroundings& around) {
    const fs::path path(text);
    if (auto shown = below(around.workingFolder / path, around.mountPoint)) return shown->string();
    if (path.is_absolute()) throw NoSuchPlace("“" + text + "” is not in the mounted folder.");
    return path.lexically_normal().string();
}

}  // namespace

TreePath treePath(MetadataStore& store, const std::string& text, const TreeSurroundings& surroundings) {
    auto place = inTree(text, surroundings);
    while (place.ends_with('/'))
        place.pop_back();
    const auto slash = place.find('/');
    const auto slug = place.substr(0, slash);
    const auto brains = store.brains();
    const auto brain =
        std::find_if(brains.begin(), brains.end(), [&](const BrainRecord& b) { return b.slug == slug; });
    if (brain == brains.end()) {
        throw NoSuchPlace("There is no brain “" + slug + "”. Paths look like BRAIN/FOLDER/FILE.");
    }
    return {*brain, slash == std::string::npos ? std::string() : place.substr(slash + 1)};
}

}  // namespace vorlinden::host
