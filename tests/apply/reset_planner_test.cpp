#include "synckit/apply/reset_planner.h"

#include <gtest/gtest.h>

#include "tests/support/catalogue.h"
#include "tests/support/tree.h"

namespace vorlinden {
namespace {

using Lines = std::vector<std::string>;
using tests::fileNode;
using tests::folderNode;
using tests::instant;

const UUID brain = tests::numberedUUID(1);

SnapshotNode incoming(std::string nodeId, std::string path) {
    return {std::move(nodeId), path, "Title of " + path, false, NodeKind::text, {}, {}, instant()};
}

SnapshotNode incomingFolder(std::string nodeId, std::string path) {
    auto node = incoming(std::move(nodeId), std::move(path));
    node.isDirectory = true;
    return node;
}

class ResetPlannerTest : public testing::Test {
 protected:
    ResetPlannerTest() {
        auto record = tests::brainRecord(brain);
        record.cursor = "before";
        catalogue->upsertBrain(record);
        catalogue->recordOwnWrite(brain, "own");
    }

    void given(const NodeRecord& node) { catalogue->upsert(node); }
    NodeRecord localFile(std::string path, std::string id) {
        auto node = fileNode(brain, std::move(path), std::move(id));
        node.localOnly = true;
        return node;
    }

    ResetPlan reset(const std::vector<SnapshotNode>& snapshot, std::optional<std::string> cursor = "after") {
        anchor = catalogue->currentAnchor();
        auto plan = ResetPlanner::applySnapshot(snapshot, brain, cursor, *catalogue);
        EXPECT_EQ(catalogue->cursor(brain), cursor);
        EXPECT_EQ(catalogue->ownWriteCount(brain, "own"), 0);
        return plan;
    }

    NodeRecord at(const std::string& path) { return catalogue->nodeByPath(brain, path).value(); }
    Lines tree() { return tests::tree(*catalogue, brain); }
    Lines logged() { return tests::log(catalogue, anchor); }
    Lines deleted(const ResetPlan& plan) {
        Lines ids;
        for (const auto& identifier : plan.deletedIdentifiers)
            ids.push_back(std::get<SyncItemIdentifier::Node>(identifier.value).nodeId);
        return ids;
    }
    Lines downloaded(const ResetPlan& plan) {
        Lines paths;
        for (const auto& request : plan.downloads)
            paths.push_back(request.path);
        return paths;
    }

