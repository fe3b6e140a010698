// Brings the table of brains into line with what the user has been granted.
#pragma once

#include <vector>

#include "synckit/server/wire_model.h"

namespace vorlinden {

class MetadataStore;

namespace BrainGrants {

// One transaction under the store's lock. New brains and changed names are written; a brain that is not in
// the list goes with all its nodes, local-only ones included, while its journal and spool entries stay
// behind. A list item whose id is no UUID is passed over. True if the user can see a difference:
// `changes_log` then grew, and the platform is to be told. Throws what the store throws, the table then being
// as it was.
bool apply(const std::vector<Brain>& brains, MetadataStore& store);

}  // namespace BrainGrants

}  // namespace vorlinden
