#include <gtest/gtest.h>

#include "synckit/conflicts/reset_judgement.h"
#include "tests/conflicts/conflict_world.h"

namespace vorlinden::tests {
namespace {

using Kind = PendingChangeKind;
using enum ResetVerdict;

SnapshotNode unchanged(std::string path, std::string nodeId) {
    const auto row = fileNode(UUID{}, path, nodeId);
    return {row.nodeId, row.path, row.title, false, row.kind, row.blobHash, row.blobSize, row.updatedAt};
}
SnapshotNode changed(std::string path, std::string nodeId) {
    auto node = unchanged(std::move(path), std::move(nodeId));
    node.updatedAt = instant(1'800'000'000'000);
    return node;
}
SnapshotNode folder(std::string path, std::string nodeId) {
    auto node = unchanged(std::move(path), std::move(nodeId));
    node.isDirectory = true;
    return node;
}

// The rows before: d/ with the files f and g, fed/ with a file that came by the feed, the local-only file l,
// and s, a folder of the server's own.
std::vector<NodeRecord> rows() {
    const UUID brain = numberedUUID(1);
    auto local = fileNode(brain, "l", "local:L");
    local.localOnly = true;
    auto server = folderNode(brain, "s");
    server.nodeId = "S";
    return {folderNode(brain, "d"),
            fileNode(brain, "d/f", "F"),
            fileNode(brain, "d/g", "G"),
            folderNode(brain, "empty"),
            folderNode(brain, "fed"),
            fileNode(brain, "fed/n", "local:N"),
            local,
            server};
}

ResetVerdict judge(Kind kind, std::string path, std::vector<SnapshotNode> snapshot, std::string from = {}) {
    auto change = pendingChange(numberedUUID(1), kind, std::move(path));
    if (!from.empty()) change.fromPath = std::move(from);
    const auto before = rows();
    return ResetJudgement(before, snapshot).judge(change);
}

TEST(ResetJudgement, OfEdits) {
    EXPECT_EQ(judge(Kind::update, "d/f", {unchanged("d/f", "F")}), stays);
    EXPECT_EQ(judge(Kind::update, "d/f", {changed("d/f", "F")}), copied);
    EXPECT_EQ(judge(Kind::update, "d/f", {unchanged("d/f", "other")}), copied);
    EXPECT_EQ(judge(Kind::update, "d/f", {}), copied) << "gone";
    EXPECT_EQ(judge(Kind::update, "d/f", {unchanged("x/f", "F")}), copied) << "moved away";
    EXPECT_EQ(judge(Kind::update, "d/f", {folder("d/f", "F")}), copied);
    EXPECT_EQ(judge(Kind::update, "fed/n", {unchanged("fed/n", "server's")}), stays)
        << "the feed names no ids";
    EXPECT_EQ(judge(Kind::update, "l", {unchanged("l", "local:L")}), copied) << "never on the server";
    EXPECT_EQ(judge(Kind::update, "l", {}), copied);
    EXPECT_EQ(judge(Kind::update, "nowhere", {unchanged("nowhere", "N")}), copied);
    EXPECT_EQ(judge(Kind::update, "s", {folder("s", "S")}), copied)
        << "a folder has no content to have stayed";

    auto kind = unchanged("d/f", "F");
    kind.kind = NodeKind::blob;
    EXPECT_EQ(judge(Kind::update, "d/f", {kind}), copied);
    auto hash = unchanged("d/f", "F");
    hash.blobHash = "h";
    EXPECT_EQ(judge(Kind::update, "d/f", {hash}), copied);
    auto cosmetics = unchanged("d/f", "F");
    cosmetics.title = "Other";
    cosmetics.blobSize = 5;
    EXPECT_EQ(judge(Kind::update, "d/f", {cosmetics}), stays);
    EXPECT_EQ(judge(Kind::update, "d/f", {changed("d/f", "F"), unchanged("d/f", "F")}), stays)
        << "of two nodes of one path the later counts";
}

TEST(ResetJudgement, OfNewFiles) {
    EXPECT_EQ(judge(Kind::create, "new", {}), stays);
    EXPECT_EQ(judge(Kind::create, "new", {unchanged("new/below", "B")}), stays);
    EXPECT_EQ(judge(Kind::create, "new", {unchanged("new", "N")}), copied);
    EXPECT_EQ(judge(Kind::create, "l", {}), stays);
    EXPECT_EQ(judge(Kind::create, "l", {unchanged("l", "local:L")}), copied);
    EXPECT_EQ(judge(Kind::create, "d/f", {}), copied) << "a file that the server had is gone there";
    EXPECT_EQ(judge(Kind::create, "x/.DS_Store", {unchanged("x/.DS_Store", "J")}), stays)
        << "junk is not there";
}

TEST(ResetJudgement, OfDeletions) {
    const std::vector<SnapshotNode> both{unchanged("d/f", "F"), unchanged("d/g", "G")};
    EXPECT_EQ(judge(Kind::remove, "d/f", both), stays);
    EXPECT_EQ(judge(Kind::remove, "d/f", {changed("d/f", "F")}), dropped);
    EXPECT_EQ(judge(Kind::remove, "d/f", {}), dropped);
    EXPECT_EQ(judge(Kind::remove, "nowhere", {}), dropped);
    EXPECT_EQ(judge(Kind::remove, "s", {folder("s", "S")}), stays);
    EXPECT_EQ(judge(Kind::remove, "l", {unchanged("l", "local:L")}), dropped);

    EXPECT_EQ(judge(Kind::remove, "d", both), stays);
    EXPECT_EQ(judge(Kind::remove, "d", {both[0], changed("d/g", "G")}), dropped);
    EXPECT_EQ(judge(Kind::remove, "d", {both[0]}), dropped);
    EXPECT_EQ(judge(Kind::remove, "d", {both[0], both[1], unchanged("d/x/new", "X")}), dropped);
    EXPECT_EQ(judge(Kind::remove, "d", {both[0], both[1], folder("d", "D")}), dropped);
    EXPECT_EQ(judge(Kind::remove, "d", {both[0], both[1], unchanged("d-x", "X"), unchanged("d0", "Y")}),
              stays);
    EXPECT_EQ(judge(Kind::remove, "fed", {unchanged("fed/n", "server's")}), stays);
    EXPECT_EQ(judge(Kind::remove, "empty", {}), dropped) << "nothing tells that the folder is still there";
}

TEST(ResetJudgement, OfMovesAndFolders) {
    const std::vector<SnapshotNode> both{unchanged("d/f", "F"), unchanged("d/g", "G")};
    EXPECT_EQ(judge(Kind::move, "x", both, "d/f"), stays);
    EXPECT_EQ(judge(Kind::move, "x", both, "d"), stays);
    EXPECT_EQ(judge(Kind::move, "x", both), dropped) << "without a source";
    EXPECT_EQ(judge(Kind::move, "x", {both[1]}, "d/f"), dropped);
    EXPECT_EQ(judge(Kind::move, "d/g", both, "d/f"), dropped) << "its place is taken";
    EXPECT_EQ(judge(Kind::move, "d", both, "d/f"), dropped) << "the server has something below its place";
    EXPECT_EQ(judge(Kind::mkdir, "d/f", {}), stays);
}

class ResetReconciliationTest : public testing::Test, protected ConflictWorld {
 protected:
    ResetReconciliation reset(const std::vector<SnapshotNode>& snapshot,
                              std::optional<std::string> cursor = "c9") {
        anchor = catalogue->currentAnchor();
        auto result = resolver->applyReset(snapshot, brain, cursor);
        EXPECT_EQ(catalogue->cursor(brain), cursor);
        EXPECT_EQ(result.unresolved.size(), 0U);
        return result;
    }
    Lines copyNames(const ResetReconciliation& result) {
        Lines names;
        for (const auto& copy : result.copies)
            names.push_back(shortName(copy.copyPath));
        return names;
    }