    tests::Catalogue catalogue;
    std::int64_t anchor = 0;
};

TEST_F(ResetPlannerTest, UnchangedTreeWritesNothing) {
    const std::vector<SnapshotNode> snapshot{incomingFolder("d", "d"), incoming("f", "d/f"),
                                             incoming("g", "x/g")};
    reset(snapshot);
    const auto rows = catalogue->allNodes(brain);
    EXPECT_TRUE(reset(snapshot, "later").isEmpty());
    EXPECT_EQ(logged(), Lines{});
    EXPECT_EQ(catalogue->allNodes(brain), rows);
}

TEST_F(ResetPlannerTest, NewNodesComeWithTheFoldersAboveThem) {
    auto blob = incoming("n2", "b/deep/er.bin");
    blob.kind = NodeKind::blob;
    blob.blobHash = "hash";
    blob.blobSize = 12;
    blob.updatedAt = instant(1'900'000'000'000);
    const auto plan = reset({incoming("n1", "z"), blob, incomingFolder("n3", "a")});
    EXPECT_EQ(tree(), (Lines{"a = n3 v0 folder", "b = dir:b v0", "b/deep = dir:b/deep v0",
                             "b/deep/er.bin = n2 v1 blob", "z = n1 v1"}));
    EXPECT_EQ(logged(), (Lines{"+n1", "+n2", "+n3", "+dir:b", "+dir:b/deep"}));
    EXPECT_EQ(plan.downloads,
              (std::vector<DownloadRequest>{{brain, "n2", "b/deep/er.bin", NodeKind::blob, 1, "after"},
                                            {brain, "n1", "z", NodeKind::text, 1, "after"}}))
        << "by path";

    EXPECT_EQ(at("b/deep/er.bin"),
              (NodeRecord{brain, "n2", "b/deep/er.bin", "Title of b/deep/er.bin", false, NodeKind::blob,
                          "hash", 12, blob.updatedAt, 1, false, std::nullopt}));
    EXPECT_EQ(at("b/deep"), (NodeRecord{brain, "dir:b/deep", "b/deep", "deep", true, NodeKind::text,
                                        std::nullopt, std::nullopt, blob.updatedAt, 0, false, std::nullopt}))
        << "as new as the newest node";
}

TEST_F(ResetPlannerTest, KeptRowsFollowTheirNodes) {
    auto file = fileNode(brain, "f", "n");
    file.uploadError = "stays";
    file.localOnly = true;
    given(file);
    const auto becomes = [&](const SnapshotNode& node, std::int64_t version, bool fetched) {
        const auto plan = reset({node});
        EXPECT_EQ(downloaded(plan), fetched ? Lines{node.path} : Lines{});
        EXPECT_EQ(logged(), Lines{"+n"});
        EXPECT_EQ(catalogue->nodeById(brain, "n"),
                  (NodeRecord{brain, "n", node.path, node.title, node.isDirectory, node.kind, node.blobHash,
                              node.blobSize, node.updatedAt, version, true, "stays"}));
    };
    auto node = incoming("n", "f");
    node.title = "Other";
    becomes(node, 1, false);
    node.path = "elsewhere";
    becomes(node, 1, false);
    node.blobSize = 5;
    becomes(node, 1, false);
    node.kind = NodeKind::blob;
    becomes(node, 1, false);
    node.blobHash = "one";
    becomes(node, 2, true);
    node.blobHash = "two";
    becomes(node, 3, true);
    node.updatedAt = instant(1'800'000'000'000);
    becomes(node, 4, true);
    node.isDirectory = true;
    node.blobHash = std::nullopt;
    node.updatedAt = instant(1);
    becomes(node, 4, false);
}

TEST_F(ResetPlannerTest, PathsMaySwap) {
    given(fileNode(brain, "a", "n1"));
    given(fileNode(brain, "b", "n2"));
    given(fileNode(brain, "c", "n3"));
    auto first = incoming("n1", "b");
    auto second = incoming("n2", "a");
    first.title = "Title of a";
    second.title = "Title of b";
    EXPECT_EQ(deleted(reset({first, second, incoming("n4", "c")})), Lines{"n3"});
    EXPECT_EQ(tree(), (Lines{"a = n2 v1", "b = n1 v1", "c = n4 v1"}));
    EXPECT_EQ(logged(), (Lines{"-n3", "+n1", "+n2", "+n4"}));
}

TEST_F(ResetPlannerTest, LocalOnlyRowsStayUnlessTheirPathIsClaimed) {
    given(localFile("mine", "local:1"));
    given(localFile("taken", "local:2"));
    given(localFile("folder/in", "local:3"));
    given(fileNode(brain, "fed", "local:4"));
    given(localFile(".DS_Store", "n5"));
    given(fileNode(brain, ".localized", "n6"));
    const auto plan =
        reset({incoming("n2", "taken"), incoming("n4", "fed"), incomingFolder("n3", "folder"),
               incoming("n5", ".DS_Store"), incoming("n6", ".localized"), incoming("n7", "new/.gitkeep")});
    EXPECT_EQ(tree(),
              (Lines{".DS_Store = n5 v1 local-only", "fed = n4 v1", "folder = n3 v0 folder",
                     "folder/in = local:3 v1 local-only", "mine = local:1 v1 local-only", "taken = n2 v1"}));
    EXPECT_EQ(deleted(plan), (Lines{"n6", "local:4", "local:2"})) << "by path";
    EXPECT_EQ(downloaded(plan), (Lines{"fed", "taken"}));
}

TEST_F(ResetPlannerTest, DerivedFoldersLiveWhileSomethingHangsUnderThem) {
    for (const auto* path : {"keep", "keep/deep", "named", "empty"})
        given(folderNode(brain, path));
    const auto before = at("keep");
    const auto plan =
        reset({incoming("n1", "keep/deep/f"), incomingFolder("n2", "named"), incoming("n3", "named/f")});
    EXPECT_EQ(tree(), (Lines{"keep = dir:keep v0", "keep/deep = dir:keep/deep v0", "keep/deep/f = n1 v1",
                             "named = n2 v0 folder", "named/f = n3 v1"}));
    EXPECT_EQ(deleted(plan), (Lines{"dir:empty", "dir:named"}));
    EXPECT_EQ(at("keep"), before);
}

TEST_F(ResetPlannerTest, AbsentCursorEmptiesTheBrain) {
    given(folderNode(brain, "d"));
    given(fileNode(brain, "d/f", "n1"));
    given(localFile("d/mine", "local:1"));
    const auto other = tests::numberedUUID(2);
    catalogue->upsertBrain(tests::brainRecord(other, "other"));
    given(fileNode(other, "d/f", "n1"));
    catalogue->recordOwnWrite(other, "own");

    const auto plan = reset({incoming("n1", "d/f")}, std::nullopt);
    EXPECT_EQ(tree(), Lines{"d/mine = local:1 v1 local-only"});
    EXPECT_EQ(deleted(plan), (Lines{"dir:d", "n1"}));
    EXPECT_EQ(logged(), (Lines{"-dir:d", "-n1"}));
    EXPECT_EQ(plan.downloads.size(), 0U);
    EXPECT_EQ(catalogue->allNodes(other).size(), 1U);
    EXPECT_EQ(catalogue->ownWriteCount(other, "own"), 1);
}

TEST_F(ResetPlannerTest, EmptySnapshotWithACursorLeavesLocalOnlyRows) {
    given(folderNode(brain, "d"));
    given(localFile("d/mine", "local:1"));
    EXPECT_EQ(deleted(reset({})), Lines{"dir:d"});
    EXPECT_EQ(tree(), Lines{"d/mine = local:1 v1 local-only"});
}

TEST_F(ResetPlannerTest, FailureLeavesTheCatalogueAsItWas) {
    given(fileNode(brain, "f", "n0"));
    const auto unchanged = [&] {
        return tree() == Lines{"f = n0 v1"} && catalogue->cursor(brain) == "before" && logged().empty() &&
               catalogue->ownWriteCount(brain, "own") == 1;
    };
    EXPECT_THROW(reset({incoming("n1", "a"), incoming("n2", "p"), incoming("n3", "p")}), SQLiteError)
        << "two nodes of one path";
    EXPECT_TRUE(unchanged());

    catalogue->deleteBrain(brain);
    EXPECT_THROW(reset({incoming("n1", "a")}), MetadataStoreError);
    EXPECT_EQ(tree(), Lines{"f = n0 v1"});
}

}  // namespace
}  // namespace vorlinden
