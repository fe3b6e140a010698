#include <set>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include "platform/system.h"
#include "tests/support/catalogue.h"

namespace vorlinden::tests {
namespace {

const UUID brainA = numberedUUID(1);
const UUID brainB = numberedUUID(2);
using Paths = std::vector<std::string>;

TEST(MetadataStoreOpening, MakesItsFolderAndFindsTheGroupsContainer) {
    TemporaryFolder folder;
    const auto file = folder / "Library" / "Application Support" / "Vorlinden" / "sync.sqlite";
    EXPECT_EQ(MetadataStore::databaseURL(folder.path()), file);
    EXPECT_THROW(MetadataStore(file.string()), SQLiteError);  // the plain path makes no folder

    platform::System system;
    system.files = platform::posixFileSystem();
    system.groupContainer = [&](const std::string& group) {
        return group == "known" ? std::optional(folder.path()) : std::nullopt;
    };
    EXPECT_TRUE(MetadataStore::openInAppGroup(system, "known")->brains().empty());
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_THROW(MetadataStore::openInAppGroup(system, "other"), MetadataStoreError);
    EXPECT_THROW(MetadataStore::open(file / "under a file" / "sync.sqlite"), FileError);
}

class StoreReads : public testing::Test {
 protected:
    StoreReads() {
        store_->upsertBrain(brainRecord(brainA, "alpha"));
        for (const char* path : {"a", "a/b", "a/b/c", "ä", "ä/漢"})
            store_->upsert(folderNode(brainA, path));
        for (const char* path :
             {"a-b", "a.b", "a0", "a/x.md", "a/b/c/deep.md", "top.md", "ä/é.md", "ä/漢/é.md"})
            store_->upsert(fileNode(brainA, path));
        store_->upsert(fileNode(brainB, "a/other brain.md"));
    }
    // What a read that must fail says of the row.
    template <class Read>
    std::string corruption(Read read) {
        try {
            read();
        } catch (const MetadataStoreError& error) {
            return std::get<MetadataStoreError::CorruptRow>(error.reason).text;
        }
        return "";
    }

