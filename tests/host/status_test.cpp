#include "linux/host/status.h"

#include "linux/host/desktop.h"
#include "linux/host/explain.h"
#include "linux/host/sync_loop.h"
#include "platform/json.h"
#include "tests/host/host_fixture.h"

namespace vorlinden::host {
namespace {

using namespace std::chrono_literals;

class StatusTest : public tests::HostTest {
 protected:
    Status gather() { return gatherStatus(machine.system(), folders); }
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
    PullObserver observer;
    machine.loop.run([&] { return syncOnce(workspace, observer); });
    workspace->store->enqueue(tests::pendingChange(id, PendingChangeKind::create, "new"));
    workspace->store->enqueue(
        tests::pendingChange(tests::numberedUUID(9), PendingChangeKind::create, "of-a-gone-brain"));
    machine.advance(2h + 5min);

    const auto status = gather();
    ASSERT_EQ(status.brains.size(), 1U);
    EXPECT_EQ(status.brains[0].files, 3U);
    EXPECT_EQ(status.brains[0].folders, 1U);
    EXPECT_EQ(status.brains[0].waiting, 1U);
    EXPECT_EQ(status.waiting, 2U);
    const auto text = statusText(status, machine.clock->now());
    EXPECT_NE(text.find("notes: 3 files in 1 folder, current as of 2 hours ago, 1 change waiting"),
              std::string::npos)
        << text;

    const auto json = statusJSON(status);
    const platform::JSONDocument document(json);
    EXPECT_TRUE(document.root().requiredBool("signedIn"));
    EXPECT_EQ(document.root().required("brains").list().at(0).requiredInteger("files"), 3);
    EXPECT_EQ(document.root().required("server").requiredString("url"), "https://sync.test");
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
    PullObserver observer;
    const auto sync = [&] { machine.loop.run([&] { return syncOnce(workspace, observer); }); };
    sync();
    int writes = 0;
    machine.files->before = [&](tests::FileOperation operation, const std::filesystem::path&) {
        writes += operation == tests::FileOperation::write ? 1 : 0;
    };
    machine.advance(30s);
    sync();
    EXPECT_EQ(writes, 0);
    machine.advance(30s);
    sync();
    EXPECT_EQ(writes, 1);
    EXPECT_EQ(gather().brains.at(0).pull.pulledAt, machine.clock->now());
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
