#include "synckit/apply/reconciler.h"

#include <gtest/gtest.h>

#include "tests/support/catalogue.h"
#include "tests/support/seeded_random.h"
#include "tests/support/tree.h"

namespace vorlinden {
namespace {

using Lines = std::vector<std::string>;
using tests::fileNode;
using tests::folderNode;
using tests::instant;

const UUID brain = tests::numberedUUID(1);
const Timestamp entryTime = instant(1'800'000'000'000);

Op create(std::string path, std::string title, std::optional<NodeKind> kind = {}) {
    return {Op::Create{std::move(path), std::move(title), {}, false, kind}};
}
Op createFolder(std::string path, std::string title) {
    return {Op::Create{std::move(path), std::move(title), {}, true, {}}};
}
Op mkdir(std::string path, std::string title) {
    return {Op::Mkdir{std::move(path), std::move(title)}};
}
Op edit(std::string path, std::optional<NodeKind> kind = {}) {
    return {Op::Update{std::move(path), {}, {}, true, kind}};
}
Op retitle(std::string path, std::string title) {
    return {Op::Update{std::move(path), std::move(title), {}, false, {}}};
}
Op move(std::string from, std::string to) {
    return {Op::Move{std::move(from), std::move(to)}};
}
Op remove(std::string path) {
    return {Op::Delete{std::move(path)}};
}

// One brain, into which feed batches go; what an op did is told by the rows and by what the log gained.
class ReconcilerTest : public testing::Test {
 protected:
    ReconcilerTest() { catalogue->upsertBrain(tests::brainRecord(brain)); }

    void given(const NodeRecord& node) { catalogue->upsert(node); }

    ReconcileResult apply(std::vector<Op> ops, std::optional<std::string> cursor = "c1") {
        return applyEntries({{"c1", entryTime, {}, std::move(ops)}}, std::move(cursor));
    }
    ReconcileResult applyEntries(const std::vector<FeedEntry>& entries,
                                 std::optional<std::string> cursor = "c1") {
        anchor = catalogue->currentAnchor();
        return Reconciler::applyFeedEntries(random, entries, brain, cursor, *catalogue, handler);
    }

    NodeRecord at(const std::string& path) { return catalogue->nodeByPath(brain, path).value(); }
    Lines tree() { return tests::tree(*catalogue, brain); }
    Lines logged() { return tests::log(catalogue, anchor); }

