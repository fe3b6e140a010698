#include "fileprovider/enumerator.h"

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "fileprovider/error_mapping.h"
#include "fileprovider/items.h"

namespace vorlinden::fileprovider {

namespace protocol = platform::fileprovider;

namespace {

SyncAnchor encoded(std::int64_t anchor) {
    return Data(std::to_string(anchor));
}

std::vector<Item> items(const std::vector<SyncItem>& records, MetadataStore& store) {
    std::vector<Item> items;
    items.reserve(records.size());
    for (const SyncItem& record : records)
        items.push_back(FileProviderItem(record, store));
    return items;
}

// The root can't go, whatever the log says.
std::vector<ItemIdentifier> deletions(const std::vector<SyncItemIdentifier>& deleted) {
    std::vector<ItemIdentifier> identifiers;
    identifiers.reserve(deleted.size());
    for (const SyncItemIdentifier& identifier : deleted) {
        if (identifier != SyncItemIdentifier::root()) identifiers.push_back(platformIdentifier(identifier));
    }
    return identifiers;
}

// A change set, read to its end before the observer hears of it.
struct Changes {
    std::vector<Item> updated;
    std::vector<ItemIdentifier> deleted;
    std::int64_t anchor = 0;
};

Changes readChanges(const ItemIdentifier& container, const SyncAnchor& since, MetadataStore& store) {
    const std::int64_t current = store.currentAnchor();
    if (container != workingSetContainerItemIdentifier) return {{}, {}, current};
    const auto anchor = parseDecimal(since.view());
    if (!anchor || *anchor > current) throw providerError(protocol::syncAnchorExpired);
    const ChangeSet changes = store.changes(*anchor);
    return {items(changes.changed, store), deletions(changes.deleted), changes.anchor};
}

// What `read` gives, or the error that the observer is to hear: this is an edge.
template <class Read>
auto guarded(Read read) -> std::variant<decltype(read()), Error> {
    try {
        return read();
    } catch (const Error& error) {
        return error;
    } catch (...) {
        return providerError(protocol::cannotSynchronize);
    }
}

}  // namespace

FileProviderEnumerator::FileProviderEnumerator(ItemIdentifier container, std::shared_ptr<MetadataStore> store)
    : containerIdentifier_(std::move(container)), store_(std::move(store)) {}

void FileProviderEnumerator::enumerateItems(EnumerationObserver& observer, std::optional<Page>) {
    const auto parent = syncIdentifier(containerIdentifier_);
    if (!parent) return observer.finishEnumerating({});
    auto listing = guarded([&] { return items(store_->enumerate(*parent), *store_); });
    if (auto* error = std::get_if<Error>(&listing)) return observer.finishEnumeratingWithError(*error);
    observer.didEnumerateItems(std::get<std::vector<Item>>(std::move(listing)));
    observer.finishEnumerating({});
}

void FileProviderEnumerator::enumerateChanges(ChangeObserver& observer, const SyncAnchor& anchor) {
    auto outcome = guarded([&] { return readChanges(containerIdentifier_, anchor, *store_); });
    if (auto* error = std::get_if<Error>(&outcome)) return observer.finishEnumeratingWithError(*error);
    Changes& changes = std::get<Changes>(outcome);
    if (!changes.updated.empty()) observer.didUpdateItems(std::move(changes.updated));
    if (!changes.deleted.empty()) observer.didDeleteItems(std::move(changes.deleted));
    observer.finishEnumeratingChanges(encoded(changes.anchor), false);
}

void FileProviderEnumerator::currentSyncAnchor(
    const std::function<void(std::optional<SyncAnchor>)>& handler) {
    const auto anchor = guarded([&] { return store_->currentAnchor(); });
    const auto* known = std::get_if<std::int64_t>(&anchor);
    handler(known ? std::optional(encoded(*known)) : std::nullopt);
}

}  // namespace vorlinden::fileprovider
