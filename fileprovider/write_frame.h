// The frame in which every write runs: alone among all sync work, with what it needs read anew, and followed
// by the same three steps whatever came of it: the daemon hears which containers changed, the host is woken
// (what stayed in the journal is its to finish), the handler is answered.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fileprovider/extension_core.h"
#include "fileprovider/reply.h"
#include "fileprovider/types.h"
#include "synckit/conflicts/conflict_resolver.h"
#include "synckit/conflicts/conflict_spool.h"

namespace vorlinden::fileprovider {

using CorePtr = std::shared_ptr<ExtensionCore>;

// What one write works with; made under the execution lock and gone with the write, so that what the host
// changes (device, inbox) counts from the next one on.
struct WriteContext {
    std::shared_ptr<MetadataStore> store;
    std::string deviceId;
    std::string deviceName;
    std::optional<UUID> inboxBrainId;  // where files made at the root go
    ConflictSpool spool;
    std::shared_ptr<ConflictResolver> resolver;
};

// Throws notAuthenticated without a session or a device, cannotSynchronize without a catalogue, and what the
// store throws.
WriteContext makeWriteContext(ExtensionCore& core);

struct ItemWriteResult {
    Item item;
    bool fetchContent = false;  // the daemon's bytes aren't the item's any more
};

using ItemWrite = std::function<Task<ItemWriteResult>()>;
using WriteReply = std::shared_ptr<Reply<WriteHandler>>;

// The frame of a create (no `itemIdentifier`) and of a modify. Signals `containers`, the item's parent before
// the write and its parent after it.
Task<> performWrite(CorePtr core, std::vector<ItemIdentifier> containers,
                    std::optional<ItemIdentifier> itemIdentifier, ItemWrite write, WriteReply reply);

// The frame's two halves, for a write with a reply of its own. The first gives why `write` failed, or null.
Task<std::exception_ptr> runOwned(CorePtr core, std::function<Task<>()> write);
Task<> announceWrite(CorePtr core, std::vector<ItemIdentifier> containers);

// The catalogue's clock.
Timestamp now(const ExtensionCore& core);

}  // namespace vorlinden::fileprovider
