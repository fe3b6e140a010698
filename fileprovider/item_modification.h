// A change of an item that is there: its content, its name, its parent, or any mix of them.
#pragma once

#include <cstdint>
#include <memory>

#include "fileprovider/extension_core.h"
#include "fileprovider/types.h"

namespace vorlinden::fileprovider {

// Content first, then name and parent, in one hold of the execution lock and with one reply. Other fields are
// ignored: such a change is answered with the item as the catalogue has it. If the second stage fails, the
// first stands all the same.
std::shared_ptr<Progress> modifyItem(const std::shared_ptr<ExtensionCore>& core, const Item& item,
                                     const ItemVersion& baseVersion, std::uint32_t changedFields,
                                     const Contents& contents, WriteHandler handler);

}  // namespace vorlinden::fileprovider
