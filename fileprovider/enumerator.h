// Listings and changes of the catalogue, as the daemon asks for them.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "fileprovider/types.h"
#include "synckit/catalogue/metadata_store.h"

namespace vorlinden::fileprovider {

// A thin reader over the catalogue: no server, no execution lock, no state of its own, any thread. Only the
// working set knows of changes, and only folders have a listing; every reply comes whole, in one call of each
// kind, or is an error and nothing else.
//
// A sync anchor is the catalogue's change-log position as decimal text. One that doesn't read, or lies ahead
// of the log (the catalogue was replaced), has expired.
class FileProviderEnumerator final : public Enumerator {
 public:
    FileProviderEnumerator(ItemIdentifier container, std::shared_ptr<MetadataStore> store);

    void enumerateItems(EnumerationObserver& observer, std::optional<Page> page) override;
    void enumerateChanges(ChangeObserver& observer, const SyncAnchor& anchor) override;
    void currentSyncAnchor(const std::function<void(std::optional<SyncAnchor>)>& handler) override;
    void invalidate() override {}  // a running enumeration goes on to its end

 private:
    const ItemIdentifier containerIdentifier_;
    const std::shared_ptr<MetadataStore> store_;
};

}  // namespace vorlinden::fileprovider
