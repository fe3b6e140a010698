// The brains of a server and who may see them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "linux/server/database.h"
#include "linux/server/storage.h"

namespace vorlinden::server {

struct BrainRow {
    std::int64_t key = 0;
    std::string id;  // a UUID in lower case
    std::string slug;
    std::string name;
    bool granted = true;        // members see it; a brain is granted to all or to nobody
    bool listsFolders = false;  // a snapshot lists every folder, not only the empty ones
};

namespace Brains {

std::vector<BrainRow> all(Database& database);
std::optional<BrainRow> byId(Database& database, const std::string& id);
std::optional<BrainRow> bySlug(Database& database, const std::string& slug);
// The brain of that slug, made and granted if it isn't there. Refuses a slug that couldn't be written before
// a ":".
BrainRow make(WriteTransaction& transaction, const std::string& slug);
void setGranted(WriteTransaction& transaction, const BrainRow& brain, bool granted);
void setListsFolders(WriteTransaction& transaction, const BrainRow& brain, bool listsFolders);
// One for all brains of this server.
std::string teamId(Database& database);

}  // namespace Brains

}  // namespace vorlinden::server
