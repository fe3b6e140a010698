#include "linux/host/status.h"

#include "linux/host/desktop.h"
#include "linux/host/explain.h"
#include "linux/host/mark.h"
#include "linux/host/round.h"
#include "platform/json.h"
#include "tests/host/host_fixture.h"

namespace vorlinden::host {
namespace {

using namespace std::chrono_literals;
using tests::FakeServer;

class StatusTest : public tests::HostTest {
 protected:
    Status gather() { return gatherStatus(machine.system(), folders); }
    std::string text() { return statusText(gather(), machine.clock->now()); }
    void sync(const WorkspaceRef& workspace) {
        RoundObserver observer;
        through([&] { return syncRound(workspace, observer); });
    }
};

TEST_F(StatusTest, BeforeAnythingThereIsNothingAndNothingIsMade) {
    const auto status = gather();
    EXPECT_FALSE(status.signedIn);
    EXPECT_TRUE(status.brains.empty());
    EXPECT_FALSE(machine.files->exists(AppGroup::syncDatabaseURL(machine.system())));
}

TEST_F(StatusTest, CountsWhatIsThereAndTellsItsAge) {
    const auto id = addBrain(1, "notes", {"a.md", "b/c.md", "b/d.md"});
    const auto workspace = openSignedIn();
    sync(workspace);
    machine.advance(2h + 5min);
    const auto status = gather();
    ASSERT_EQ(status.brains.size(), 1U);
    EXPECT_EQ(status.standing(), Standing::inStep);
    const auto shown = text();
    EXPECT_NE(shown.find("notes: 3 files in 1 folder, current as of 2 hours ago\n"), std::string::npos)
        << shown;

    const auto json = statusJSON(status);
    const platform::JSONDocument document(json);
    EXPECT_TRUE(document.root().requiredBool("signedIn"));
    const auto brain = document.root().required("brains").list().at(0);
    EXPECT_EQ(brain.requiredInteger("files"), 3);
    EXPECT_EQ(brain.required("sync").requiredString("state"), "idle");
    EXPECT_EQ(document.root().required("server").requiredString("url"), "https://sync.test");
    const auto mark = Mark::syncs(folders, id).hold(machine.system());
    EXPECT_NE(text().find("syncing now"), std::string::npos);
}

TEST_F(StatusTest, SaysWhatWaitsAndWhatStandsInTheWay) {
    const auto notes = addBrain(1, "notes", {"a.md"});
    const auto gone = addBrain(2, "gone", {});
    const auto workspace = openSignedIn();
    sync(workspace);
    using Kind = PendingChangeKind;
    auto move = tests::pendingChange(notes, Kind::move, "c.md");
    move.fromPath = "a.md";
    workspace->store->enqueue(move);
    workspace->store->enqueue(tests::pendingChange(notes, Kind::update, "lost.md"));
    journal(workspace, gone, Kind::create, "b.md", "bytes");
    const auto why = [this](std::size_t row) {
        const auto change = gather().waiting.at(row);
        return change.what + ": " + change.why;
    };
    EXPECT_EQ(gather().standing(), Standing::somethingWaits);
    EXPECT_EQ(why(0),
              "the move of notes/a.md to notes/c.md: Nothing sends it while `vorlinden sync` isn't running.");
    EXPECT_EQ(why(1), "new content of notes/lost.md: Its bytes are not on this machine any more.");

    server.brains.erase(gone);
    server.instead.emplace("/api/sync/brains/" + notes.lowerText() + "/move",
                           FakeServer::failure(503, "BUSY"));
    sync(workspace);
    EXPECT_EQ(why(0), "the move of notes/a.md to notes/c.md: The server can't answer just now (503).");
    EXPECT_EQ(why(2),
              "the new file gone/b.md: You no longer have this brain; the change is kept on this machine.");

    server.brains[notes].changes = [](const std::string&) { return FakeServer::failure(403, "FORBIDDEN"); };
    sync(workspace);
    EXPECT_NE(why(0).find("because of FORBIDDEN"), std::string::npos) << why(0);
    EXPECT_NE(text().find("waiting: 3 changes"), std::string::npos) << text();
}

TEST_F(StatusTest, WhatTheServerRefusedNeedsThePerson) {
    const auto notes = addBrain(1, "notes", {});
    const auto workspace = openSignedIn();
    sync(workspace);
    const auto addTrouble = [&](const std::string& path, const std::string& message) {
        auto node = tests::fileNode(notes, path);
        node.uploadError = message;
        workspace->store->upsert(node);
    };
    addTrouble("large.bin", "Not uploaded: too large");
    addTrouble("ro/a.md", "No write access");
    EXPECT_EQ(gather().standing(), Standing::needsPerson);
    const auto shown = text();
    EXPECT_NE(shown.find("notes/large.bin: Not uploaded: too large\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find("notes/ro/a.md: You have no write access to this folder"), std::string::npos)
        << shown;
    EXPECT_NE(shown.find("2 upload errors"), std::string::npos) << shown;
}

TEST_F(StatusTest, TellsWhatTheDaemonCouldNotFetch) {
    auto status = gather();
    EXPECT_NE(statusText(status, machine.clock->now()).find("mount: none"), std::string::npos);
    const auto at = machine.clock->now();
    status.mount = {
        "/tree", "unreachable", std::nullopt, MountStatus::FailedFetch{"notes/a.md", "It timed out.", at}, 0,
        0};
    const auto text = statusText(status, at + 3min);
    EXPECT_NE(text.find("can't be reached"), std::string::npos) << text;
    EXPECT_NE(text.find("could not fetch notes/a.md (3 minutes ago): It timed out."), std::string::npos)
        << text;
    const auto json = statusJSON(status);
    const platform::JSONDocument document(json);
    EXPECT_EQ(document.root().required("mount").required("failedFetch").requiredString("path"), "notes/a.md");
}

TEST_F(StatusTest, AnUnreadableCatalogueIsLeftAloneAndExplained) {
    openSignedIn();
    const auto file = AppGroup::syncDatabaseURL(machine.system());
    SQLiteDatabase(file.string()).execute("PRAGMA user_version = 99");
    try {
        gather();
        FAIL();
    } catch (...) {
        const auto sentence = explain(std::current_exception()).sentence;
        EXPECT_NE(sentence.find("newer version"), std::string::npos) << sentence;
        EXPECT_NE(sentence.find(file.string()), std::string::npos) << sentence;
    }
}

TEST_F(StatusTest, AnIdleMachineIsNotWrittenToMoreThanOnceAMinute) {
    addBrain(1, "notes", {"a.md"});
    const auto workspace = openSignedIn();
    sync(workspace);
    int writes = 0;
    machine.files->before = [&](tests::FileOperation operation, const std::filesystem::path&) {
        writes += operation == tests::FileOperation::write ? 1 : 0;
    };
    machine.advance(30s);
    sync(workspace);
    EXPECT_EQ(writes, 0);
    machine.advance(30s);
    sync(workspace);
    EXPECT_EQ(writes, 1);
    EXPECT_EQ(gather().brains.at(0).sync.lastSyncAt, machine.clock->now());
}

TEST_F(StatusTest, AnUnreadableMemoryOfTheHostCountsAsNone) {
    machine.files->createDirectories(folders.state);
    machine.files->writeAtomically(Data::copyOf(R"({"pulls":[{"brain":"no uuid"}]})"),
                                   folders.state / "host.json");
    EXPECT_TRUE(HostState(machine.system(), folders.state).pulls().empty());
}

TEST(Explain, SaysWhoHasToActAndNeverShowsOnlyACode) {
    const auto explained = [](auto failure) { return explain(std::make_exception_ptr(std::move(failure))); };
    EXPECT_TRUE(explained(TokenManagerError::signedOut()).needsPerson);
    EXPECT_TRUE(explained(StoredSignInUnreadable("not JSON")).needsPerson);
    EXPECT_TRUE(explained(DeviceMissing()).needsPerson);
    EXPECT_FALSE(explained(SyncAPIError(503, "BUSY", "x")).needsPerson);
    EXPECT_NE(explained(FileError(ENOSPC, "/x")).sentence.find("disk is full"), std::string::npos);
    EXPECT_NE(explained(SQLiteError(13, "database or disk is full")).sentence.find("disk is full"),
              std::string::npos);
    EXPECT_NE(explained(URLError(URLError::Code::cannotFindHost)).sentence.find("config base-url"),
              std::string::npos);
    EXPECT_NE(explained(SyncAPIError(403, "FORBIDDEN", "not yours")).sentence.find("not yours"),
              std::string::npos);
}

TEST(DesktopEntry, QuotesAPathForTheExecKeyWhereItMustBe) {
    EXPECT_NE(desktopEntry("/usr/bin/vorlinden-1.0").find("Exec=/usr/bin/vorlinden-1.0 open-url %u\n"),
              std::string::npos);
    const auto entry = desktopEntry("/opt/a b/100%/$x\"y\\z/vorlinden");
    EXPECT_NE(entry.find("Exec=\"/opt/a b/100%%/\\\\$x\\\\\"y\\\\\\\\z/vorlinden\" open-url %u\n"),
              std::string::npos)
        << entry;
    EXPECT_NE(entry.find("MimeType=x-scheme-handler/vorlinden;\n"), std::string::npos);
}

int statusOf(const char* program) {
    try {
        Program({program}).waitForEnd();
    } catch (const ProgramFailed& failure) {
        return failure.status;
    }
    return 0;
}

TEST(Program, TellsAMissingOneFromAFailingOne) {
    EXPECT_EQ(statusOf("true"), 0);
    EXPECT_EQ(statusOf("false"), 1);
    EXPECT_EQ(statusOf("no-such-program-here"), 127);
}

}  // namespace
}  // namespace vorlinden::host
