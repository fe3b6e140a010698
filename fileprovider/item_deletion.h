// An item that the user removed.
#pragma once

#include <memory>

#include "fileprovider/extension_core.h"
#include "fileprovider/types.h"

namespace vorlinden::fileprovider {

// A folder goes with all that is under it. The catalogue lets go of what the server has only once the server
// has agreed; a refusal is a success that leaves the item there, with the reason.
std::shared_ptr<Progress> deleteItem(const std::shared_ptr<ExtensionCore>& core,
                                     const ItemIdentifier& identifier, DeleteHandler handler);

}  // namespace vorlinden::fileprovider
