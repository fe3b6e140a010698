// A file or folder that the user made.
#pragma once

#include <memory>

#include "fileprovider/extension_core.h"
#include "fileprovider/types.h"

namespace vorlinden::fileprovider {

// Files go to the server; folders, junk names and what is too large or refused for good get an item that
// stays here, the latter with an upload error. A file under a folder that is read-only for this user becomes
// a conflict copy, whose item is the reply.
std::shared_ptr<Progress> createItem(const std::shared_ptr<ExtensionCore>& core, const ItemTemplate& item,
                                     const Contents& contents, WriteHandler handler);

}  // namespace vorlinden::fileprovider
