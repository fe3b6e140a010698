#include "synckit/conflicts/conflict_spool.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "tests/support/catalogue.h"
#include "tests/support/hooked_files.h"
#include "tests/support/temporary_folder.h"

namespace vorlinden {
namespace {

using tests::FileOperation;

Data bytes(std::string text) {
    return Data(std::move(text));
}

class ConflictSpoolTest : public testing::Test {
 protected:
    std::vector<std::string> names() {
        if (!files->exists(spool.directory())) return {};
        auto found = files->list(spool.directory());
        std::ranges::sort(found);
        return found;
    }

    tests::TemporaryFolder folder;
    std::shared_ptr<tests::HookedFiles> files =
        std::make_shared<tests::HookedFiles>(platform::posixFileSystem());
    ConflictSpool spool{files, folder / "deep" / "Spool"};
};

TEST_F(ConflictSpoolTest, KeepsBytesByKey) {
    EXPECT_EQ(spool.read("edit-1"), std::nullopt);
    EXPECT_NO_THROW(spool.remove("edit-1"));
    spool.write(bytes("one"), "edit-1");
    spool.write(bytes("two"), "edit-1");
    EXPECT_EQ(spool.read("edit-1"), bytes("two"));
    EXPECT_TRUE(spool.exists("edit-1"));
    EXPECT_EQ(names(), std::vector<std::string>{"edit-1"});
    spool.remove("edit-1");
    EXPECT_FALSE(spool.exists("edit-1"));

    files->failOn(FileOperation::write, ENOSPC);
    EXPECT_THROW(spool.write(bytes("three"), "edit-2"), FileError);
}

TEST_F(ConflictSpoolTest, BuildsPlainFileNames) {
    EXPECT_EQ(ConflictSpool::editKey(12), "edit-12");
    EXPECT_EQ(ConflictSpool::copyKey(-3), "copy--3");
    EXPECT_EQ(ConflictSpool::nodeKey("dir:a/\u00e9"), "node-6469723a612fc3a9");
    EXPECT_EQ(ConflictSpool::nodeKey(""), "node-");
}

TEST_F(ConflictSpoolTest, KeepsOneEntryForAJournalRow) {
    spool.writeNewCopy(bytes("copy"), 7);
    spool.writeNewEdit(bytes("edit"), 7);
    EXPECT_EQ(names(), std::vector<std::string>{"edit-7"});
    spool.writeNewCopy(bytes("copy"), 7);
    EXPECT_EQ(names(), std::vector<std::string>{"copy-7"});
    EXPECT_EQ(spool.pendingBytes(7), bytes("copy"));
    spool.write(bytes("edit"), "edit-7");
    EXPECT_EQ(spool.pendingBytes(7), bytes("edit")) << "an edit counts first";
    EXPECT_EQ(spool.pendingBytes(8), std::nullopt);

    files->failOn(FileOperation::remove, EACCES);
    EXPECT_THROW(spool.writeNewEdit(bytes("newer"), 7), FileError);
    EXPECT_EQ(spool.read("edit-7"), bytes("edit")) << "nothing is written when the other kind can't go";
}

TEST_F(ConflictSpoolTest, StagedCopiesAreFlushedTogether) {
    spool.writeNewEdit(bytes("edit"), 7);
    spool.stageNewCopy(bytes("seven"), 7);
    spool.stageNewCopy(bytes("eight"), 8);
    EXPECT_EQ(names(), (std::vector<std::string>{"copy-7", "copy-8"}));
    spool.flush({"copy-7", "copy-8"});
    EXPECT_EQ(spool.pendingBytes(8), bytes("eight"));
    EXPECT_THROW(spool.flush({"copy-9"}), FileError) << "what isn't there can't become durable";
}

TEST_F(ConflictSpoolTest, PruneTakesWhatNothingReachesAndNothingElse) {
    tests::Catalogue catalogue;
    const auto first = tests::numberedUUID(1);
    const auto second = tests::numberedUUID(2);
    catalogue->upsertBrain(tests::brainRecord(first, "one"));
    catalogue->upsertBrain(tests::brainRecord(second, "two"));
    catalogue->upsert(tests::fileNode(second, "a", "local:\u00e9:/"));
    const auto row = catalogue->enqueue(tests::pendingChange(first, PendingChangeKind::create, "a"));
    ASSERT_EQ(row, 1);

    const auto node = ConflictSpool::nodeKey("local:\u00e9:/");
    auto upper = node;
    std::ranges::transform(upper.begin() + 5, upper.end(), upper.begin() + 5, ::toupper);
    std::vector<std::string> kept{"edit-1", "copy-1", "edit-+1", "edit-01", node,      upper,
                                  "edit-",  "edit-x", "copy-1x", "node-6",  "node-6g", "notes.txt"};
    const std::vector<std::string> gone{"edit-2", "copy--1", "edit-9223372036854775807",
                                        "node-",  "node-41", ConflictSpool::nodeKey("dir:gone")};
    kept.push_back("edit-9223372036854775808");  // no 64-bit integer, so no journal entry
    for (const auto& name : kept)
        spool.write(bytes("x"), name);
    for (const auto& name : gone)
        spool.write(bytes("x"), name);

    spool.prune(*catalogue);
    std::ranges::sort(kept);
    EXPECT_EQ(names(), kept);
}

TEST_F(ConflictSpoolTest, PruneStopsAtTheFirstFailure) {
    tests::Catalogue catalogue;
    spool.prune(*catalogue);
    EXPECT_FALSE(files->exists(spool.directory()));

    spool.write(bytes("x"), "edit-1");
    spool.write(bytes("x"), "edit-2");
    files->failOn(FileOperation::remove, EACCES, [this](const auto&) { return names().size() == 1; });
    EXPECT_THROW(spool.prune(*catalogue), FileError);
    EXPECT_EQ(names().size(), 1U) << "what went before the failure stays gone";
}

}  // namespace
}  // namespace vorlinden
