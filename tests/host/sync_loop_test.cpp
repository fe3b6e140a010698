#include "linux/host/sync_loop.h"

#include "linux/host/host_state.h"
#include "linux/host/mark.h"
#include "linux/host/pauses.h"
#include "synckit/container/sync_signal.h"
#include "tests/host/host_fixture.h"

namespace vorlinden::host {
namespace {

using namespace std::chrono_literals;
using tests::FakeServer;

class RecordingObserver : public SyncObserver {
 public:
    void willRetry(const std::exception_ptr&, std::chrono::milliseconds pause) override {
        retries.push_back(pause);
    }
    void willRest(const std::vector<BrainReport>&) override { ++rests; }
    void isSignedOut(const std::exception_ptr&) override { ++signedOut; }
    std::vector<std::chrono::milliseconds> retries;
    int rests = 0;
    int signedOut = 0;
};

class SyncLoopTest : public tests::HostTest {
 protected:
    void start(const WorkspaceRef& workspace) {
        loop = machine.loop.start([=, this] { return syncForever(workspace, 15s, observer, alarm); });
    }
    void wakeUp() {
        machine.notifications->post(SyncSignal::syncNowName);
        machine.loop.runUntilIdle();
    }
    // Time goes by in small steps, as it does.
    void pass(std::chrono::milliseconds duration) {
        for (; duration > 0ms; duration -= std::min(duration, 100ms))
            machine.advance(std::min(duration, 100ms));
    }
    std::size_t rounds() const { return server.count("/api/sync/brains"); }
    void TearDown() override {
        if (!loop || loop->done()) return;
        loop->cancel();
        machine.loop.runUntilIdle();
        EXPECT_THROW(loop->result(), CancelledError);
    }