    tests::Catalogue catalogue;
    tests::SeededRandom random;
    ConflictHandler handler = [](const auto&, const auto&, const auto&) {
        return ConflictResolution::remoteWins;
    };
    std::int64_t anchor = 0;
};

TEST_F(ReconcilerTest, MovesTheCursorEvenWhereNothingElseHappens) {
    EXPECT_EQ(apply({}, "c7"), ReconcileResult{});
    EXPECT_EQ(catalogue->cursor(brain), "c7");
    EXPECT_EQ(apply({}, std::nullopt), ReconcileResult{});
    EXPECT_EQ(catalogue->cursor(brain), std::nullopt) << "an absent cursor is stored as such";
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(ReconcilerTest, CreatesFilesWithTheFoldersAboveThem) {
    const auto result = apply({create("a/b/new.bin", "New", NodeKind::blob), createFolder("a/c", "See")});
    EXPECT_EQ(tree(), (Lines{"a = dir:a v0", "a/b = dir:a/b v0", "a/b/new.bin = local:* v1 blob",
                             "a/c = dir:a/c v0"}));
    EXPECT_EQ(logged(), (Lines{"+dir:a", "+dir:a/b", "+local:*", "+dir:a/c"}));
    EXPECT_TRUE(result.changedAnchors);

    const auto file = at("a/b/new.bin");
    EXPECT_EQ(file.title, "New");
    EXPECT_EQ(file.updatedAt, entryTime);
    EXPECT_EQ(result.downloads,
              (std::vector<DownloadRequest>{{brain, file.nodeId, "a/b/new.bin", NodeKind::blob, 1, "c1"}}));
    EXPECT_EQ(at("a/b").title, "b") << "a folder made on the way has its name for a title";
    EXPECT_EQ(at("a/c").title, "See");
    EXPECT_EQ(at("a/c").kind, NodeKind::text);
}

TEST_F(ReconcilerTest, FileInTheWayOfAFolderGoesWithWhatHangsUnderIt) {
    given(fileNode(brain, "a"));
    given(fileNode(brain, "a/orphan"));
    apply({create("a/b", "B")});
    EXPECT_EQ(tree(), (Lines{"a = dir:a v0", "a/b = local:* v1"}));
    EXPECT_EQ(logged(), (Lines{"-id:a", "-id:a/orphan", "+dir:a", "+local:*"}));
}

TEST_F(ReconcilerTest, CreateOverAnExistingRow) {
    auto file = fileNode(brain, "f");
    file.uploadError = "old trouble";
    given(file);
    given(folderNode(brain, "d"));

    apply({create("f", file.title)});
    EXPECT_EQ(tree(), (Lines{"d = dir:d v0", "f = id:f v2"})) << "same kind, same title: refreshed";
    apply({create("f", "Other")});
    EXPECT_EQ(tree(), (Lines{"d = dir:d v0", "f = local:* v1"})) << "another title: replaced";
    EXPECT_EQ(logged(), (Lines{"-id:f", "+local:*"}));
    apply({create("f", "Other", NodeKind::blob)});
    EXPECT_EQ(tree(), (Lines{"d = dir:d v0", "f = local:* v1 blob"})) << "another kind: replaced";
    EXPECT_EQ(logged(), (Lines{"-local:*", "+local:*"}));
    apply({createFolder("f", "Now a folder"), create("d", "Now a file")});
    EXPECT_EQ(tree(), (Lines{"d = local:* v1", "f = dir:f v0"}));
}

TEST_F(ReconcilerTest, FoldersTakeANewTitleAndNothingElse) {
    given(folderNode(brain, "d"));
    for (const auto& op : {createFolder("d", ""), mkdir("d", ""), mkdir("d", "Title of d")}) {
        EXPECT_FALSE(apply({op}).changedAnchors);
        EXPECT_EQ(logged(), Lines{});
    }
    for (const auto& op : {createFolder("d", "One"), mkdir("d", "Two"), retitle("d", "Three")}) {
        EXPECT_TRUE(apply({op}).changedAnchors);
        EXPECT_EQ(logged(), Lines{"+dir:d"});
    }
    auto expected = folderNode(brain, "d");
    expected.title = "Three";
    EXPECT_EQ(at("d"), expected);
    EXPECT_FALSE(apply({edit("d")}).changedAnchors) << "a folder has no content to refresh";
}

TEST_F(ReconcilerTest, MkdirReplacesAFile) {
    given(fileNode(brain, "d"));
    apply({mkdir("d", "D"), mkdir("x/y", "Y")});
    EXPECT_EQ(tree(), (Lines{"d = dir:d v0", "x = dir:x v0", "x/y = dir:x/y v0"}));
    EXPECT_EQ(logged(), (Lines{"-id:d", "+dir:d", "+dir:x", "+dir:x/y"}));
}

TEST_F(ReconcilerTest, UpdateRefreshesContentOrTitle) {
    auto file = fileNode(brain, "f");
    file.kind = NodeKind::blob;
    file.blobHash = "hash";
    file.blobSize = 3;
    file.uploadError = "old trouble";
    given(file);

    EXPECT_FALSE(apply({retitle("f", file.title)}).changedAnchors);
    EXPECT_EQ(at("f"), file);

    EXPECT_EQ(apply({retitle("f", "New")}).downloads.size(), 0U);
    file.title = "New";
    EXPECT_EQ(at("f"), file) << "a title leaves date and version alone";

    const auto result = apply({edit("f")});
    file.kind = NodeKind::text;
    file.blobHash = file.uploadError = std::nullopt;
    file.blobSize = std::nullopt;
    file.contentVersion = 2;
    file.updatedAt = entryTime;
    EXPECT_EQ(at("f"), file) << "a kind that isn't told is text";
    EXPECT_EQ(result.downloads,
              (std::vector<DownloadRequest>{{brain, "id:f", "f", NodeKind::text, 2, "c1"}}));
}

TEST_F(ReconcilerTest, UpdateTakesOverARowThatExistsOnlyHere) {
    auto file = fileNode(brain, "f");
    file.localOnly = true;
    file.uploadError = "No write access";
    given(file);
    EXPECT_EQ(apply({retitle("f", "Theirs")}).downloads.size(), 1U) << "its content is fetched";
    EXPECT_EQ(tree(), Lines{"f = id:f v2"});
}

TEST_F(ReconcilerTest, UpdateOfAMissingPathCreatesTheFile) {
    apply({edit("x/report.md"), retitle("other", "Given")});
    EXPECT_EQ(tree(), (Lines{"other = local:* v1", "x = dir:x v0", "x/report.md = local:* v1"}));
    EXPECT_EQ(at("x/report.md").title, "report.md");
    EXPECT_EQ(at("other").title, "Given");
}

TEST_F(ReconcilerTest, DeleteTakesTheSubtreeAndNothingBeside) {
    for (const auto* path : {"d/f", "d/e/g", "d-x", "d0", "da"})
        given(fileNode(brain, path));
    given(folderNode(brain, "d"));
    given(folderNode(brain, "d/e"));
    EXPECT_TRUE(apply({remove("d")}).changedAnchors);
    EXPECT_EQ(tree(), (Lines{"d-x = id:d-x v1", "d0 = id:d0 v1", "da = id:da v1"}));
    EXPECT_EQ(logged(), (Lines{"-dir:d", "-dir:d/e", "-id:d/e/g", "-id:d/f"}));
    EXPECT_FALSE(apply({remove("d"), remove("nowhere")}).changedAnchors);
}

TEST_F(ReconcilerTest, MoveCarriesTheSubtreeAndRenamesDerivedFolders) {
    given(folderNode(brain, "a"));
    given(folderNode(brain, "a/sub"));
    auto named = folderNode(brain, "a/sub/named");
    named.nodeId = "server-folder";
    given(named);
    given(fileNode(brain, "a/sub/f"));
    given(fileNode(brain, "ab"));
    auto plain = at("a/sub");
    plain.title = "sub";
    given(plain);

    EXPECT_TRUE(apply({move("a", "x/y")}).changedAnchors);
    EXPECT_EQ(tree(), (Lines{"ab = id:ab v1", "x = dir:x v0", "x/y = dir:x/y v0", "x/y/sub = dir:x/y/sub v0",
                             "x/y/sub/f = id:a/sub/f v1", "x/y/sub/named = server-folder v0 folder"}));
    EXPECT_EQ(logged(), (Lines{"+dir:x", "-dir:a", "+dir:x/y", "-dir:a/sub", "+dir:x/y/sub", "+id:a/sub/f",
                               "+server-folder"}));
    EXPECT_EQ(at("x/y").title, "Title of a") << "a title of its own stays";
    EXPECT_EQ(at("x/y/sub/f").title, "Title of a/sub/f");

    apply({move("x/y/sub", "x/renamed")});
    EXPECT_EQ(at("x/renamed").title, "renamed") << "a title that was the name follows it";
}

TEST_F(ReconcilerTest, MoveThatGoesNowhereLeavesTheDestinationAlone) {
    given(folderNode(brain, "a"));
    given(fileNode(brain, "b"));
    EXPECT_FALSE(
        apply({move("a", "a"), move("a", "a/b/c"), move("gone", "b"), move("gone", "x/y")}).changedAnchors);
    EXPECT_EQ(tree(), (Lines{"a = dir:a v0", "b = id:b v1"}));
}

TEST_F(ReconcilerTest, MoveOntoAnOccupiedPlaceClearsIt) {
    given(folderNode(brain, "to"));
    given(fileNode(brain, "to/old"));
    given(fileNode(brain, "from"));
    apply({move("from", "to")});
    EXPECT_EQ(tree(), Lines{"to = id:from v1"});
    EXPECT_EQ(logged(), (Lines{"-dir:to", "-id:to/old", "+id:from"}));

    // A node that lies under the destination itself is moved, not cleared away.
    given(folderNode(brain, "p"));
    given(fileNode(brain, "p/in"));
    given(fileNode(brain, "p/out"));
    apply({move("p/in", "p")});
    EXPECT_EQ(tree(), (Lines{"p = id:p/in v1", "to = id:from v1"}));
}

TEST_F(ReconcilerTest, JunkNamesNeverGetIn) {
    given(fileNode(brain, "f"));
    given(fileNode(brain, "g"));
    auto junk = fileNode(brain, "x/.DS_Store");
    junk.localOnly = true;
    given(junk);
    EXPECT_FALSE(apply({create(".DS_Store", "J"), createFolder("y/.gitkeep", "J"), edit("x/.DS_Store"),
                        mkdir(".localized", "J"), move("x/.DS_Store", "f")})
                     .changedAnchors);
    EXPECT_TRUE(apply({move("f", "x/Icon\r"), remove("x/.DS_Store")}).changedAnchors);
    EXPECT_EQ(tree(), Lines{"g = id:g v1"}) << "moved to a junk name is deleted; a delete goes by no name";
}

TEST_F(ReconcilerTest, DownloadsAreListedOnceAsTheyEndUp) {
    given(fileNode(brain, "a"));
    const auto result = apply({edit("a"), create("n", "N"), create("gone", "G"), edit("a", NodeKind::blob),
                               remove("gone"), move("a", "z/a"), create("gone", "again")});
    const auto again = at("gone");
    EXPECT_EQ(result.downloads,
              (std::vector<DownloadRequest>{{brain, "id:a", "z/a", NodeKind::blob, 3, "c1"},
                                            {brain, at("n").nodeId, "n", NodeKind::text, 1, "c1"},
                                            {brain, again.nodeId, "gone", NodeKind::text, 1, "c1"}}));
}

// What the handler is asked, as "entry op-path journal-path".
class CollisionTest : public ReconcilerTest {
 protected:
    CollisionTest() {
        handler = [this](const FeedEntry& entry, const Op& op, const PendingChange& pending) {
            asked.push_back(entry.cursor + " " + op.path() + " " + pending.path);
            return answer(pending);
        };
    }
    void waiting(std::string path, std::optional<std::string> base) {
        auto change = tests::pendingChange(brain, PendingChangeKind::update, std::move(path));
        change.baseCursor = std::move(base);
        catalogue->enqueue(change);
    }

    std::function<ConflictResolution(const PendingChange&)> answer = [](const auto&) {
        return ConflictResolution::remoteWins;
    };
    Lines asked;
};

TEST_F(CollisionTest, ChangesCollideOnlyWithEntriesBeyondTheirBase) {
    waiting("f", "c2");
    waiting("f", "elsewhere");
    waiting("f", std::nullopt);
    waiting("g", "c1");
    const auto other = tests::numberedUUID(9);
    catalogue->enqueue(tests::pendingChange(other, PendingChangeKind::update, "f"));

    // The entry that carries the base, and all behind it, are known to the change; the base may stand in an
    // entry without ops.
    applyEntries({{"c1", entryTime, {}, {edit("f")}},
                  {"c2", entryTime, {}, {}},
                  {"c3", entryTime, {}, {edit("f"), edit("g")}}});
    EXPECT_EQ(asked, (Lines{"c1 f f", "c1 f f", "c1 f f", "c3 f f", "c3 f f"}));
}

TEST_F(CollisionTest, SettlesEachCollisionBeforeTheOpIsApplied) {
    waiting("d/one", {});
    waiting("d/two", {});
    given(fileNode(brain, "d/one"));
    answer = [this](const PendingChange& pending) {
        EXPECT_EQ(catalogue->nodeByPath(brain, "d/one").has_value(), asked.size() <= 2)
            << "not before the op";
        catalogue->removePending(*pending.id);
        catalogue->upsert(fileNode(brain, "copy of " + pending.path.substr(2)));
        return ConflictResolution::remoteWins;
    };
    // The second op finds the journal as it stood at the start, and junk is no excuse for not asking.
    apply({remove("d"), edit("d/two"), edit("d/.DS_Store")});
    EXPECT_EQ(asked, (Lines{"c1 d d/one", "c1 d d/two", "c1 d/two d/two"}));
    EXPECT_EQ(tests::paths(catalogue->allNodes(brain)), (Lines{"copy of one", "copy of two", "d", "d/two"}));

    asked.clear();
    answer = [this](const auto&) {
        catalogue->appendChange(SyncItemIdentifier::brain(brain), false);
        return ConflictResolution::remoteWins;
    };
    waiting("x/.DS_Store", {});
    EXPECT_FALSE(apply({edit("x/.DS_Store")}).changedAnchors) << "what a handler does counts for nothing";
    EXPECT_EQ(asked, Lines{"c1 x/.DS_Store x/.DS_Store"});
}

TEST_F(CollisionTest, FailuresTakeTheWholeBatchBack) {
    waiting("f", {});
    waiting("f", {});
    given(fileNode(brain, "f"));
    catalogue->setCursor("before", brain);
    const auto nothingHappened = [&] {
        return tree() == Lines{"f = id:f v1"} && logged().empty() && catalogue->cursor(brain) == "before" &&
               catalogue->pendingChanges(brain).size() == 2;
    };

    int calls = 0;
    answer = [&](const PendingChange& pending) {
        catalogue->removePending(*pending.id);
        return ++calls == 1 ? ConflictResolution::keepLocal : ConflictResolution::remoteWins;
    };
    try {
        apply({create("n", "N"), edit("f"), remove("n")});
        ADD_FAILURE() << "a change that is kept must end the batch";
    } catch (const FileError& error) {
        EXPECT_EQ(error, FileError::noSuchFile());
    }
    EXPECT_EQ(calls, 2) << "the other collisions of the op are settled all the same";
    EXPECT_TRUE(nothingHappened());

    answer = [](const PendingChange&) -> ConflictResolution { throw CancelledError(); };
    EXPECT_THROW(apply({create("n", "N"), edit("f")}), CancelledError);
    EXPECT_TRUE(nothingHappened());

    catalogue->deleteBrain(brain);
    try {
        apply({create("n", "N")});
        ADD_FAILURE() << "a brain without a row has no cursor to move";
    } catch (const MetadataStoreError& error) {
        EXPECT_EQ(error, MetadataStoreError::unknownBrain(brain));
    }
    EXPECT_EQ(tree(), Lines{"f = id:f v1"});
}

}  // namespace
}  // namespace vorlinden