    Catalogue store_;
};

TEST_F(StoreReads, RangesFollowThePathAndNothingBesideIt) {
    EXPECT_EQ(paths(store_->children(brainA, "")), (Paths{"a", "a-b", "a.b", "a0", "top.md", "ä"}));
    EXPECT_EQ(paths(store_->children(brainA, "ä")), (Paths{"ä/é.md", "ä/漢"}));
    EXPECT_EQ(paths(store_->subtree(brainA, "a/b")), (Paths{"a/b", "a/b/c", "a/b/c/deep.md"}));
    EXPECT_EQ(paths(store_->subtree(brainA, "a/x.md")), (Paths{"a/x.md"}));
    EXPECT_EQ(paths(store_->subtree(brainA, "missing")), Paths{});
    const auto all = store_->allNodes(brainA);
    EXPECT_EQ(all.size(), 13u);
    EXPECT_EQ(store_->subtree(brainA, ""), all);
    EXPECT_EQ(store_->descendants(brainA, ""), all);
}

TEST_F(StoreReads, EnumeratesAndFindsItemsAndTheirParents) {
    const auto node = [](std::string id) { return SyncItemIdentifier::node(brainA, std::move(id)); };
    const auto file = fileNode(brainA, "a/x.md");
    store_->upsertBrain(brainRecord(brainB, "a first"));
    EXPECT_EQ(store_->enumerate(SyncItemIdentifier::root()),
              (std::vector<SyncItem>{{brainRecord(brainB, "a first")}, {brainRecord(brainA, "alpha")}}));
    EXPECT_EQ(store_->enumerate(SyncItemIdentifier::brain(brainA)).size(), 6u);
    EXPECT_EQ(store_->enumerate(node("dir:a")).at(1), SyncItem{file});
    EXPECT_TRUE(store_->enumerate(node("id:top.md")).empty());
    EXPECT_EQ(store_->record(file.identifier()), SyncItem{file});
    EXPECT_EQ(store_->record(SyncItemIdentifier::root()), std::nullopt);
    EXPECT_EQ(store_->nodeByPath(brainB, "a/x.md"), std::nullopt);
    EXPECT_EQ(store_->parentIdentifier(file), node("dir:a"));
    for (const auto* path : {"top.md", "gone/x"})
        EXPECT_EQ(store_->parentIdentifier(fileNode(brainA, path)), SyncItemIdentifier::brain(brainA));
}

TEST_F(StoreReads, OneUnreadableRowFailsTheReadAndTheFirstFaultIsNamed) {
    const auto nodes = [&] { return corruption([&] { store_->allNodes(brainA); }); };
    const auto journal = [&] { return corruption([&] { store_->pendingChanges(std::nullopt); }); };
    EXPECT_EQ(nodes(), "");
    store_.execute("UPDATE nodes SET updated_at = '2024-01-01T00:00:00Z' WHERE path = 'top.md'");
    EXPECT_EQ(nodes(), "invalid date \"2024-01-01T00:00:00Z\"");
    store_.execute("UPDATE nodes SET kind = 'film' WHERE path = 'top.md'");
    EXPECT_EQ(nodes(), "invalid node kind \"film\"");
    store_.execute(
        "INSERT INTO pending_changes (brain_id, change_kind, path, created_at) VALUES ('x', 'y', 'p', 'z')");
    EXPECT_EQ(journal(), "invalid change kind \"y\"");
    store_.execute("UPDATE pending_changes SET change_kind = 'delete'");
    EXPECT_EQ(journal(), "invalid UUID \"x\"");
    store_.execute("UPDATE pending_changes SET brain_id = ?", {SQLiteValue::text(brainA.lowerText())});
    EXPECT_EQ(journal(), "invalid date \"z\"");
    store_.execute("INSERT INTO brains VALUES ('nonsense', 'z', 'z', NULL)");
    EXPECT_THROW(store_->brains(), MetadataStoreError);
}

TEST_F(StoreReads, ColumnsOfAnotherTypeReadAsTheirDefaults) {
    store_.execute(
        "UPDATE nodes SET title = x'41', is_directory = 7, content_version = 'many', blob_hash = x'00', "
        "blob_size = 'big', upload_error = x'00', brain_id = ? WHERE path = 'top.md'",
        {SQLiteValue::text(brainA.upperText())});
    NodeRecord expected = fileNode(brainA, "top.md");
    expected.title = "";
    expected.isDirectory = true;
    expected.contentVersion = 0;
    EXPECT_EQ(store_->nodeByPath(brainA, "top.md"), expected);
}

// Ranges of the index against the plain meaning of "under" and "directly under".
TEST(StoreRanges, AgreeWithPlainFiltering) {
    const auto component =
        rc::gen::nonEmpty(rc::gen::container<std::string>(rc::gen::elementOf(std::string("ab-.0"))));
    const auto path =
        rc::gen::map(rc::gen::resize(4, rc::gen::nonEmpty(rc::gen::container<Paths>(component))),
                     [](const Paths& components) {
                         std::string joined = components[0];
                         for (std::size_t i = 1; i < components.size(); ++i)
                             joined += "/" + components[i];
                         return joined;
                     });
    Catalogue store;
    EXPECT_TRUE(rc::check([&] {
        const auto nodes = *rc::gen::container<std::set<std::string>>(path);
        const std::string folder = *path;
        Paths under, directly;
        for (const auto& node : nodes) {
            if (!node.starts_with(folder + "/")) continue;
            under.push_back(node);
            if (node.find('/', folder.size() + 1) == std::string::npos) directly.push_back(node);
        }
        undone(*store, [&] {
            for (const auto& node : nodes)
                store->upsert(fileNode(brainA, node));
            RC_ASSERT(paths(store->descendants(brainA, folder)) == under);
            RC_ASSERT(paths(store->children(brainA, folder)) == directly);
        });
    }));
}

}  // namespace
}  // namespace vorlinden::tests
