#include <gtest/gtest.h>

#include "tests/conflicts/conflict_world.h"

namespace vorlinden::tests {
namespace {

using Kind = PendingChangeKind;

const Data mine(std::string("mine"));

class BouncesTest : public testing::Test, protected ConflictWorld {
 protected:
    void givenRefused(std::string path, std::string id) {
        auto file = fileNode(brain, std::move(path), std::move(id));
        file.uploadError = "old trouble";
        given(file);
    }
    ConflictEvent onlyEvent() {
        auto events = ConflictEventLog::drain(*catalogue);
        EXPECT_EQ(events.size(), 1U);
        return events.at(0);
    }
};

TEST_F(BouncesTest, RefusedEditBecomesACopyAndTheFileIsFetchedAnew) {
    givenRefused("d/f.md", "F");
    const auto row = waitingEdit(Kind::update, "d/f.md");
    const auto result = resolver->bounceUpsert(brain, "d/f.md", row, mine);
    EXPECT_EQ(result.record, at("d/f.md"));
    EXPECT_EQ(result.copy, resolver->copies().at(0));
    EXPECT_EQ(tree(), (Lines{"d = dir:d v0", "d/f~.md = local:* v1 local-only", "d/f.md = F v2"}));
    EXPECT_EQ(log(), (Lines{"+F", "+dir:d", "+local:*"}));
    EXPECT_EQ(journal(), Lines{"create d/f~.md @c0"});
    EXPECT_EQ(spooled(), (Lines{"copy-2=mine", "edit-1=mine"}));
    const auto event = onlyEvent();
    EXPECT_EQ(event.kind, ConflictEvent::Kind::readOnlyBounce);
    EXPECT_EQ(shortName(event.message),
              "You don't have write access to “f.md”. Your edit was kept as “f~.md”.");
}

TEST_F(BouncesTest, StaleEditDiffersInItsReasonOnly) {
    givenRefused("f", "F");
    const auto result = resolver->divertStaleEdit(brain, "f", std::nullopt, mine);
    EXPECT_EQ(result.record->uploadError, std::nullopt);
    EXPECT_EQ(tree(), (Lines{"f = F v2", "f~ = local:* v1 local-only"}));
    const auto event = onlyEvent();
    EXPECT_EQ(event.kind, ConflictEvent::Kind::conflictedCopy);
    EXPECT_EQ(shortName(event.message),
              "“f” changed elsewhere after you started editing it. Your version was saved as “f~”.");
}

TEST_F(BouncesTest, EditWithoutAFileIsACopyAllTheSame) {
    givenFolder("f");
    EXPECT_EQ(resolver->bounceUpsert(brain, "f", std::nullopt, mine).record, std::nullopt);
    EXPECT_EQ(resolver->bounceUpsert(brain, "gone", std::nullopt, mine).record, std::nullopt);
    EXPECT_EQ(tree(), (Lines{"f = dir:f v0", "f~ = local:* v1 local-only", "gone~ = local:* v1 local-only"}));
    EXPECT_EQ(log(), (Lines{"+local:*", "+local:*"}));
}

TEST_F(BouncesTest, RefusedNewFileGivesWayToItsCopy) {
    givenLocalFile("f", "local:1");
    const auto row = waitingEdit(Kind::create, "f");
    EXPECT_EQ(resolver->bounceCreate(brain, "f", row, mine).record, std::nullopt);
    EXPECT_EQ(tree(), Lines{"f~ = local:* v1 local-only"});
    EXPECT_EQ(log(), (Lines{"+local:*", "-local:1"}));
    EXPECT_EQ(journal(), Lines{"create f~ @c0"});

    givenFile("g", "G");
    EXPECT_EQ(resolver->bounceCreate(brain, "g", std::nullopt, mine).record, at("g"));
    EXPECT_EQ(tree().at(1), "g = G v1") << "a file of the server's is left alone";
}

TEST_F(BouncesTest, RefusedMoveAnnouncesTheOldPlace) {
    givenFolder("d");
    givenRefused("d/f", "F");
    resolver->bounceMove(brain, "d", "elsewhere", waitingMove("d", "elsewhere"));
    EXPECT_EQ(log(), (Lines{"+dir:d", "+F"}));
    EXPECT_EQ(journal(), Lines{});
    EXPECT_EQ(onlyEvent(), (ConflictEvent{ConflictEvent::Kind::readOnlyBounce, brain, "d", std::nullopt,
                                          "You don't have write access to “d”. It was not moved.", now}));
    givenFile("d/g", "somebody else's");
    const auto before = catalogue->currentAnchor();
    resolver->bounceMove(brain, "d/f", "d/g", std::nullopt);
    EXPECT_EQ(log(before), (Lines{"+F", "+F"})) << "the error goes with a row of its own";
    EXPECT_EQ(at("d/f").uploadError, std::nullopt);
    EXPECT_EQ(messages(), Lines{"You don't have write access to “f”. It was not moved."});
}

TEST_F(BouncesTest, MoveThatTheCatalogueShowsIsUndone) {
    givenFolder("to");
    givenFile("to/f", "F");
    resolver->bounceMove(brain, "x/from", "to", std::nullopt);
    EXPECT_EQ(tree(), (Lines{"x = dir:x v0", "x/from = dir:x/from v0", "x/from/f = F v1"}));
    EXPECT_EQ(log(), (Lines{"+dir:x", "-dir:to", "+dir:x/from", "+F", "+dir:x/from", "+F"}));

    givenLocalFile("named", "local:1");
    resolver->bounceMove(brain, ".DS_Store", "named", std::nullopt);
    EXPECT_EQ(tree().size(), 3U) << "what came from a junk name goes";
    givenLocalFile(".gitkeep", "local:2");
    resolver->bounceMove(brain, "gone", ".gitkeep", std::nullopt);
    EXPECT_EQ(tree().at(0), ".gitkeep = local:2 v1 local-only") << "nothing went to a junk name";
}

TEST_F(BouncesTest, RefusedDeleteBringsTheItemsBack) {
    givenFolder("a/b");
    givenFile("a/b/c.txt", "C");
    givenFile("a/b-x", "X");
    const auto row = waiting(pendingChange(brain, Kind::remove, "a/b"));
    resolver->bounceDelete(brain, "a/b", row);
    EXPECT_EQ(log(), (Lines{"+dir:a/b", "+C"}));
    EXPECT_EQ(journal(), Lines{});
    EXPECT_EQ(onlyEvent(), (ConflictEvent{ConflictEvent::Kind::readOnlyBounce, brain, "a/b", std::nullopt,
                                          "You don't have write access to “b”. It was not deleted.", now}));
    resolver->bounceDelete(brain, "gone/c.txt", std::nullopt);
    EXPECT_EQ(messages(), Lines{"You don't have write access to “c.txt”. It was not deleted."});
}

TEST_F(BouncesTest, RefusedCopyStaysForGood) {
    givenFile("f", "F");
    const auto copy = resolver->bounceUpsert(brain, "f", std::nullopt, mine).copy;
    ConflictEventLog::drain(*catalogue);
    auto adopted = at(copy.copyPath);
    adopted.localOnly = false;
    given(adopted);
    resolver->copyUploadBounced(brain, copy.nodeId, copy.copyPath, copy.journalId);
    EXPECT_EQ(tree(), (Lines{"f = F v2", "f~ = local:* v1 local-only (No write access)"}));
    EXPECT_EQ(journal(), Lines{});
    EXPECT_EQ(spooled(), (Lines{"copy-1=mine", "node-*=mine"}));
    const auto event = onlyEvent();
    EXPECT_EQ(event.kind, ConflictEvent::Kind::noWriteAccess);
    EXPECT_EQ(event.path, copy.copyPath);
    EXPECT_EQ(event.copyPath, std::nullopt);
    EXPECT_EQ(shortName(event.message),
              "You don't have write access to this folder, so “f~” stays on this Mac only.");
}

TEST_F(BouncesTest, RefusedCopyWhoseRowHasGoneIsMadeAgain) {
    const auto row = waiting(pendingChange(brain, Kind::create, "d/copy"));
    spool.writeNewCopy(mine, row);
    resolver->copyUploadBounced(brain, "local:gone", "d/copy", row);
    EXPECT_EQ(tree(), (Lines{"d = dir:d v0", "d/copy = local:* v1 local-only (No write access)"}));
    EXPECT_EQ(spool.read(ConflictSpool::nodeKey(at("d/copy").nodeId)), mine);

    const auto lost = waiting(pendingChange(brain, Kind::create, "lost"));
    EXPECT_THROW(resolver->copyUploadBounced(brain, "local:gone", "lost", lost), FileError);
    EXPECT_EQ(journal(), Lines{"create lost @c0"}) << "without its bytes there is nothing to stay";
}

}  // namespace
}  // namespace vorlinden::tests