    std::int64_t anchor = 0;
};

TEST_F(ResetReconciliationTest, ChangesThatStandAreBasedAnew) {
    givenFile("f", "F");
    givenFile("g", "G");
    givenLocalFile("new", "local:new");
    waitingEdit(Kind::update, "f", "mine", "F");
    waitingEdit(Kind::create, "new", "mine too", "local:new");
    waiting(pendingChange(brain, Kind::mkdir, "folder"));
    waitingMove("g", "h");
    waiting(pendingChange(brain, Kind::remove, "gone"));
    const auto result = reset({unchanged("f", "F"), unchanged("g", "G")});
    EXPECT_EQ(journal(), (Lines{"update f @c9", "create new @c9", "mkdir folder @c9", "move g to h @c9"}));
    EXPECT_EQ(lines(result.requeued), journal());
    EXPECT_EQ(lines(result.dropped), Lines{"delete gone @c0"});
    EXPECT_EQ(tree(), (Lines{"f = F v1", "g = G v1", "new = local:new v1 local-only"}));
    EXPECT_EQ(log(anchor), Lines{});
    EXPECT_EQ(messages(), Lines{});
    EXPECT_TRUE(result.plan.isEmpty());
}

TEST_F(ResetReconciliationTest, OvertakenEditsBecomeCopies) {
    givenFolder("d");
    givenFile("d/f.md", "F");
    givenFile("d/gone.md", "G");
    waitingEdit(Kind::update, "d/f.md", "one", "F");
    waitingEdit(Kind::update, "d/f.md", "two", "F");
    waitingEdit(Kind::update, "d/gone.md", "three", "G");
    const auto result = reset({changed("d/f.md", "F"), unchanged("d/gone~.md", "X")});
    EXPECT_EQ(copyNames(result), (Lines{"d/f~.md", "d/f~2.md", "d/gone~.md"}));
    EXPECT_EQ(result.copies, resolver->copies());
    EXPECT_EQ(journal(), (Lines{"create d/f~.md @c0", "create d/f~2.md @c0", "create d/gone~.md @c0"}))
        << "based on the old cursor";
    EXPECT_EQ(tree(),
              (Lines{"d = dir:d v0", "d/f~2.md = local:* v1 local-only", "d/f~.md = local:* v1 local-only",
                     "d/f.md = F v2", "d/gone~.md = local:* v1 local-only", "d/gone~.md = X v1"}));
    EXPECT_EQ(result.plan.downloads.size(), 2U);
    EXPECT_EQ(messages().at(0),
              "“f.md” changed on the server while this Mac was offline or out of date. Your "
              "version was kept as “f~.md”.");
    EXPECT_EQ(result.requeued.size() + result.dropped.size(), 0U);
}

TEST_F(ResetReconciliationTest, FoldersOfCopiesAreRestored) {
    givenFolder("a");
    givenFolder("a/b");
    givenFile("a/b/f", "F");
    waitingEdit(Kind::update, "a/b/f");
    const auto result = reset({unchanged("elsewhere", "F")});
    EXPECT_EQ(tree(), (Lines{"a = dir:a v0", "a/b = dir:a/b v0", "a/b/f~ = local:* v1 local-only",
                             "elsewhere = F v1"}));
    EXPECT_EQ(at("a").updatedAt, now);
    EXPECT_EQ(log(anchor), (Lines{"+local:*", "-dir:a", "-dir:a/b", "+F", "+dir:a", "+dir:a/b"}));
}

TEST_F(ResetReconciliationTest, AFileOfTheServersKeepsThePlaceOfACopysFolder) {
    givenFolder("d");
    givenFile("d/f", "F");
    waitingEdit(Kind::update, "d/f");
    reset({unchanged("d", "S")});
    EXPECT_EQ(tree(), (Lines{"d = S v1", "d/f~ = local:* v1 local-only"}));
}

TEST_F(ResetReconciliationTest, NamesAvoidWhatComesAndWhatWaits) {
    const std::string name = "f (conflicted copy M 2026-03-14", second = name + " 2)", third = name + " 3)";
    givenFile("f", "F");
    waitingMove("missing", second);
    waitingMove(name + " 4)", "elsewhere");
    waitingEdit(Kind::update, "f");
    const auto result =
        reset({changed("f", "F"), unchanged(name + ")", "X"), unchanged(third + "/deep/in", "Y")});
    EXPECT_EQ(copyNames(result), Lines{"f~5"});

    // Two forms of one name are one, to a person.
    const std::string composed = "caf\u00e9", decomposed = "cafe\u0301";
    givenFile(composed, "C");
    waitingEdit(Kind::update, composed);
    givenLocalFile(decomposed, "local:D");
    givenLocalFile("x" + composed, "local:X");
    givenLocalFile("x" + decomposed, "local:Y");
    reset({changed(composed, "C"), unchanged(decomposed, "N"), unchanged("x" + composed, "M"),
           unchanged("x" + decomposed, "O")});
    EXPECT_EQ(shortName(resolver->copies().back().copyPath), composed + "~");
    EXPECT_EQ(shortName(catalogue->nodeById(brain, "local:D")->path), decomposed + "~2");
    EXPECT_EQ(shortName(catalogue->nodeById(brain, "local:Y")->path), "x" + decomposed + "~");
    EXPECT_EQ(shortName(catalogue->nodeById(brain, "local:X")->path), "x" + composed + "~2");
}

TEST_F(ResetReconciliationTest, LocalRowsGoWithTheirChangeOrMakeRoom) {
    givenLocalFile("edited", "local:E");
    waitingEdit(Kind::update, "edited", "mine", "local:E");
    givenLocalFile("kept", "local:K");
    waitingEdit(Kind::create, "kept", "mine", "local:K");
    givenLocalFile("shared", "local:S");
    waitingEdit(Kind::update, "shared", "mine", "local:S");
    waitingEdit(Kind::create, "shared", "another's");
    givenLocalFile("d", "local:D");
    givenLocalFile("free", "local:F");
    givenLocalFile("new.md", "local:N");
    spool.write(Data(std::string("retained")), ConflictSpool::nodeKey("local:N"));
    const auto result = reset({unchanged("new.md", "N"), unchanged("d/below", "B")});
    EXPECT_EQ(tree(),
              (Lines{"d = dir:d v0", "d~ = local:D v1 local-only", "d/below = B v1",
                     "edited~ = local:* v1 local-only", "free = local:F v1 local-only",
                     "kept = local:K v1 local-only", "new~.md = local:N v1 local-only", "new.md = N v1",
                     "shared = local:S v1 local-only", "shared~ = local:* v1 local-only"}));
    EXPECT_EQ(catalogue->nodeById(brain, "local:N")->title, "Title of new.md");
    EXPECT_EQ(spool.read(ConflictSpool::nodeKey("local:N")), Data(std::string("retained")));
    EXPECT_EQ(copyNames(result), (Lines{"edited~", "shared~"})) << "a file that makes room is no copy";
    EXPECT_EQ(messages().size(), 2U);
}

TEST_F(ResetReconciliationTest, WithoutChangesItIsThePlannersReset) {
    givenFolder("d");
    givenFile("d/f", "F");
    givenLocalFile("mine", "local:1");
    const std::vector<SnapshotNode> snapshot{changed("x/f", "F"), unchanged("y", "Y")};
    const auto result = reset(snapshot);
    const auto rowsAfter = catalogue->allNodes(brain);
    ConflictWorld other;
    other.givenFolder("d");
    other.givenFile("d/f", "F");
    other.givenLocalFile("mine", "local:1");
    EXPECT_EQ(result.plan, ResetPlanner::applySnapshot(snapshot, brain, "c9", *other.catalogue));
    EXPECT_EQ(rowsAfter, other.catalogue->allNodes(brain));
    EXPECT_EQ(log(), other.log());
    EXPECT_EQ(result.copies.size() + result.requeued.size() + result.dropped.size(), 0U);
}

TEST_F(ResetReconciliationTest, AbsentCursorKeepsWhatIsHere) {
    givenFile("f", "F");
    waitingEdit(Kind::update, "f", "mine", "F");
    waitingEdit(Kind::create, "new");
    const auto result = reset({}, std::nullopt);
    EXPECT_EQ(tree(), Lines{"f~ = local:* v1 local-only"});
    EXPECT_EQ(journal(), (Lines{"create new", "create f~ @c0"}));
}

TEST_F(ResetReconciliationTest, WaitsForBytesThatCannotBeHad) {
    givenFile("f", "F");
    waitingEdit(Kind::update, "f");
    const auto row = waiting(pendingChange(brain, Kind::create, "kept"));
    const auto before = dump(catalogue.connection());
    EXPECT_THROW(reset({}), FileError) << "even those of a change that stands";
    EXPECT_EQ(spooled(), Lines{"edit-1=mine"}) << "and nothing is written before that is seen";

    spool.writeNewEdit(Data(), row);
    EXPECT_THROW(reset({unchanged("p", "A"), unchanged("p", "B")}), SQLiteError) << "two nodes of one path";
    EXPECT_EQ(dump(catalogue.connection()), before);
    EXPECT_EQ(resolver->copies().size(), 1U) << "what the resolver remembers is no part of the transaction";
}

}  // namespace
}  // namespace vorlinden::tests
