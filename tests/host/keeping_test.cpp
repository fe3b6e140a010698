// What the host keeps beside the catalogue: recovered bytes, told events, and the list of copies.
#include "linux/host/conflict_copies.h"
#include "linux/host/event_history.h"
#include "linux/host/pull.h"
#include "linux/host/recovery.h"
#include "tests/host/host_fixture.h"

namespace vorlinden::host {
namespace {

using namespace std::chrono_literals;
using tests::numberedUUID;

class KeepingTest : public tests::HostTest {
 protected:
    KeepingTest() { workspace->store->upsertBrain(tests::brainRecord(brain, "notes")); }
    std::int64_t journal(const std::string& path, const std::string& bytes) {
        return HostTest::journal(workspace, brain, PendingChangeKind::create, path, bytes);
    }
    void addLocalOnly(const std::string& path, const std::string& bytes) {
        auto node = tests::fileNode(brain, path, "local:" + std::to_string(path.size()));
        node.localOnly = true;
        workspace->store->upsert(node);
        spool.write(Data::copyOf(bytes), ConflictSpool::nodeKey(node.nodeId));
    }
    // Names without their times, and contents.
    std::vector<std::string> recovered() {
        std::vector<std::string> found;
        if (!machine.files->exists(recovery.folder())) return found;
        for (const auto& name : machine.files->list(recovery.folder()))
            found.push_back(name.substr(25) + "=" +
                            std::string(machine.files->read(recovery.folder() / name).view()));
        std::sort(found.begin(), found.end());
        return found;
    }

    const UUID brain = numberedUUID(1);
    const WorkspaceRef workspace = openSignedIn();
    const ConflictSpool spool = ConflictSpool::inAppGroup(machine.system());
    Recovery& recovery = *workspace->recovery;
    MetadataStore& store = *workspace->store;
    EventHistory history{machine.system(), folders.state};
};

TEST_F(KeepingTest, OnlyBytesThatNothingHoldsAreKeptBeforeTheSweep) {
    const auto waiting = journal("waits.md", "waiting");
    const auto dropped = journal("deep/drop%ped.md", "dropped");
    const auto again = journal("deep/drop%ped.md", "dropped later");
    const auto copied = journal("copied.md", "copied");
    addLocalOnly("copy.md", "copied");
    spool.write(Data::copyOf("of an earlier run"), "edit-900");
    spool.write(Data::copyOf("not ours"), "something else");
    recovery.noteOrigins(store);
    for (const auto row : {dropped, again, copied})
        store.removePending(row);
    recovery.prune(store);
    EXPECT_EQ(recovered(), (std::vector<std::string>{"notes%2Fdeep%2Fdrop%25ped.md=dropped",
                                                     "notes%2Fdeep%2Fdrop%25ped.md=dropped later",
                                                     "unknown edit-900=of an earlier run"}));
    EXPECT_EQ(Recovery::count(*machine.files, recovery.folder()), 3U);
    EXPECT_TRUE(spool.pendingBytes(waiting));
    EXPECT_FALSE(spool.exists("edit-900"));
    EXPECT_TRUE(spool.exists("something else"));
}

TEST_F(KeepingTest, TheSweepWaitsUntilTheBytesAreKept) {
    const auto row = journal("a.md", "bytes");
    store.removePending(row);
    machine.files->failOn(tests::FileOperation::write, ENOSPC);
    EXPECT_THROW(recovery.prune(store), FileError);
    EXPECT_TRUE(spool.pendingBytes(row));
    machine.files->before = {};
    recovery.prune(store);
    EXPECT_EQ(recovered().size(), 1U);
}

TEST_F(KeepingTest, WhatWasKeptGoesAfterThirtyDaysAndNothingElseDoes) {
    store.removePending(journal("a.md", "bytes"));
    recovery.prune(store);
    machine.files->writeAtomically(Data::copyOf("x"), recovery.folder() / "a person's own file, left here");
    machine.advance(30 * 24h);
    recovery.prune(store);
    EXPECT_EQ(Recovery::count(*machine.files, recovery.folder()), 1U);
    machine.advance(1ms);
    recovery.prune(store);
    EXPECT_EQ(machine.files->list(recovery.folder()).size(), 1U);
}

TEST_F(KeepingTest, ABrainThatGoesLeavesItsLocalFilesAndTheSweepKeepsNoSecondCopy) {
    const auto name = std::string(300, 'x') + ".md";
    addLocalOnly("here only.md", "bytes");
    addLocalOnly("deep/" + name, "of a long name");
    machine.loop.run([&] { return pullGrants(workspace); });  // the server grants nothing
    EXPECT_FALSE(store.brain(brain));
    recovery.prune(store);
    const auto kept = recovered();
    ASSERT_EQ(kept.size(), 2U);
    EXPECT_EQ(kept[0], "notes%2Fhere only.md=bytes");
    EXPECT_EQ(kept[1], "…" + std::string(217, 'x') + ".md=of a long name");
}

ConflictEvent event(const UUID& brain, const std::string& path, std::optional<std::string> copyPath = {}) {
    return {
        ConflictEvent::Kind::conflictedCopy, brain, path, std::move(copyPath), "It met.", tests::instant()};
}

TEST_F(KeepingTest, EventsAreTakenOverOnceAndKeptUpToABound) {
    ConflictEventLog::append({event(brain, "a"), event(numberedUUID(9), "b")}, store);
    const auto told = history.collect(store);
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[0].line(), "notes/a: It met.");
    EXPECT_EQ(told[1].brain, numberedUUID(9).lowerText());
    EXPECT_TRUE(history.collect(store).empty());
    EXPECT_EQ(history.events(), told);

