#include "fileprovider/item_modification.h"

#include <optional>
#include <string>
#include <utility>

#include "fileprovider/item_content.h"
#include "fileprovider/item_move.h"
#include "fileprovider/items.h"
#include "fileprovider/node_lookup.h"

namespace vorlinden::fileprovider {

namespace protocol = platform::fileprovider;

namespace {

struct Modification {
    ItemIdentifier identifier;
    std::optional<std::string> filename;   // absent: unchanged
    std::optional<ItemIdentifier> parent;  // absent: unchanged
    bool changesContent = false;
    HandedContent content;
    std::optional<std::int64_t> baseVersion;  // absent: counts as current
};

Modification modificationOf(const ExtensionCore& core, const Item& item, const ItemVersion& baseVersion,
                            std::uint32_t changedFields, const Contents& contents) {
    Modification change;
    change.identifier = item.itemIdentifier;
    if (changedFields & protocol::filenameField) change.filename = item.filename;
    if (changedFields & protocol::parentItemIdentifierField) change.parent = item.parentItemIdentifier;
    change.changesContent = changedFields & protocol::contentsField;
    if (change.changesContent && contents) change.content = HandedContent(core.system().files, *contents);
    change.baseVersion = baseContentVersion(baseVersion);
    return change;
}

Task<ItemWriteResult> modify(CorePtr core, Modification change) {
    const WriteContext context = makeWriteContext(*core);
    change.content.requireReadable();
    NodeRecord record = requireNode(change.identifier, *context.store);
    bool fetchContent = false;
    if (change.changesContent && !record.isDirectory) {
        auto edit = co_await applyContentEdit(core, context, record, change.baseVersion, change.content);
        record = std::move(edit.record);
        fetchContent = edit.fetchContent;
    }
    if (change.filename || change.parent)
        record = co_await applyNameAndParent(core, context, record, change.filename, change.parent);
    co_return ItemWriteResult{FileProviderItem(SyncItem{record}, *context.store), fetchContent};
}

}  // namespace

std::shared_ptr<Progress> modifyItem(const CorePtr& core, const Item& item, const ItemVersion& baseVersion,
                                     std::uint32_t changedFields, const Contents& contents,
                                     WriteHandler handler) {
    auto change = modificationOf(*core, item, baseVersion, changedFields, contents);
    const ItemWrite write = [core, change = std::move(change)] { return modify(core, change); };
    return core->track([core, parent = item.parentItemIdentifier, identifier = item.itemIdentifier, write,
                        reply = makeReply(std::move(handler))] {
        return performWrite(core, {parent}, identifier, write, reply);
    });
}

}  // namespace vorlinden::fileprovider
