// What every writer of the tree must agree on: ancestors of a path, and the rows of nodes that the server has
// not named. Pure but for the random source; any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/seams.h"
#include "synckit/catalogue/records.h"
#include "synckit/types.h"

namespace vorlinden {

// The folders above `path`, shallowest first.
std::vector<std::string_view> properAncestors(std::string_view path);

std::string_view lastComponent(std::string_view path);

// Whether `path` lies below `folder`.
bool isBelow(std::string_view path, std::string_view folder);

// The row of a folder without an identifier of the server's.
NodeRecord derivedDirectory(const UUID& brainId, std::string_view path, Timestamp updatedAt);

// The identifier of a file without one of the server's.
std::string freshLocalId(platform::Random& random);
bool isLocalId(std::string_view nodeId);

}  // namespace vorlinden
