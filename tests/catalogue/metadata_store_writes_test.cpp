#include <stdexcept>

#include <gtest/gtest.h>

#include "tests/support/catalogue.h"

namespace vorlinden::tests {
namespace {

const UUID brainA = numberedUUID(1);
const UUID brainB = numberedUUID(2);

class StoreWrites : public testing::Test {
 protected:
    Catalogue store_;
};

TEST_F(StoreWrites, ABrainsCursorSurvivesAnUpsertAndItsNodesItsRow) {
    BrainRecord brain = brainRecord(brainA, "team");
    EXPECT_EQ(store_->cursor(brainA), std::nullopt);
    store_->upsertBrain(brain);
    store_->setCursor("c1", brainA);
    brain.name = "Renamed";
    store_->upsertBrain(brain);
    brain.cursor = "c1";
    EXPECT_EQ(store_->brain(brainA), brain);
    brain.cursor = "c2";
    store_->upsertBrain(brain);
    EXPECT_EQ(store_->cursor(brainA), "c2");
    store_->setCursor(std::nullopt, brainA);
    EXPECT_EQ(store_->cursor(brainA), std::nullopt);
    EXPECT_THROW(store_->setCursor("c", brainB), MetadataStoreError);
    store_->upsert(fileNode(brainA, "a"));
    store_->deleteBrain(brainA);
    store_->deleteBrain(brainA);
    EXPECT_TRUE(store_->brains().empty());
    EXPECT_EQ(store_->allNodes(brainA).size(), 1u);
}

TEST_F(StoreWrites, AnUpsertReplacesEveryColumn) {
    store_->upsert(folderNode(brainA, "a"));
    NodeRecord node{.brainId = brainA,
                    .nodeId = "dir:a",
                    .path = "b/naïve 漢.bin",
                    .title = "",
                    .isDirectory = false,
                    .kind = NodeKind::blob,
                    .blobHash = "sha256:00",
                    .blobSize = INT64_MAX,
                    .updatedAt = instant(1),
                    .contentVersion = 7,
                    .localOnly = true,
                    .uploadError = "too large"};
    store_->upsert(node);
    EXPECT_EQ(store_->allNodes(brainA), std::vector{node});
    EXPECT_EQ(store_->uploadErrorCount(brainA), 1);
    EXPECT_EQ(store_.count("changes_log"), 0);
    // The two texts that another program reads.
    const auto row = store_.raw().query("SELECT brain_id, updated_at FROM nodes").at(0);
    EXPECT_EQ(row.string(0), "ABABABAB-ABAB-ABAB-ABAB-ABABABABAB01");
    EXPECT_EQ(row.string(1), "1970-01-01T00:00:00.001Z");
}

TEST_F(StoreWrites, ATakenPathStaysItsOccupantsAndAMoveTouchesOneRow) {
    store_->upsert(fileNode(brainA, "p", "first"));
    EXPECT_THROW(store_->upsert(fileNode(brainA, "p", "second")), SQLiteError);
    store_->upsert(fileNode(brainB, "p", "second"));
    store_->upsert(fileNode(brainA, "q", "second"));
    EXPECT_THROW(store_->updatePath(brainA, "second", "p"), SQLiteError);
    store_->upsert(fileNode(brainA, "p/below", "third"));
    store_->updatePath(brainA, "first", "moved");
    store_->updatePath(brainA, "missing", "x");
    EXPECT_TRUE(store_->deleteNode(brainA, "second"));
    EXPECT_FALSE(store_->deleteNode(brainA, "second"));
    EXPECT_EQ(paths(store_->allNodes(brainA)), (std::vector<std::string>{"moved", "p/below"}));
    EXPECT_EQ(store_.count("changes_log"), 0);
}

TEST_F(StoreWrites, TouchingContentRaisesAFilesCounterAndLogsIt) {
    NodeRecord file = fileNode(brainA, "f");
    store_->upsert(file);
    store_->upsert(folderNode(brainA, "d"));
    EXPECT_FALSE(store_->touchContent(brainA, "dir:d"));
    EXPECT_FALSE(store_->touchContent(brainA, "missing"));
    EXPECT_EQ(store_.count("changes_log"), 0);
    EXPECT_TRUE(store_->touchContent(brainA, file.nodeId));
    file.contentVersion = 2;
    EXPECT_EQ(store_->changes(0), (ChangeSet{{SyncItem{file}}, {}, 1}));
}

TEST_F(StoreWrites, AnchorsRiseAlsoAfterEarlierRowsAreGone) {
    EXPECT_EQ(store_->currentAnchor(), 0);
    EXPECT_EQ(store_->appendChange(SyncItemIdentifier::root(), false), 1);
    EXPECT_EQ(store_->appendChange(SyncItemIdentifier::node(brainA, "n"), true), 2);
    const auto rows = store_.raw().query("SELECT brain_id, item_identifier, deleted FROM changes_log");
    EXPECT_EQ(rows[0].string(0), "");
    EXPECT_EQ(rows[0].string(1), "root");
    EXPECT_EQ(rows[0].int64(2), 0);
    EXPECT_EQ(rows[1].string(0), brainA.upperText());
    EXPECT_EQ(rows[1].string(1), "node:" + brainA.upperText() + ":n");
    EXPECT_EQ(rows[1].int64(2), 1);
    store_.execute("DELETE FROM changes_log");
    EXPECT_EQ(store_->appendChange(SyncItemIdentifier::brain(brainA), false), 3);
}

TEST_F(StoreWrites, TheJournalKeepsItsOrderAndItsRows) {
    PendingChange move = pendingChange(brainA, PendingChangeKind::move, "new");
    move.id = 99;  // the table hands out its own
    move.nodeId = "n";
    move.fromPath = "old";
    move.baseCursor = "c1";
    PendingChange edit = pendingChange(brainA, PendingChangeKind::update, "f");
    PendingChange foreign = pendingChange(brainB, PendingChangeKind::remove, "f");
    move.id = store_->enqueue(move);
    edit.id = store_->enqueue(edit);
    foreign.id = store_->enqueue(foreign);
    EXPECT_EQ(move.id, 1);
    EXPECT_EQ(store_->pendingChanges(brainA), (std::vector{move, edit}));
    EXPECT_EQ(store_->pendingChanges(std::nullopt), (std::vector{move, edit, foreign}));

    move.path = "newer";
    move.baseCursor = std::nullopt;
    edit.baseCursor = "c2";
    store_->redirectPendingMove(*move.id, "newer");
    store_->rebasePending(*move.id, std::nullopt);
    store_->rebasePending(*edit.id, "c2");
    EXPECT_EQ(store_->pendingChange(*move.id), move);
    EXPECT_EQ(store_->pendingChange(*edit.id), edit);
    store_->removePending(*edit.id);
    store_->removePending(*edit.id);
    EXPECT_EQ(store_->pendingChange(*edit.id), std::nullopt);
    EXPECT_EQ(store_->pendingChanges(std::nullopt), (std::vector{move, foreign}));
}

TEST_F(StoreWrites, TheLedgerCountsEachWrite) {
    store_->recordOwnWrite(brainA, "p");
    store_->recordOwnWrite(brainA, "q");
    store_->recordOwnWrite(brainA, "p");
    store_->recordOwnWrite(brainB, "p");
    EXPECT_EQ(store_->ownWriteCount(brainA, "p"), 2);
    EXPECT_TRUE(store_->consumeOwnWrite(brainA, "p"));
    EXPECT_EQ(store_.raw().query("SELECT MIN(id) FROM own_writes WHERE path = 'p'").at(0).int64(0), 3);
    EXPECT_TRUE(store_->consumeOwnWrite(brainA, "p"));
    EXPECT_FALSE(store_->consumeOwnWrite(brainA, "p"));
    store_->clearOwnWrites(brainA);
    EXPECT_EQ(store_->ownWriteCount(brainA, "q"), 0);
    EXPECT_EQ(store_->ownWriteCount(brainB, "p"), 1);
}

TEST_F(StoreWrites, AUnitCommitsOrLeavesNothing) {
    const auto unit = [&](bool fails) {
        return store_->inTransaction([&] {
            store_->upsertBrain(brainRecord(brainA));
            store_->upsert(fileNode(brainA, "f"));
            store_->touchContent(brainA, "id:f");
            store_->setMeta("d1", MetaKey::deviceId);
            if (fails) throw std::domain_error("the unit");
            return store_->currentAnchor();
        });
    };
    EXPECT_THROW(unit(true), std::domain_error);
    EXPECT_TRUE(store_->brains().empty());
    EXPECT_TRUE(store_->allNodes(brainA).empty());
    EXPECT_EQ(store_->currentAnchor(), 0);
    EXPECT_EQ(unit(false), 1);
    EXPECT_EQ(store_->nodeById(brainA, "id:f")->contentVersion, 2);
    EXPECT_EQ(store_->meta("device_id"), "d1");
    store_->setMeta("", MetaKey::deviceId);
    EXPECT_EQ(store_->meta(MetaKey::deviceId), "");
    store_->setMeta(std::nullopt, MetaKey::deviceId);
    EXPECT_EQ(store_->meta(MetaKey::deviceId), std::nullopt);
}

}  // namespace
}  // namespace vorlinden::tests
