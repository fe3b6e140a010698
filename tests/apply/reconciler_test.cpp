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

// What ops make of a tree is compared with a model elsewhere; this is in which order the log says so. The
// world before: the folders d/ and d/sub/ with the files d/f and d/sub/g, the folder d/sub/named/ of the
// server's own, the file f, and o/in without a folder above it.
TEST_F(ReconcilerTest, LogsEachStepInItsOrder) {
    struct Case {
        Op op;
        Lines log;
    };
    const std::vector<Case> cases{
        {create("a/b/new", "N"), {"+dir:a", "+dir:a/b", "+local:*"}},
        {create("f/in", "N"), {"-id:f", "+dir:f", "+local:*"}},
        {create("f", "Title of f"), {"+id:f"}},
        {create("f", "Another"), {"-id:f", "+local:*"}},
        {create("f", "Title of f", NodeKind::blob), {"-id:f", "+local:*"}},
        {create("d", "D"), {"-dir:d", "-id:d/f", "-dir:d/sub", "-id:d/sub/g", "-named", "+local:*"}},
        {createFolder("d", "Another"), {"+dir:d"}},
        {createFolder("d", ""), {}},
        {createFolder("f", ""), {"-id:f", "+dir:f"}},
        {mkdir("d", "Another"), {"+dir:d"}},
        {mkdir("d", "Title of d"), {}},
        {mkdir("f", "F"), {"-id:f", "+dir:f"}},
        {edit("f"), {"+id:f"}},
        {edit("x/y"), {"+dir:x", "+local:*"}},
        {edit("d"), {}},
        {retitle("f", "Another"), {"+id:f"}},
        {retitle("f", "Title of f"), {}},
        {remove("d/sub"), {"-dir:d/sub", "-id:d/sub/g", "-named"}},
        {remove("nowhere"), {}},
        {move("d/sub", "x/y"), {"+dir:x", "-dir:d/sub", "+dir:x/y", "+id:d/sub/g", "+named"}},
        {move("d/sub", "d"), {"-dir:d", "-id:d/f", "-dir:d/sub", "+dir:d", "+id:d/sub/g", "+named"}},
        {move("f", "d/sub"), {"-dir:d/sub", "-id:d/sub/g", "-named", "+id:f"}},
        {move("d", "f/x"),
         {"-id:f", "+dir:f", "-dir:d", "+dir:f/x", "+id:d/f", "-dir:d/sub", "+dir:f/x/sub", "+id:d/sub/g",
          "+named"}},
        {move("d", "d/sub/x"), {}},
        {move("f", "f"), {}},
        {move("o", "f"), {}},
        {move("f", ".DS_Store"), {"-id:f"}},
        {move(".DS_Store", "f"), {}},
        {create("d/.DS_Store", "J"), {}},
    };
    auto named = folderNode(brain, "d/sub/named");
    named.nodeId = "named";
    for (const auto& folder : {folderNode(brain, "d"), folderNode(brain, "d/sub"), named})
        given(folder);
    for (const auto* path : {"d/f", "d/sub/g", "f", "o/in"})
        given(fileNode(brain, path));
    for (std::size_t i = 0; i < cases.size(); ++i)
        tests::undone(*catalogue, [&] {
            const bool changed = apply({cases[i].op}).changedAnchors;
            EXPECT_EQ(logged(), cases[i].log) << "case " << i << " on " << cases[i].op.path();
            EXPECT_EQ(changed, !cases[i].log.empty()) << "case " << i;
        });
}

TEST_F(ReconcilerTest, UpdateRefreshesContentOrTitle) {
    auto file = fileNode(brain, "f");
    file.kind = NodeKind::blob;
    file.blobHash = "hash";
    file.blobSize = 3;
    file.uploadError = "old trouble";
    given(file);
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

    file.localOnly = true;
    file.uploadError = "No write access";
    given(file);
    EXPECT_EQ(apply({retitle("f", "Theirs")}).downloads.size(), 1U)
        << "a row that exists only here is taken over and its content fetched";
    EXPECT_EQ(tree(), Lines{"f = id:f v3"});
}

TEST_F(ReconcilerTest, FoldersKeepTheTitlesOfTheirOwn) {
    auto plain = folderNode(brain, "a/sub");
    plain.title = "sub";
    given(folderNode(brain, "a"));
    given(plain);
    apply({move("a", "x"), move("x/sub", "x/renamed"), create("y/f", "F")});
    EXPECT_EQ(at("x").title, "Title of a");
    EXPECT_EQ(at("x/renamed").title, "renamed") << "a title that was the name follows it";
    EXPECT_EQ(at("y").title, "y");
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
