#include "linux/mount/extension_reader.h"

#include <iterator>
#include <memory>
#include <utility>

namespace vorlinden::mount {

namespace {

namespace fp = platform::fileprovider;

template <class T>
void append(std::vector<T>& all, std::vector<T> more) {
    all.insert(all.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

struct ItemCollector final : fp::EnumerationObserver {
    std::vector<Item> items;
    std::optional<Error> failure;

    void didEnumerateItems(std::vector<Item> more) override { append(items, std::move(more)); }
    void finishEnumerating(std::optional<fp::Page>) override {}
    void finishEnumeratingWithError(Error error) override { failure = std::move(error); }
};

struct ChangeCollector final : fp::ChangeObserver {
    WorkingSetChanges changes;
    std::optional<Error> failure;
    bool moreComing = false;

    void didUpdateItems(std::vector<Item> items) override { append(changes.updated, std::move(items)); }
    void didDeleteItems(std::vector<ItemIdentifier> identifiers) override {
        append(changes.deleted, std::move(identifiers));
    }
    void finishEnumeratingChanges(SyncAnchor anchor, bool more) override {
        changes.anchor = std::move(anchor);
        moreComing = more;
    }
    void finishEnumeratingWithError(Error error) override { failure = std::move(error); }
};

[[noreturn]] void failForWantOfAnswer() {
    throw Error(fp::errorDomain, fp::cannotSynchronize, "The extension gave no answer.");
}

std::shared_ptr<fp::Enumerator> workingSet(ReplicatedExtension& extension) {
    return extension.enumeratorForContainer(fp::workingSetContainerItemIdentifier, {});
}

}  // namespace

std::vector<Item> listContainer(ReplicatedExtension& extension, const ItemIdentifier& container) {
    ItemCollector collector;
    extension.enumeratorForContainer(container, {})->enumerateItems(collector, std::nullopt);
    if (collector.failure) throw *std::move(collector.failure);
    return std::move(collector.items);
}

std::optional<Item> lookUpItem(ReplicatedExtension& extension, const ItemIdentifier& identifier) {
    std::optional<Item> found;
    std::optional<Error> failure;
    extension.itemForIdentifier(identifier, {}, [&](std::optional<Item> item, std::optional<Error> error) {
        found = std::move(item);
        failure = std::move(error);
    });
    if (failure && failure->domain == fp::errorDomain && failure->code == fp::noSuchItem) return std::nullopt;
    if (failure) throw *std::move(failure);
    return found;
}

SyncAnchor currentAnchor(ReplicatedExtension& extension) {
    std::optional<SyncAnchor> current;
    workingSet(extension)->currentSyncAnchor(
        [&](std::optional<SyncAnchor> anchor) { current = std::move(anchor); });
    if (!current) failForWantOfAnswer();
    return *std::move(current);
}

WorkingSetChanges changesSince(ReplicatedExtension& extension, const SyncAnchor& anchor) {
    WorkingSetChanges all{{}, {}, anchor};
    const auto enumerator = workingSet(extension);
    bool more = true;
    while (more) {
        ChangeCollector collector;
        enumerator->enumerateChanges(collector, all.anchor);
        if (collector.failure) throw *std::move(collector.failure);
        append(all.updated, std::move(collector.changes.updated));
        append(all.deleted, std::move(collector.changes.deleted));
        all.anchor = std::move(collector.changes.anchor);
        more = collector.moreComing;
    }
    return all;
}

}  // namespace vorlinden::mount
