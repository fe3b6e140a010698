#include "synckit/upload/local_mutations.h"

#include <gtest/gtest.h>

#include "tests/support/catalogue.h"
#include "tests/support/seeded_random.h"
#include "tests/support/tree.h"

namespace vorlinden {
namespace {

using Lines = std::vector<std::string>;
using tests::fileNode;
using tests::folderNode;

const UUID brain = tests::numberedUUID(1);
const Timestamp now = tests::instant(1'800'000'000'000);

class LocalMutationsTest : public testing::Test {
 protected:
    LocalMutationsTest() {
        auto record = tests::brainRecord(brain);
        record.cursor = "c0";
        catalogue->upsertBrain(record);
    }

    void given(const NodeRecord& node) { catalogue->upsert(node); }
    std::int64_t waiting() {
        return LocalMutations::journalUpsert(*catalogue, brain, "waiting", std::nullopt, true, now);
    }
    NodeRecord uploaded(std::string path, NodeKind kind = NodeKind::text,
                        std::optional<std::int64_t> row = {}) {
        return LocalMutations::applyUpload(random, *catalogue, brain, {{"server", std::move(path)}, "c9"},
                                           kind, "hash", 7, row, now);
    }
    bool moved(const std::string& from, const std::string& to) {
        return LocalMutations::applyMove(random, *catalogue, brain, from, to, waiting(), now);
    }

    NodeRecord at(const std::string& path) { return catalogue->nodeByPath(brain, path).value(); }
    Lines tree() { return tests::tree(*catalogue, brain); }
    Lines log() { return tests::log(catalogue); }
    std::size_t journalRows() { return catalogue->pendingChanges(brain).size(); }

