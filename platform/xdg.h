// The XDG base directories of this process's environment, with the defaults that the standard gives. Relative
// paths in the variables are ignored, as the standard demands.
#pragma once

#include <filesystem>
#include <vector>

namespace vorlinden::platform {

std::filesystem::path xdgDataHome();
std::filesystem::path xdgConfigHome();
std::filesystem::path xdgStateHome();
std::filesystem::path xdgCacheHome();
// xdgDataHome() first, then the system's, in falling precedence.
std::vector<std::filesystem::path> xdgDataFolders();

}  // namespace vorlinden::platform
