#include "synckit/apply/tree_rules.h"

namespace vorlinden {

namespace {

constexpr std::string_view localPrefix = "local:";

}  // namespace

std::vector<std::string_view> properAncestors(std::string_view path) {
    std::vector<std::string_view> ancestors;
    for (auto slash = path.find('/', 1); slash != std::string_view::npos; slash = path.find('/', slash + 1))
        ancestors.push_back(path.substr(0, slash));
    return ancestors;
}

std::string_view lastComponent(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

bool isBelow(std::string_view path, std::string_view folder) {
    return path.size() > folder.size() && path[folder.size()] == '/' && path.starts_with(folder);
}

NodeRecord derivedDirectory(const UUID& brainId, std::string_view path, Timestamp updatedAt) {
    NodeRecord folder;
    folder.brainId = brainId;
    folder.nodeId = NodeRecord::derivedDirectoryId(path);
    folder.path = path;
    folder.title = lastComponent(path);
    folder.isDirectory = true;
    folder.updatedAt = updatedAt;
    return folder;
}

std::string freshLocalId(platform::Random& random) {
    return std::string(localPrefix) + UUID::random(random).upperText();
}

bool isLocalId(std::string_view nodeId) {
    return nodeId.starts_with(localPrefix);
}

}  // namespace vorlinden
