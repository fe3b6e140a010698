#include "linux/host/round.h"

#include "synckit/conflicts/conflict_spool.h"
#include "tests/host/host_fixture.h"

namespace vorlinden::host {
namespace {

using tests::FakeServer;
using Kind = PendingChangeKind;

class RoundTest : public tests::HostTest {
 protected:
    std::vector<BrainReport> round(const WorkspaceRef& workspace, RoundPlan plan = {}) {
        return through([&] { return syncRound(workspace, observer, plan); });
    }
    // Signed in, with one brain "notes" that holds these files and is pulled.
    WorkspaceRef openPulled(const std::vector<std::string>& files) {
        brain = addBrain(1, "notes", files);
        auto workspace = openSignedIn();
        round(workspace);
        return workspace;
    }
    // From now on, once: these new files, each an entry, then nothing.
    void serverTells(const std::vector<std::string>& files) {
        server.brains[brain].changes = [files](const std::string& cursor) {
            return cursor == "head" ? FakeServer::feed(files, "new") : FakeServer::nothingNew("new");
        };
    }
    // Whether the execution lock could be taken at this moment.
    bool lockIsFree(const WorkspaceRef& workspace) {
        return machine.files->openLockFile(workspace->lockFile)->tryLock() == 0;
    }
    std::vector<std::string> copies(const WorkspaceRef& workspace) {
        std::vector<std::string> paths;
        for (const auto& node : workspace->store->allNodes(brain))
            if (node.path.find("conflicted copy Test Machine") != std::string::npos)
                paths.push_back(node.path);
        return paths;
    }

