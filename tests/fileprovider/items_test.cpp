#include "fileprovider/items.h"

#include <gtest/gtest.h>

#include "platform/file_types.h"
#include "tests/support/catalogue.h"

namespace vorlinden::fileprovider {
namespace {

using platform::FileType;
using tests::brainRecord;
using tests::fileNode;
using tests::folderNode;
using tests::instant;

std::string hexOf(const Data& bytes) {
    std::string hex;
    for (const std::uint8_t byte : bytes.span()) {
        hex += "0123456789abcdef"[byte >> 4];
        hex += "0123456789abcdef"[byte & 15];
    }
    return hex;
}

class Items : public testing::Test {
 protected:
    Item itemOf(const NodeRecord& node) { return FileProviderItem(SyncItem{node}, *catalogue); }
    Item itemOf(const BrainRecord& record) { return FileProviderItem(SyncItem{record}, *catalogue); }

    tests::Catalogue catalogue;
    const UUID brain = tests::numberedUUID(1);
};

TEST_F(Items, TheRootIsAFixedFolderAboveItself) {
    const RootItem root;
    EXPECT_EQ(root.itemIdentifier, rootContainerItemIdentifier);
    EXPECT_EQ(root.parentItemIdentifier, rootContainerItemIdentifier);
    EXPECT_EQ(root.filename, "Vorlinden");
    EXPECT_EQ(root.contentType, FileType::folder());
    EXPECT_EQ(root.capabilities, 3u);
    EXPECT_EQ(root.itemVersion, (ItemVersion{Data::copyOf("0"), Data::copyOf("0")}));
}

TEST_F(Items, ABrainIsAFolderNamedByItsSlug) {
    BrainRecord record = brainRecord(brain, "team");
    const Item before = itemOf(record);
    EXPECT_EQ(before.itemIdentifier, SyncItemIdentifier::brain(brain).rawValue());
    EXPECT_EQ(before.parentItemIdentifier, rootContainerItemIdentifier);
    EXPECT_EQ(before.filename, "team");
    EXPECT_EQ(before.contentType, FileType::folder());
    EXPECT_EQ(before.capabilities, 3u);
    EXPECT_EQ(before.itemVersion.contentVersion, Data::copyOf("0"));
    EXPECT_EQ(before.itemVersion.metadataVersion, versionDigest("team|The team"));
    EXPECT_FALSE(before.documentSize || before.contentModificationDate || before.creationDate);

    record.name = "Other";
    EXPECT_EQ(itemOf(record).filename, "team");
    EXPECT_NE(itemOf(record).itemVersion.metadataVersion, before.itemVersion.metadataVersion);
}

TEST_F(Items, ANodeShowsItsPlaceItsDatesAndWhatWentWrong) {
    catalogue->upsertBrain(brainRecord(brain));
    const NodeRecord folder = folderNode(brain, "Notes");
    catalogue->upsert(folder);
    NodeRecord node = fileNode(brain, "Notes/Plan.txt");
    node.uploadError = "Not uploaded: too late";

    const Item item = itemOf(node);
    EXPECT_EQ(item.itemIdentifier, node.identifier().rawValue());
    EXPECT_EQ(item.parentItemIdentifier, folder.identifier().rawValue());
    EXPECT_EQ(item.filename, "Plan.txt");
    EXPECT_EQ(item.capabilities, 47u);
    EXPECT_EQ(item.contentModificationDate, node.updatedAt);
    EXPECT_EQ(item.creationDate, node.updatedAt);
    EXPECT_EQ(item.uploadingError, Error("ai.vorlinden.desktop.upload", 1, "Not uploaded: too late"));

    EXPECT_EQ(itemOf(folder).parentItemIdentifier, SyncItemIdentifier::brain(brain).rawValue());
    EXPECT_EQ(itemOf(folder).contentType, FileType::folder());
    EXPECT_EQ(itemOf(folder).capabilities, 47u);
    node.uploadError.reset();
    EXPECT_EQ(itemOf(node).uploadingError, std::nullopt);
}

TEST_F(Items, OnlyABlobOfKnownSizeHasASize) {
    NodeRecord node = fileNode(brain, "a");
    node.blobSize = 7;
    EXPECT_EQ(itemOf(node).documentSize, std::nullopt);
    node.kind = NodeKind::blob;
    EXPECT_EQ(itemOf(node).documentSize, 7);
    node.blobSize.reset();
    EXPECT_EQ(itemOf(node).documentSize, std::nullopt);
}

TEST_F(Items, AFilesTypeFollowsItsExtension) {
    EXPECT_EQ(itemOf(fileNode(brain, "README")).contentType, FileType::data());
    EXPECT_EQ(itemOf(fileNode(brain, "a.no-such-extension")).contentType, FileType::data());
    EXPECT_EQ(itemOf(fileNode(brain, "a.png")).contentType, FileType{"image/png"});
}

TEST_F(Items, TheTwoVersionsTellContentFromTheRest) {
    NodeRecord node = fileNode(brain, "a.md");
    node.title = "A";
    node.updatedAt = instant(1'700'000'000'000);
    node.contentVersion = 12;
    const ItemVersion before = itemOf(node).itemVersion;
    EXPECT_EQ(before.contentVersion, Data::copyOf("12"));
    EXPECT_EQ(before.metadataVersion, versionDigest("2023-11-14T22:13:20.000Z|A"));

    node.contentVersion = 13;
    EXPECT_EQ(itemOf(node).itemVersion.metadataVersion, before.metadataVersion);
    node.title = "B";
    EXPECT_NE(itemOf(node).itemVersion.metadataVersion, before.metadataVersion);
    node.title = "A";
    node.updatedAt = instant(1'700'000'000'001);
    EXPECT_NE(itemOf(node).itemVersion.metadataVersion, before.metadataVersion);
}

TEST_F(Items, AnItemWhoseParentCantBeReadIsNoItem) {
    catalogue.execute("DROP TABLE nodes");
    EXPECT_THROW(itemOf(fileNode(brain, "Notes/a")), SQLiteError);
}

TEST(ItemVersions, DigestsAreTheRawBytesOfSHA256) {
    EXPECT_EQ(hexOf(versionDigest("abc")),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(hexOf(versionDigest("")), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(ItemVersions, OnlyDecimalNumbersOf64BitsAreRead) {
    const auto version = [](std::string_view text) {
        return baseContentVersion({Data::copyOf(text), Data()});
    };
    EXPECT_EQ(version("12"), 12);
    EXPECT_EQ(version("+12"), 12);
    EXPECT_EQ(version("-12"), -12);
    EXPECT_EQ(version("007"), 7);
    EXPECT_EQ(version("9223372036854775807"), INT64_MAX);
    EXPECT_EQ(version("-9223372036854775808"), INT64_MIN);
    for (const std::string_view broken : {"", "+", "-", "+-1", "-+1", "abc", "1 2", " 1", "1 ", "1.0", "0x1",
                                          "9223372036854775808", "123456789012345678901234567890", "\xff"}) {
        EXPECT_EQ(version(broken), std::nullopt) << broken;
    }
}

TEST(ItemIdentifiers, GoThereAndBackButForTheWellKnownOnes) {
    const auto node = SyncItemIdentifier::node(tests::numberedUUID(1), "dir:a/b:c");
    EXPECT_EQ(syncIdentifier(platformIdentifier(node)), node);
    EXPECT_EQ(platformIdentifier(SyncItemIdentifier::root()), rootContainerItemIdentifier);
    EXPECT_EQ(syncIdentifier(rootContainerItemIdentifier), SyncItemIdentifier::root());
    EXPECT_EQ(syncIdentifier(workingSetContainerItemIdentifier), std::nullopt);
    EXPECT_EQ(syncIdentifier(trashContainerItemIdentifier), std::nullopt);
    EXPECT_EQ(syncIdentifier("nonsense"), std::nullopt);
}

}  // namespace
}  // namespace vorlinden::fileprovider
