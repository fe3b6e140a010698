#include "fileprovider/enumerator.h"

#include <gtest/gtest.h>

#include "fileprovider/error_mapping.h"
#include "fileprovider/items.h"
#include "tests/support/catalogue.h"

namespace vorlinden::fileprovider {
namespace {

namespace protocol = platform::fileprovider;
using tests::brainRecord;
using tests::fileNode;
using tests::folderNode;

std::string joined(const std::vector<Item>& items) {
    std::string names;
    for (const Item& item : items)
        names += (names.empty() ? "" : ",") + item.filename;
    return names;
}

// Every call in words, in order.
struct Observer final : EnumerationObserver, ChangeObserver {
    std::vector<std::string> calls;

    void didEnumerateItems(std::vector<Item> items) override { calls.push_back("items " + joined(items)); }
    void finishEnumerating(std::optional<Page> next) override { calls.push_back(next ? "page" : "finished"); }
    void didUpdateItems(std::vector<Item> items) override { calls.push_back("updated " + joined(items)); }
    void didDeleteItems(std::vector<ItemIdentifier> identifiers) override {
        for (const ItemIdentifier& identifier : identifiers)
            calls.push_back("deleted " + identifier);
    }
    void finishEnumeratingChanges(SyncAnchor anchor, bool moreComing) override {
        calls.push_back("anchor " + std::string(anchor.view()) + (moreComing ? " more" : ""));
    }
    void finishEnumeratingWithError(Error error) override {
        calls.push_back("error " + std::to_string(error.code));
    }
};
using Calls = std::vector<std::string>;

class EnumeratorTest : public testing::Test {
 protected:
    Calls itemsOf(const ItemIdentifier& container) {
        Observer observer;
        FileProviderEnumerator(container, catalogue.store()).enumerateItems(observer, Page{});
        return observer.calls;
    }
    Calls changesOf(const ItemIdentifier& container, std::string_view anchor) {
        Observer observer;
        FileProviderEnumerator(container, catalogue.store()).enumerateChanges(observer, Data::copyOf(anchor));
        return observer.calls;
    }
    std::optional<SyncAnchor> anchor() {
        std::optional<SyncAnchor> heard = Data::copyOf("never called");
        FileProviderEnumerator(workingSetContainerItemIdentifier, catalogue.store())
            .currentSyncAnchor([&](auto current) { heard = std::move(current); });
        return heard;
    }
    std::int64_t log(const SyncItemIdentifier& identifier, bool deleted) {
        return catalogue->appendChange(identifier, deleted);
    }

    tests::Catalogue catalogue;
    const UUID brain = tests::numberedUUID(1);
};

TEST_F(EnumeratorTest, ListingsComeWholeInTheStoresOrder) {
    catalogue->upsertBrain(brainRecord(brain, "team"));
    catalogue->upsertBrain(brainRecord(tests::numberedUUID(2), "art"));
    const NodeRecord folder = folderNode(brain, "Empty");
    catalogue->upsert(folder);
    catalogue->upsert(fileNode(brain, "b.md"));
    catalogue->upsert(fileNode(brain, "a.md"));

    std::string brains, children;
    for (const SyncItem& item : catalogue->enumerate(SyncItemIdentifier::root()))
        brains += (brains.empty() ? "" : ",") + std::get<BrainRecord>(item.value).slug;
    for (const SyncItem& item : catalogue->enumerate(SyncItemIdentifier::brain(brain)))
        children += (children.empty() ? "" : ",") + std::get<NodeRecord>(item.value).filename();
    EXPECT_EQ(itemsOf(rootContainerItemIdentifier), (Calls{"items " + brains, "finished"}));
    EXPECT_EQ(itemsOf(SyncItemIdentifier::brain(brain).rawValue()), (Calls{"items " + children, "finished"}));
    EXPECT_EQ(itemsOf(folder.identifier().rawValue()), (Calls{"items ", "finished"}));
}

TEST_F(EnumeratorTest, ContainersWithoutAListingEndAtOnce) {
    for (const ItemIdentifier& container :
         {workingSetContainerItemIdentifier, trashContainerItemIdentifier, ItemIdentifier("nonsense")}) {
        EXPECT_EQ(itemsOf(container), Calls{"finished"}) << container;
    }
}

TEST_F(EnumeratorTest, ChangesComeUpdatesFirstThenDeletionsThenTheAnchor) {
    catalogue->upsertBrain(brainRecord(brain));
    const NodeRecord kept = fileNode(brain, "kept.md");
    const auto gone = SyncItemIdentifier::node(brain, "gone");
    catalogue->upsert(kept);
    const std::string before(anchor()->view());
    log(gone, true);
    log(SyncItemIdentifier::root(), true);
    const std::int64_t last = log(kept.identifier(), false);

    EXPECT_EQ(changesOf(workingSetContainerItemIdentifier, before),
              (Calls{"updated kept.md", "deleted " + gone.rawValue(), "anchor " + std::to_string(last)}));
    EXPECT_EQ(changesOf(workingSetContainerItemIdentifier, std::to_string(last)),
              Calls{"anchor " + std::to_string(last)});
    EXPECT_EQ(changesOf(workingSetContainerItemIdentifier, "+" + std::to_string(last)),
              Calls{"anchor " + std::to_string(last)});
}

TEST_F(EnumeratorTest, AnAnchorThatNobodyGaveHasExpired) {
    const std::int64_t current = log(SyncItemIdentifier::brain(brain), true);
    for (const std::string& anchor : {std::to_string(current + 1), std::string(), std::string("x"),
                                      std::string("1 "), std::string(30, '1')}) {
        EXPECT_EQ(changesOf(workingSetContainerItemIdentifier, anchor), Calls{"error -1002"}) << anchor;
        // A folder never has news of its own, whatever it is asked.
        EXPECT_EQ(changesOf(rootContainerItemIdentifier, anchor), Calls{"anchor " + std::to_string(current)});
    }
}

TEST_F(EnumeratorTest, AFailingCatalogueGivesAnErrorAndNothingElse) {
    catalogue->upsertBrain(brainRecord(brain));
    catalogue->upsert(fileNode(brain, "a.md"));
    log(SyncItemIdentifier::brain(brain), false);
    catalogue.execute("DROP TABLE nodes");
    EXPECT_EQ(itemsOf(SyncItemIdentifier::brain(brain).rawValue()), Calls{"error -2005"});
    catalogue.execute("DROP TABLE changes_log");
    EXPECT_EQ(changesOf(workingSetContainerItemIdentifier, "0"), Calls{"error -2005"});
    EXPECT_EQ(changesOf(rootContainerItemIdentifier, "0"), Calls{"error -2005"});
    EXPECT_EQ(anchor(), std::nullopt);
}

}  // namespace
}  // namespace vorlinden::fileprovider