    UUID brain;
    RoundObserver observer;
};

TEST_F(RoundTest, BringsEveryBrainToTheServersStateAndTellsTheDaemon) {
    const auto notes = addBrain(1, "notes", {"a.md", "b/c.md"});
    addBrain(2, "plans", {});
    const auto workspace = openSignedIn();
    const auto reports = round(workspace);
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_EQ(reports[0].pull.snapshot, 2U);
    EXPECT_EQ(tests::paths(workspace->store->allNodes(notes)),
              (std::vector<std::string>{"a.md", "b", "b/c.md"}));
    EXPECT_EQ(workspace->store->cursor(notes), "head");
    EXPECT_EQ(machine.manager->signalled().size(), 2U) << "once for the new brains, once for the files";

    round(workspace);
    EXPECT_EQ(machine.manager->signalled().size(), 2U) << "nothing changed, nobody is woken";
}

TEST_F(RoundTest, AsksUntilNothingMoreComesAndLetsOthersInMeanwhile) {
    const auto workspace = openPulled({"a"});
    int asked = 0;
    server.brains[brain].changes = [&](const std::string&) {
        EXPECT_FALSE(lockIsFree(workspace));
        if (++asked == 20) return FakeServer::nothingNew("20");
        return FakeServer::feed({std::to_string(asked)}, std::to_string(asked));
    };
    auto task = machine.loop.start([&] { return syncRound(workspace, observer); });
    int free = 0;
    for (; !task.done(); machine.advance(std::chrono::milliseconds(100)))
        free += lockIsFree(workspace) ? 1 : 0;
    EXPECT_GE(free, 3) << "before each of three holds";
    EXPECT_EQ(task.result().at(0).pull.entries, 19U);
    EXPECT_EQ(workspace->store->allNodes(brain).size(), 20U);
}

TEST_F(RoundTest, WhatWaitsIsSentInTheHoldThatBroughtTheBrainUpToDate) {
    const auto workspace = openPulled({"a"});
    const auto row = journal(workspace, brain, Kind::create, "mine", "bytes");
    serverTells({"b"});
    int locks = 0;
    machine.files->before = [&](tests::FileOperation operation, const std::filesystem::path& path) {
        locks += operation == tests::FileOperation::openLock && path == workspace->lockFile ? 1 : 0;
    };
    server.onWrite = [&] {
        EXPECT_EQ(workspace->store->cursor(brain), "new") << "pulled before";
        EXPECT_EQ(locks, 2) << "one hold for the list of brains, one for the brain";
    };
    const auto report = round(workspace).at(0);
    EXPECT_EQ(report.drain.sent, 1U);
    EXPECT_EQ(report.drain.waiting, 0U);
    EXPECT_EQ(server.contents["mine"], "bytes");
    EXPECT_FALSE(workspace->store->pendingChange(row));
}

TEST_F(RoundTest, OneFailingBrainIsNotDrainedAndStopsNoOther) {
    const auto bad = addBrain(1, "bad", {});
    const auto good = addBrain(2, "good", {"a"});
    server.brains[bad].changes = [](const std::string&) { return FakeServer::failure(403, "FORBIDDEN"); };
    const auto workspace = openSignedIn();
    workspace->store->upsertBrain(tests::brainRecord(bad, "bad"));
    journal(workspace, bad, Kind::create, "waits", "bytes");
    const auto reports = round(workspace);
    EXPECT_THROW(std::rethrow_exception(reports.at(0).failure), SyncAPIError);
    EXPECT_TRUE(server.contents.empty());
    EXPECT_FALSE(reports.at(1).failure);
    EXPECT_EQ(workspace->store->allNodes(good).size(), 1U);
}

TEST_F(RoundTest, WhatTheServerPutsOffWaitsWithTheReason) {
    const auto workspace = openPulled({"a"});
    journal(workspace, brain, Kind::create, "later", "bytes");
    journal(workspace, brain, Kind::create, "large", "bytes");
    journal(workspace, brain, Kind::create, "fine", "bytes");
    server.insteadOfPut.emplace("later", FakeServer::failure(503, "BUSY"));
    server.insteadOfPut.emplace("large", FakeServer::failure(413, "TOO_LARGE"));
    const auto drain = round(workspace).at(0).drain;
    EXPECT_EQ(drain.sent, 1U);
    EXPECT_EQ(drain.refused, 1U);
    EXPECT_EQ(drain.waiting, 1U);
    EXPECT_TRUE(drain.later);
    EXPECT_NE(drain.reason->find("503"), std::string::npos) << *drain.reason;

    server.insteadOfPut.clear();
    const auto pulled = round(workspace, {.onlyPulled = {brain}}).at(0);
    EXPECT_FALSE(pulled.drain.tried);
    EXPECT_FALSE(server.contents.contains("later"));
    EXPECT_EQ(round(workspace).at(0).drain.sent, 1U);
}

TEST_F(RoundTest, ChangesWithoutEndEndTheTurnNotTheProgram) {
    const auto id = addBrain(1, "restless", {});
    server.brains[id].changes = [](const std::string&) { return FakeServer::snapshot({"a"}, "again"); };
    const auto report = round(openSignedIn()).at(0);
    EXPECT_THROW(std::rethrow_exception(report.failure), ChangesWithoutEnd);
}

TEST_F(RoundTest, WithoutASessionNothingIsAsked) {
    EXPECT_THROW(round(open()), TokenManagerError);
    machine.secrets->plant(
        {KeychainTokenStore::defaultService, KeychainTokenStore::account, AppGroup::keychainAccessGroup},
        Data::copyOf("garbage"));
    EXPECT_THROW(round(open()), StoredSignInUnreadable);
    EXPECT_TRUE(machine.session->requests().empty());
}

TEST_F(RoundTest, LocalBytesThatLoseSurviveAsACopyThatGoesUp) {
    const auto workspace = openPulled({"a"});
    server.contents["b"] = "theirs";
    const auto row = workspace->store->enqueue(tests::pendingChange(brain, Kind::create, "b"));
    serverTells({"b"});
    ASSERT_TRUE(round(workspace).at(0).failure);
    EXPECT_EQ(workspace->store->cursor(brain), "head") << "without the bytes the batch waits";

    ConflictSpool::inAppGroup(machine.system()).writeNewEdit(Data::copyOf("mine"), row);
    const auto report = round(workspace).at(0);
    EXPECT_FALSE(report.failure);
    EXPECT_EQ(report.pull.copies, 1U);
    ASSERT_EQ(copies(workspace).size(), 1U);
    EXPECT_EQ(server.contents[copies(workspace)[0]], "mine");
    EXPECT_EQ(server.contents["b"], "theirs");
    EXPECT_TRUE(workspace->store->pendingChanges(brain).empty());
    EXPECT_EQ(Recovery::count(*machine.files, workspace->recovery->folder()), 0U) << "nothing was in danger";
}

TEST_F(RoundTest, AResetJudgesTheJournalToo) {
    const auto workspace = openPulled({"a"});
    auto edit = tests::pendingChange(brain, Kind::update, "a");
    edit.nodeId = workspace->store->nodeByPath(brain, "a")->nodeId;
    journal(workspace, edit, "mine");
    server.brains[brain].changes = [](const std::string& cursor) {
        return cursor == "head" ? FakeServer::snapshot({"other"}, "2") : FakeServer::nothingNew("2");
    };
    EXPECT_EQ(round(workspace).at(0).pull.copies, 1U);
    EXPECT_FALSE(workspace->store->nodeByPath(brain, "a"));
    EXPECT_TRUE(workspace->store->nodeByPath(brain, "other"));
}

// The feed tells of "a" being made, which waits here; the server holds `theirs`.
struct EchoCase {
    const char* what;
    std::vector<std::string> rows;  // bytes of the rows of "a", in order
    std::vector<std::string> told;  // paths of the batch's entries
    std::optional<std::string> theirs;
    std::size_t copies;
    std::string endsWith;  // what the server then holds
};

TEST_F(RoundTest, OnesOwnEchoIsNoConflict) {
    const EchoCase cases[] = {
        {"the answer was lost", {"mine"}, {"a"}, "mine", 0, "mine"},
        {"two echoes of one path", {"mine"}, {"x", "a", "a"}, "mine", 0, "mine"},
        {"an edit on top of it", {"mine", "more"}, {"a"}, "mine", 0, "more"},
        {"another's", {"mine"}, {"a"}, "theirs", 1, "theirs"},
        {"an older edit of one's own", {"old", "mine"}, {"a"}, "mine", 1, "mine"},
        {"gone again", {"mine"}, {"a"}, std::nullopt, 1, ""},
    };
    std::uint8_t number = 10;
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        server.brains.clear();
        server.contents.clear();
        brain = addBrain(++number, "notes", {});
        const auto workspace = openSignedIn();
        round(workspace);
        for (const auto& bytes : test.rows)
            journal(workspace, brain, Kind::create, "a", bytes);
        serverTells(test.told);
        if (test.theirs) server.contents["a"] = *test.theirs;
        const auto report = round(workspace).at(0);
        EXPECT_FALSE(report.failure);
        EXPECT_EQ(report.pull.copies, test.copies);
        EXPECT_EQ(server.contents["a"], test.endsWith);
        EXPECT_TRUE(workspace->store->pendingChanges(brain).empty());
    }
}

TEST_F(RoundTest, WhetherItIsAnEchoMustBeKnownBeforeABatchIsApplied) {
    const auto workspace = openPulled({});
    const auto row = journal(workspace, brain, Kind::create, "a", "mine");
    serverTells({"a"});
    const auto path = "/api/sync/brains/" + brain.lowerText() + "/file";
    server.instead.emplace(path, FakeServer::failure(503, "BUSY"));
    EXPECT_TRUE(round(workspace).at(0).failure);
    EXPECT_EQ(workspace->store->cursor(brain), "head");
    EXPECT_EQ(workspace->store->pendingChange(row)->baseCursor, "head");
    server.instead.clear();
    server.contents["a"] = "mine";
    EXPECT_EQ(round(workspace).at(0).pull.copies, 0U);
}

TEST_F(RoundTest, ABatchThatTheCatalogueRefusesTwiceIsPassedOverByASnapshot) {
    const auto workspace = openPulled({"a"});
    SQLiteDatabase(AppGroup::syncDatabaseURL(machine.system()).string())
        .execute(
            "CREATE TRIGGER refuses BEFORE INSERT ON nodes WHEN NEW.path = 'bad' BEGIN "
            "SELECT RAISE(ABORT, 'no'); END");
    const FakeServer::Answer refused[] = {
        FakeServer::feed({"bad"}, "1"),
        tests::FakeURLSession::response(200,
                                        R"({"reset":false,"cursor":"1","entries":[{"ops":"nonsense"}]})")};
    for (const auto& answer : refused) {
        int asked = 0;
        server.brains[brain].changes = [&](const std::string& cursor) -> FakeServer::Answer {
            if (cursor == "whole") return FakeServer::nothingNew("whole");
            return cursor.empty() ? FakeServer::snapshot({"a", "b"}, "whole") : (++asked, answer);
        };
        const auto report = round(workspace).at(0);
        EXPECT_FALSE(report.failure);
        EXPECT_EQ(asked, 2);
        EXPECT_TRUE(report.pull.refusal);
        EXPECT_EQ(workspace->store->cursor(brain), "whole");
        workspace->store->setCursor("head", brain);
    }
}

}  // namespace
}  // namespace vorlinden::host