    for (int i = 0; i < 11; ++i) {
        std::vector<ConflictEvent> events;
        for (int n = 0; n < 50; ++n)
            events.push_back(event(brain, std::to_string(i) + "." + std::to_string(n)));
        ConflictEventLog::append(events, store);
        EXPECT_EQ(history.collect(store).size(), 50U);
    }
    EXPECT_EQ(history.events().size(), EventHistory::maxEvents);
    EXPECT_EQ(history.events().back().number, 552);
}

TEST_F(KeepingTest, ADeathBetweenHistoryAndLogTellsNothingTwice) {
    ConflictEventLog::append({event(brain, "a"), event(brain, "b")}, store);
    struct Death {};
    EXPECT_THROW(store.inTransaction([&] {
        history.collect(store);
        throw Death();
    }),
                 Death);
    ConflictEventLog::append({event(brain, "c")}, store);
    ASSERT_EQ(history.collect(store).size(), 1U);
    ASSERT_EQ(history.events().size(), 3U);
    EXPECT_EQ(history.events().back().event.path, "c");
    EXPECT_EQ(history.events().back().number, 3);
}

TEST(OriginalByName, UndoesTheNamesOfCopies) {
    const std::pair<const char*, const char*> cases[] = {
        {"a/Plan.final (conflicted copy Studio Mac- 2 2026-03-04).md", "a/Plan.final.md"},
        {"a/Plan (conflicted copy X 2026-03-04 12).md", "a/Plan.md"},
        {"README (conflicted copy X 2026-03-04)", "README"},
        {"a/.profile (conflicted copy X 2026-03-04)", "a/.profile"},
        {"a/memo. (conflicted copy X (2) 2026-03-04)", "a/memo."},
        {"P (conflicted copy X 2026-03-04) (conflicted copy Y 2026-03-05).md",
         "P (conflicted copy X 2026-03-04).md"},
    };
    for (const auto& [copy, original] : cases)
        EXPECT_EQ(originalByName(copy), original) << copy;
    for (const auto* other : {"a.md", "a (conflicted copy X).md", "a (conflicted copy X 2026-3-4).md",
                              "a (conflicted copy X 2026-03-04", "a (conflicted copy X 2026-03-04)b.md",
                              "x (conflicted copy X 2026-03-04)/b.md", " (conflicted copy X 2026-03-04).md",
                              "a (conflicted copy 2026-03-04).md"})
        EXPECT_FALSE(originalByName(other)) << other;
}

TEST_F(KeepingTest, CopiesAreListedWithTheFileThatWasTold) {
    for (const auto* path : {"a.md", "a (conflicted copy X 2026-03-04).md", "b.md", "odd copy.md"})
        store.upsert(tests::fileNode(brain, path));
    for (const auto* path : {"odd copy.md", "no/a (conflicted copy X 2026-03-04).md", "new.md"})
        store.enqueue(tests::pendingChange(brain, PendingChangeKind::create, path));
    const std::vector<ToldEvent> told{{1, "notes", event(brain, "gone.md", "odd copy.md")}};
    EXPECT_EQ(
        conflictCopiesText(conflictCopies(store, told)),
        "notes/a (conflicted copy X 2026-03-04).md\n  a copy of notes/a.md; on the server too\n"
        "notes/no/a (conflicted copy X 2026-03-04).md\n  a copy of notes/no/a.md, which is gone; waits to "
        "go to the server, and is shown again from then on\n"
        "notes/odd copy.md\n  a copy of notes/gone.md, which is gone; waits to go to the server\n");
}

}  // namespace
}  // namespace vorlinden::host
