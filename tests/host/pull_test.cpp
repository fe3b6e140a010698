#include "linux/host/pull.h"

#include "synckit/conflicts/conflict_spool.h"
#include "tests/host/host_fixture.h"

namespace vorlinden::host {
namespace {

using tests::FakeServer;

class PullTest : public tests::HostTest {
 protected:
    std::vector<BrainReport> round(const WorkspaceRef& workspace) {
        return machine.loop.run([&] { return pullRound(workspace, observer); });
    }
    // Whether the execution lock could be taken at this moment.
    bool lockIsFree(const WorkspaceRef& workspace) {
        const auto lock = machine.files->openLockFile(workspace->lockFile);
        return lock->tryLock() == 0;
    }

    PullObserver observer;
};

TEST_F(PullTest, BringsEveryBrainToTheServersStateAndTellsTheDaemon) {
    const auto notes = addBrain(1, "notes", {"a.md", "b/c.md"});
    addBrain(2, "plans", {});
    const auto workspace = openSignedIn();
    const auto reports = round(workspace);
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_EQ(reports[0].pull.snapshot, 2U);
    EXPECT_TRUE(reports[0].pull.changed);
    EXPECT_FALSE(reports[1].pull.changed);
    EXPECT_EQ(tests::paths(workspace->store->allNodes(notes)),
              (std::vector<std::string>{"a.md", "b", "b/c.md"}));
    EXPECT_EQ(workspace->store->cursor(notes), "head");
    EXPECT_EQ(machine.manager->signalled().size(), 2U) << "once for the new brains, once for the files";

    round(workspace);
    EXPECT_EQ(machine.manager->signalled().size(), 2U) << "nothing changed, nobody is woken";
}

TEST_F(PullTest, AsksUntilNothingMoreComes) {
    const auto id = addBrain(1, "notes", {});
    server.brains[id].changes = [](const std::string& cursor) {
        if (cursor.empty()) return FakeServer::snapshot({"a"}, "1");
        if (cursor == "1") return FakeServer::feed({"b"}, "2");
        if (cursor == "2") return FakeServer::feed({"c", "d"}, "3");
        return FakeServer::nothingNew("3");
    };
    const auto workspace = openSignedIn();
    const auto report = round(workspace).at(0);
    EXPECT_EQ(report.pull.snapshot, 1U);
    EXPECT_EQ(report.pull.entries, 3U);
    EXPECT_EQ(workspace->store->cursor(id), "3");
    EXPECT_EQ(workspace->store->allNodes(id).size(), 4U);
}

TEST_F(PullTest, ARequestAndItsApplicationAreOneHoldOfTheLock) {
    const auto id = addBrain(1, "notes", {});
    const auto workspace = openSignedIn();
    round(workspace);
    int asked = 0;
    server.brains[id].changes = [&](const std::string& cursor) {
        EXPECT_FALSE(lockIsFree(workspace));
        return ++asked == 1 ? FakeServer::feed({"a"}, "1") : FakeServer::nothingNew(cursor);
    };
    round(workspace);
    EXPECT_EQ(asked, 2);
    EXPECT_TRUE(lockIsFree(workspace));
}

TEST_F(PullTest, OneFailingBrainStopsNoOther) {
    const auto bad = addBrain(1, "bad", {});
    const auto good = addBrain(2, "good", {"a"});
    server.brains[bad].changes = [](const std::string&) { return FakeServer::failure(403, "FORBIDDEN"); };
    const auto workspace = openSignedIn();
    const auto reports = round(workspace);
    EXPECT_THROW(std::rethrow_exception(reports.at(0).failure), SyncAPIError);
    EXPECT_FALSE(reports.at(1).failure);
    EXPECT_EQ(workspace->store->allNodes(good).size(), 1U);
}

TEST_F(PullTest, ChangesWithoutEndEndTheTurnNotTheProgram) {
    const auto id = addBrain(1, "restless", {});
    server.brains[id].changes = [](const std::string&) { return FakeServer::snapshot({"a"}, "again"); };
    const auto report = round(openSignedIn()).at(0);
    EXPECT_THROW(std::rethrow_exception(report.failure), ChangesWithoutEnd);
}

TEST_F(PullTest, WithoutASessionNothingIsAsked) {
    EXPECT_THROW(round(open()), TokenManagerError);
    machine.secrets->plant(
        {KeychainTokenStore::defaultService, KeychainTokenStore::account, AppGroup::keychainAccessGroup},
        Data::copyOf("garbage"));
    EXPECT_THROW(round(open()), StoredSignInUnreadable);
    EXPECT_TRUE(machine.session->requests().empty());
}

TEST_F(PullTest, LocalBytesThatLoseSurviveAsACopyBesideTheServers) {
    const auto id = addBrain(1, "notes", {"a"});
    const auto workspace = openSignedIn();
    round(workspace);
    const auto row = workspace->store->enqueue(tests::pendingChange(id, PendingChangeKind::create, "b"));
    server.brains[id].changes = [](const std::string&) { return FakeServer::feed({"b"}, "1"); };
    const auto waiting = round(workspace).at(0);
    EXPECT_EQ(workspace->store->cursor(id), "head") << "without the bytes the batch waits";
    ASSERT_TRUE(waiting.failure);

    const auto spool = ConflictSpool::inAppGroup(machine.system());
    spool.writeNewEdit(Data::copyOf("mine"), row);
    server.brains[id].changes = [](const std::string& cursor) {
        return cursor == "head" ? FakeServer::feed({"b"}, "1") : FakeServer::nothingNew("1");
    };
    const auto report = round(workspace).at(0);
    EXPECT_FALSE(report.failure);
    EXPECT_EQ(report.pull.copies, 1U);
    EXPECT_EQ(workspace->store->cursor(id), "1");
    const auto copy = workspace->store->pendingChanges(id).at(0);
    EXPECT_NE(copy.path.find("conflicted copy Test Machine"), std::string::npos) << copy.path;
    EXPECT_EQ(spool.pendingBytes(*copy.id), Data::copyOf("mine"));
    EXPECT_TRUE(workspace->store->nodeByPath(id, "b"));
}

TEST_F(PullTest, AResetJudgesTheJournalToo) {
    const auto id = addBrain(1, "notes", {"a"});
    const auto workspace = openSignedIn();
    round(workspace);
    auto edit = tests::pendingChange(id, PendingChangeKind::update, "a");
    edit.nodeId = workspace->store->nodeByPath(id, "a")->nodeId;
    const auto row = workspace->store->enqueue(edit);
    ConflictSpool::inAppGroup(machine.system()).writeNewEdit(Data::copyOf("mine"), row);
    server.brains[id].changes = [](const std::string& cursor) {
        return cursor == "head" ? FakeServer::snapshot({"other"}, "2") : FakeServer::nothingNew("2");
    };
    const auto report = round(workspace).at(0);
    EXPECT_FALSE(report.failure);
    EXPECT_EQ(report.pull.copies, 1U);
    EXPECT_FALSE(workspace->store->nodeByPath(id, "a"));
    EXPECT_TRUE(workspace->store->nodeByPath(id, "other"));
}

}  // namespace
}  // namespace vorlinden::host
