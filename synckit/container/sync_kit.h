// The library's own name tag.
#pragma once

#include <string>

namespace vorlinden::SyncKit {

inline const std::string version = "0.1.0";

}  // namespace vorlinden::SyncKit
