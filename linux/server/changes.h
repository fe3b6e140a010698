// What a client that knows a brain up to some cursor is told.
#pragma once

#include <optional>
#include <string>

#include "linux/server/brains.h"
#include "linux/server/database.h"

namespace vorlinden::server {

// The changes response as JSON: all entries after the cursor, up to the head; or the whole tree as a reset
// when there is no cursor, or none that is still known.
std::string changesSince(Database& database, const BrainRow& brain, const std::optional<std::string>& cursor);

}  // namespace vorlinden::server
