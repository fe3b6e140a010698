// A file's bytes on demand: from the spool for what exists only here, else from the server.
#pragma once

#include <memory>

#include "fileprovider/extension_core.h"
#include "fileprovider/types.h"

namespace vorlinden::fileprovider {

// Delivers the current content of a file and the item that belongs to it, as a file in the manager's
// temporary directory. The execution lock is held while record, cursor and retained bytes are read together,
// and not during the download. A failure before the task starts is answered on the calling thread.
std::shared_ptr<Progress> fetchContents(const std::shared_ptr<ExtensionCore>& core,
                                        const ItemIdentifier& identifier, FetchHandler handler);

}  // namespace vorlinden::fileprovider