    tests::Catalogue catalogue;
    tests::SeededRandom random;
};

TEST_F(LocalMutationsTest, JournalKeepsEachIntentWithItsBase) {
    using Kind = PendingChangeKind;
    auto& store = *catalogue;
    const auto row = [](std::int64_t id, std::optional<std::string> node, Kind kind, std::string path,
                        std::optional<std::string> from, std::optional<std::string> base) {
        return PendingChange{
            id, brain, std::move(node), kind, std::move(path), std::move(from), std::move(base), now};
    };
    EXPECT_EQ(LocalMutations::journalUpsert(store, brain, "a", std::nullopt, true, now), 1);
    EXPECT_EQ(LocalMutations::journalUpsert(store, brain, "a", "n", false, now), 2);
    store.setCursor("c1", brain);
    EXPECT_EQ(LocalMutations::journalUpsert(store, brain, "a", "n", false, now), 3)
        << "edits are never merged";
    EXPECT_EQ(LocalMutations::journalMove(store, brain, "n", "a", "b", now), 4);
    store.setCursor(std::nullopt, brain);
    EXPECT_EQ(LocalMutations::journalDelete(store, brain, std::nullopt, "b", now), 5);
    EXPECT_EQ(store.pendingChanges(brain),
              (std::vector{row(1, {}, Kind::create, "a", {}, "c0"), row(2, "n", Kind::update, "a", {}, "c0"),
                           row(3, "n", Kind::update, "a", {}, "c1"), row(4, "n", Kind::move, "b", "a", "c1"),
                           row(5, {}, Kind::remove, "b", {}, {})}));
    EXPECT_EQ(log(), Lines{});
}

TEST_F(LocalMutationsTest, UploadOfANewFileMovesNoCursorAndExpectsNoEcho) {
    const auto file = uploaded("a/report.final.pdf", NodeKind::blob, waiting());
    EXPECT_EQ(file, (NodeRecord{brain, "server", "a/report.final.pdf", "report.final", false, NodeKind::blob,
                                "hash", 7, now, 1, false, std::nullopt}));
    EXPECT_EQ(at("a/report.final.pdf"), file);
    EXPECT_EQ(at("a").updatedAt, now);
    EXPECT_EQ(journalRows(), 0U);
    EXPECT_EQ(catalogue->cursor(brain), "c0");
    EXPECT_EQ(catalogue.count("own_writes"), 0);
}

TEST_F(LocalMutationsTest, UploadOverAFileKeepsItsNameAndIdentityButReplacesAFolder) {
    auto file = fileNode(brain, "f", "local:1");
    file.kind = NodeKind::blob;
    file.blobHash = "old";
    file.blobSize = 1;
    file.contentVersion = 4;
    file.localOnly = true;
    file.uploadError = "refused";
    given(file);
    EXPECT_EQ(uploaded("f"), (NodeRecord{brain, "local:1", "f", "Title of f", false, NodeKind::text,
                                         std::nullopt, std::nullopt, now, 5, false, std::nullopt}));
    given(folderNode(brain, "d"));
    given(fileNode(brain, "d/in", "in"));
    uploaded("d");
    EXPECT_EQ(tree(), (Lines{"d = server v1", "f = local:1 v5"}));
    EXPECT_EQ(log(), (Lines{"+local:1", "-dir:d", "-in", "+server"}));
}

TEST_F(LocalMutationsTest, LocalOnlyFileAndLocalFolderTakeThePlace) {
    given(folderNode(brain, "d"));
    given(fileNode(brain, "d/in", "in"));
    const auto file = LocalMutations::applyLocalOnly(random, *catalogue, brain, "d", "too large", now);
    EXPECT_EQ(tree(), Lines{"d = local:* v1 local-only (too large)"});
    EXPECT_EQ(log(), (Lines{"-dir:d", "-in", "+local:*"}));
    EXPECT_EQ(file, at("d"));
    const auto again = LocalMutations::applyLocalOnly(random, *catalogue, brain, "d", std::nullopt, now);
    EXPECT_NE(again.nodeId, file.nodeId);

    const auto made = LocalMutations::applyLocalDirectory(random, *catalogue, brain, "d/v1.2", now);
    EXPECT_EQ(made, (NodeRecord{brain, "dir:d/v1.2", "d/v1.2", "v1.2", true, NodeKind::text, std::nullopt,
                                std::nullopt, now, 0, false, std::nullopt}));
    const auto before = log();
    EXPECT_EQ(LocalMutations::applyLocalDirectory(random, *catalogue, brain, "d/v1.2", tests::instant()),
              made);
    EXPECT_EQ(log(), before) << "a folder is made once";
    EXPECT_EQ(tree(), (Lines{"d = dir:d v0", "d/v1.2 = dir:d/v1.2 v0"}));
}

TEST_F(LocalMutationsTest, MovesAndDeletesTakeTheirJournalRowAlong) {
    auto junk = fileNode(brain, ".DS_Store", "junk");
    junk.localOnly = true;
    given(junk);
    given(folderNode(brain, "d"));
    given(fileNode(brain, "d/f", "f"));
    EXPECT_FALSE(moved(".DS_Store", "named")) << "a junk name was never on the server";
    EXPECT_FALSE(moved("missing", "named"));
    EXPECT_TRUE(moved("d", "e"));
    EXPECT_EQ(tree(), (Lines{".DS_Store = junk v1 local-only", "e = dir:e v0", "e/f = f v1"}));
    EXPECT_TRUE(moved("e/f", "e/.gitkeep"));
    EXPECT_EQ(tree(), (Lines{".DS_Store = junk v1 local-only", "e = dir:e v0"}));

    const auto deleted = [&](const std::string& path) {
        return LocalMutations::applyDelete(random, *catalogue, brain, path, waiting(), now);
    };
    EXPECT_TRUE(deleted("e"));
    EXPECT_FALSE(deleted("e"));
    EXPECT_EQ(tree(), Lines{".DS_Store = junk v1 local-only"});
    EXPECT_EQ(journalRows(), 0U);
}

}  // namespace
}  // namespace vorlinden