    RecordingObserver observer;
    const std::shared_ptr<Alarm> alarm = std::make_shared<Alarm>();
    std::optional<tests::StartedTask<void>> loop;
};

TEST_F(SyncLoopTest, RoundsComeAtTheIntervalAndAtAWakeUp) {
    start(openSignedIn());
    EXPECT_EQ(rounds(), 1U);
    pass(14s);
    EXPECT_EQ(rounds(), 1U);
    pass(1s);
    EXPECT_EQ(rounds(), 2U);
    pass(2s);
    wakeUp();
    EXPECT_EQ(rounds(), 3U);
}

TEST_F(SyncLoopTest, ManyWakeUpsMakeAtMostOneRoundASecond) {
    start(openSignedIn());
    for (int i = 0; i < 10; ++i)
        wakeUp();
    EXPECT_EQ(rounds(), 1U);
    pass(1s);
    EXPECT_EQ(rounds(), 2U);
    pass(10s);
    EXPECT_EQ(rounds(), 2U) << "the ten counted as one";
}

TEST_F(SyncLoopTest, PausesGrowWhileTheServerIsAwayAndWakeUpsDontShortenThem) {
    addBrain(1, "notes", {"a"});
    server.instead.emplace("/api/sync/brains", FakeServer::away());
    start(openSignedIn());
    for (int i = 0; i < 12; ++i) {
        const auto before = rounds();
        wakeUp();
        EXPECT_EQ(rounds(), before) << i;
        if (observer.retries.back() > 30s) {
            pass(30s);
            EXPECT_EQ(rounds(), before + 1) << "one try in half a minute, if somebody asks";
        } else {
            pass(observer.retries.back());
            EXPECT_EQ(rounds(), before + 1) << i;
        }
    }
    EXPECT_LE(observer.retries.front(), 1200ms);
    EXPECT_GE(observer.retries.back(), 240s);
    EXPECT_TRUE(HostState(machine.system(), folders.state).roundFailure());

    server.instead.clear();
    pass(observer.retries.back() + 1s);
    EXPECT_EQ(observer.rests, 1);
    const HostState state(machine.system(), folders.state);
    EXPECT_FALSE(state.roundFailure());
    EXPECT_TRUE(state.pulls().at(tests::numberedUUID(1)).pulledAt);
}

TEST_F(SyncLoopTest, OneBrainsOwnFailureIsRememberedAndSlowsNothing) {
    const auto bad = addBrain(1, "bad", {});
    server.brains[bad].changes = [](const std::string&) { return FakeServer::failure(403, "FORBIDDEN"); };
    start(openSignedIn());
    pass(1s);
    EXPECT_TRUE(observer.retries.empty());
    EXPECT_EQ(observer.rests, 1);
    const auto record = HostState(machine.system(), folders.state).pulls().at(bad);
    EXPECT_FALSE(record.pulledAt);
    EXPECT_NE(record.failure->find("FORBIDDEN"), std::string::npos);
}

TEST_F(SyncLoopTest, SignedOutItWaitsAndSaysSoOnce) {
    const auto workspace = openSignedIn();
    workspace->tokenStore->remove();
    start(workspace);
    pass(15s);
    pass(15s);
    EXPECT_EQ(observer.signedOut, 1);
    EXPECT_EQ(rounds(), 0U);
    pass(2s);
    workspace->tokenStore->save({"access", "refresh"});
    wakeUp();
    EXPECT_EQ(rounds(), 1U);
}

TEST_F(SyncLoopTest, WhatIsPutOffIsSentAtGrowingPausesWhileRoundsGoOn) {
    const auto brain = addBrain(1, "notes", {});
    const auto workspace = openSignedIn();
    workspace->store->upsertBrain(tests::brainRecord(brain, "notes"));
    journal(workspace, brain, PendingChangeKind::create, "a", "bytes");
    server.insteadOfPut.emplace("a", FakeServer::failure(503, "BUSY"));
    int sent = 0;
    server.onWrite = [&] { ++sent; };
    start(workspace);
    pass(20s);
    EXPECT_GE(sent, 3);
    EXPECT_LE(sent, 5) << "after 1, 2, 4 and 8 seconds or so";
    EXPECT_TRUE(HostState(machine.system(), folders.state).nextTry());
    const auto [roundsBefore, sentBefore] = std::pair(rounds(), sent);
    pass(10min);
    EXPECT_GE(rounds() - roundsBefore, 35U);
    EXPECT_LE(sent - sentBefore, 8);

    server.insteadOfPut.clear();
    pass(6min);
    EXPECT_EQ(server.contents["a"], "bytes");
    EXPECT_FALSE(HostState(machine.system(), folders.state).nextTry());
}

TEST_F(SyncLoopTest, ShowsThatItRunsAndEndsWhenAsked) {
    const auto runs = [this] { return Mark::syncRuns(folders).isHeld(machine.system()); };
    EXPECT_FALSE(runs());
    start(openSignedIn());
    EXPECT_TRUE(runs());
    alarm->end();
    machine.loop.runUntilIdle();
    EXPECT_TRUE(loop->done());
    EXPECT_FALSE(runs());
}

TEST_F(SyncLoopTest, AskedToEndItFinishesTheBrainThatItIsAt) {
    const auto notes = addBrain(1, "notes", {"a"});
    const auto plans = addBrain(2, "plans", {"a"});
    const auto workspace = openSignedIn();
    start(workspace);
    machine.session->hold();
    pass(100ms);
    EXPECT_TRUE(Mark::syncs(folders, notes).isHeld(machine.system()));
    alarm->end();
    machine.session->release();
    pass(1s);
    EXPECT_TRUE(loop->done());
    EXPECT_TRUE(workspace->store->cursor(notes));
    EXPECT_FALSE(workspace->store->cursor(plans));
}

TEST(Pauses, GrowToFiveMinutesWithSomeChance) {
    EXPECT_EQ(pauseAfterFailures(1, 0.5), 1s);
    EXPECT_EQ(pauseAfterFailures(2, 0.5), 2s);
    EXPECT_EQ(pauseAfterFailures(9, 0.5), 256s);
    for (const unsigned many : {10U, 40U, 4'000'000'000U})
        EXPECT_EQ(pauseAfterFailures(many, 0.5), 300s);
    EXPECT_EQ(pauseAfterFailures(1, 0.0), 800ms);
}

TEST(Pauses, OnlyAServerOutOfReachIsAway) {
    const auto away = [](auto failure) { return serverIsAway(std::make_exception_ptr(std::move(failure))); };
    EXPECT_TRUE(away(URLError(URLError::Code::timedOut)));
    for (const int status : {408, 429, 500, 503})
        EXPECT_TRUE(away(SyncAPIError(status, "x", "y"))) << status;
    for (const int status : {400, 401, 403, 404})
        EXPECT_FALSE(away(SyncAPIError(status, "x", "y"))) << status;
    EXPECT_TRUE(away(OAuthError(502, "unknown", {})));
    EXPECT_FALSE(away(OAuthError(400, "invalid_client", {})));
    EXPECT_FALSE(away(FileError::noSuchFile()));
}

}  // namespace
}  // namespace vorlinden::host
