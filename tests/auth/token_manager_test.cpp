#include "synckit/auth/token_manager.h"

#include <gtest/gtest.h>

#include "synckit/server/sync_api_client.h"
#include "tests/support/catalogue.h"
#include "tests/support/fake_url_session.h"
#include "tests/support/memory_secret_store.h"
#include "tests/support/test_loop.h"

namespace vorlinden::tests {
namespace {

using State = SessionState;

const std::string metadataJSON = R"({"issuer":"i","authorization_endpoint":"https://s.example/a",
    "token_endpoint":"https://s.example/token","registration_endpoint":"https://s.example/r"})";

std::string tokenJSON(const std::string& access, const std::string& refresh) {
    return R"({"access_token":")" + access + R"(","token_type":"Bearer","expires_in":1,"scope":"s")" +
           (refresh.empty() ? "" : R"(,"refresh_token":")" + refresh + "\"") + "}";
}

// A manager whose tokens are "old" and "r1" to begin with, and a server that answers by `tokenAnswer`.
class TokenManagerTest : public testing::Test {
 protected:
    TokenManagerTest() {
        store_->save({"old", "r1"});
        session_->setHandler([this](const platform::URLRequest& request) -> FakeURLSession::Answer {
            if (request.url.encodedPath() != "/token") return discoveryAnswer();
            ++refreshes_;
            return tokenAnswer();
        });
    }
    static FakeURLSession::Answer response(int status, const std::string& body) {
        return FakeURLSession::response(status, body);
    }
    void serverSays(int status, const std::string& body) {
        tokenAnswer = [=] { return response(status, body); };
    }
    StartedTask<std::string> startRefresh(std::optional<std::string> rejected = {}) {
        return loop_.start([this, rejected] { return manager_->refreshAfterUnauthorized(rejected); });
    }
    std::string refresh(std::optional<std::string> rejected = {}) { return startRefresh(rejected).result(); }
    void expectSignedOut(const std::function<void()>& action) { EXPECT_THROW(action(), TokenManagerError); }
    // Each run of the body takes the next outcome: a status of the server, or 0 for success.
    std::string withAuthRetry(std::vector<int> outcomes) {
        runs_ = 0;
        return loop_.run([&] {
            return manager_->withAuthRetry<std::string>([&]() -> Task<std::string> {
                const int status = outcomes.at(runs_++);
                if (status != 0) throw SyncAPIError(status, "C", "m");
                co_return co_await manager_->currentAccessToken();
            });
        });
    }
    // What `updates` has to give now, "o" for out and "i" for in.
    std::string heard(SessionUpdates& updates) {
        std::string states;
        for (;;) {
            auto next = loop_.start([&] { return updates.next(); });
            if (!next.done()) {
                next.cancel();
                loop_.runUntilIdle();
                return states;
            }
            states += next.result() == State::signedIn ? "i" : "o";
        }
    }

    std::function<FakeURLSession::Answer()> discoveryAnswer = [] { return response(200, metadataJSON); };
    std::function<FakeURLSession::Answer()> tokenAnswer = [] {
        return response(200, tokenJSON("new", "r2"));
    };
    std::shared_ptr<FakeURLSession> session_ = std::make_shared<FakeURLSession>();
    std::shared_ptr<MemorySecretStore> secrets_ = std::make_shared<MemorySecretStore>();
    std::shared_ptr<KeychainTokenStore> store_ = std::make_shared<KeychainTokenStore>(secrets_, "s", "g");
    int refreshes_ = 0;
    std::size_t runs_ = 0;
    TestLoop loop_;
    std::shared_ptr<TokenManager> manager_ = std::make_shared<TokenManager>(
        loop_.executor(), *URL::parse("https://s.example"), std::make_shared<URLSessionTransport>(session_),
        store_, [] { return std::string("client"); });
};

TEST_F(TokenManagerTest, TenRejectionsMakeOneRefresh) {
    session_->hold();
    std::vector<StartedTask<std::string>> tasks;
    for (int i = 0; i < 10; ++i)
        tasks.push_back(startRefresh());
    session_->release();
    loop_.runUntilIdle();
    for (const auto& task : tasks)
        EXPECT_EQ(task.result(), "new");
    EXPECT_EQ(refreshes_, 1);
    EXPECT_EQ(session_->requests().back().body->view(),
              "grant_type=refresh_token&client_id=client&refresh_token=r1");
    EXPECT_EQ(store_->load(), (TokenSet{"new", "r2"}));
    EXPECT_EQ(manager_->state(), State::signedIn);
}

TEST_F(TokenManagerTest, AFailureIsForgottenByTheNextTry) {
    serverSays(500, "broken");
    EXPECT_THROW(refresh(), OAuthError);
    serverSays(200, tokenJSON("new", "r2"));
    EXPECT_EQ(refresh(), "new");
    EXPECT_EQ(session_->requests().size(), 3U);  // metadata once
}

TEST_F(TokenManagerTest, ARefreshOutlivesTheCallerThatStartedIt) {
    session_->hold();
    const auto first = startRefresh(), second = startRefresh();
    first.cancel();
    loop_.runUntilIdle();
    EXPECT_THROW(first.result(), CancelledError);
    manager_.reset();  // nor does it need anybody to hold the manager
    session_->release();
    loop_.runUntilIdle();
    EXPECT_EQ(second.result(), "new");
    EXPECT_EQ(store_->load(), (TokenSet{"new", "r2"}));
}

TEST_F(TokenManagerTest, OnlyTheStoredTokenIsWorthARefresh) {
    EXPECT_EQ(refresh("older"), "old");  // somebody else has refreshed already
    EXPECT_EQ(session_->requests().size(), 0U);
    EXPECT_EQ(refresh("old"), "new");
    serverSays(200, tokenJSON("newer", ""));
    EXPECT_EQ(refresh(), "newer");
    EXPECT_EQ(store_->load(), (TokenSet{"newer", "r2"}));  // no new refresh token: the old one stays
    store_->remove();
    expectSignedOut([&] { refresh("newer"); });
    EXPECT_EQ(manager_->state(), State::signedOut);
}

TEST_F(TokenManagerTest, ARejectedGrantEndsTheSessionUnlessSomebodyHasReplacedIt) {
    manager_->restoreSession();
    tokenAnswer = [this] {
        store_->save({"theirs", "r9"});
        return response(400, R"({"error":"invalid_grant"})");
    };
    EXPECT_EQ(refresh(), "theirs");
    EXPECT_EQ(manager_->state(), State::signedIn);
    serverSays(400, R"({"error":"invalid_grant"})");
    expectSignedOut([&] { refresh(); });
    EXPECT_EQ(store_->load(), std::nullopt);
    EXPECT_EQ(manager_->state(), State::signedOut);
}

TEST_F(TokenManagerTest, NothingElseSignsOut) {
    manager_->restoreSession();
    const std::function<FakeURLSession::Answer()> answers[] = {
        [] { return response(400, R"({"error":"invalid_client"})"); },
        [] { return response(500, "broken"); },
        [] { return response(200, "no JSON"); },
        [] { return URLError(URLError::Code::cannotConnect); },
    };
    for (const auto& answer : answers) {
        tokenAnswer = answer;
        EXPECT_ANY_THROW(refresh());
        EXPECT_EQ(store_->load(), (TokenSet{"old", "r1"}));
        EXPECT_EQ(manager_->state(), State::signedIn);
    }
    tokenAnswer = [this] {
        secrets_->failNext(-1);  // the save
        return response(200, tokenJSON("new", "r2"));
    };
    EXPECT_THROW(refresh(), KeychainTokenStoreError);
    EXPECT_EQ(manager_->state(), State::signedIn);
}

TEST_F(TokenManagerTest, AFailedDiscoveryIsTriedAgain) {
    // Not of the grant itself; and a refresh token goes to no other server in the clear.
    discoveryAnswer = [] { return response(400, R"({"error":"invalid_grant"})"); };
    EXPECT_THROW(refresh(), OAuthError);
    auto evil = metadataJSON;
    evil.replace(evil.find("https://s.example/token"), 23, "http://evil.example/token");
    discoveryAnswer = [&] { return response(200, evil); };
    EXPECT_THROW(refresh(), InsecureEndpointError);
    EXPECT_EQ(session_->requests().size(), 2U);
    EXPECT_EQ(store_->load(), (TokenSet{"old", "r1"}));
}

TEST_F(TokenManagerTest, SignInSignOutAndRestore) {
    auto updates = manager_->updates(), waiting = manager_->updates();
    const auto next = loop_.start([&] { return waiting.next(); });
    EXPECT_EQ(manager_->state(), State::signedOut);
    EXPECT_EQ(manager_->restoreSession(), State::signedIn);
    EXPECT_EQ(manager_->restoreSession(), State::signedIn);
    auto late = manager_->updates();
    EXPECT_EQ(heard(updates), "i");
    EXPECT_EQ(next.result(), State::signedIn);
    manager_->signOut();
    EXPECT_EQ(store_->load(), std::nullopt);
    EXPECT_EQ(manager_->restoreSession(), State::signedOut);
    expectSignedOut([&] { loop_.run([&] { return manager_->currentAccessToken(); }); });
    EXPECT_THROW(manager_->signIn({"a", "Bearer", 1, std::nullopt, "s"}), TokenManagerError);
    EXPECT_EQ(store_->load(), std::nullopt);
    manager_->signIn({"a", "Bearer", 1, "r", "s"});
    EXPECT_EQ(store_->load(), (TokenSet{"a", "r"}));
    EXPECT_EQ(heard(updates), "oi");
    EXPECT_EQ(heard(late), "oi");
    secrets_->failAlways(-1);
    EXPECT_THROW(manager_->signOut(), KeychainTokenStoreError);
    EXPECT_THROW(manager_->restoreSession(), KeychainTokenStoreError);
    EXPECT_EQ(manager_->state(), State::signedIn);
    manager_.reset();
    EXPECT_EQ(loop_.run([&] { return updates.next(); }), std::nullopt);
}

TEST_F(TokenManagerTest, ARejectedCallIsRepeatedOnceWithAFreshToken) {
    EXPECT_EQ(withAuthRetry({0}), "old");
    EXPECT_EQ(withAuthRetry({401, 0}), "new");
    EXPECT_EQ(runs_, 2U);
    EXPECT_EQ(refreshes_, 1);
    EXPECT_THROW(withAuthRetry({403}), SyncAPIError);
    EXPECT_EQ(runs_, 1U);
    EXPECT_THROW(withAuthRetry({401, 500}), SyncAPIError);
    EXPECT_EQ(runs_, 2U);
    EXPECT_NE(store_->load(), std::nullopt);
    tokenAnswer = [] { return URLError(URLError::Code::timedOut); };
    EXPECT_THROW(withAuthRetry({401}), URLError) << "it takes the place of the rejection";
    serverSays(200, tokenJSON("newer", "r3"));
    expectSignedOut([&] { withAuthRetry({401, 401}); });
    EXPECT_EQ(runs_, 2U);
    EXPECT_EQ(store_->load(), std::nullopt);
    EXPECT_EQ(manager_->state(), State::signedOut);
    secrets_->failAlways(-1);
    EXPECT_THROW(withAuthRetry({0}), KeychainTokenStoreError);
    EXPECT_EQ(runs_, 0U);
}

TEST_F(TokenManagerTest, TheClientIdComesFromTheCatalogue) {
    Catalogue catalogue;
    manager_ = std::make_shared<TokenManager>(loop_.executor(), *URL::parse("https://s.example"),
                                              std::make_shared<URLSessionTransport>(session_), store_,
                                              catalogue.store());
    expectSignedOut([&] { refresh(); });
    EXPECT_EQ(refreshes_, 0);
    EXPECT_NE(store_->load(), std::nullopt);
    catalogue->setMeta("mine", MetaKey::clientId);
    EXPECT_EQ(refresh(), "new");
    EXPECT_NE(session_->requests().back().body->view().find("client_id=mine"), std::string_view::npos);
}

// Many coroutines on many threads, all rejected with the same token: whoever comes late finds the new one. A
// failure is one object that all of them read.
TEST(TokenManagerThreads, ManyRejectionsMakeOneRefresh) {
    constexpr int callers = 64;
    for (const bool online : {true, false}) {
        auto session = std::make_shared<FakeURLSession>();
        session->setHandler([=](const platform::URLRequest& request) -> FakeURLSession::Answer {
            if (!online) return URLError(URLError::Code::cannotConnect, "no network");
            const bool token = request.url.encodedPath() == "/token";
            return FakeURLSession::response(200, token ? tokenJSON("new", "r2") : metadataJSON);
        });
        auto store = std::make_shared<KeychainTokenStore>(std::make_shared<MemorySecretStore>(), "s", "g");
        store->save({"old", "r1"});
        std::atomic<int> heard = 0, cancelled = 0;
        {
            platform::TaskPool pool(4);
            auto manager = std::make_shared<TokenManager>(pool.executor(), *URL::parse("https://s.example"),
                                                          std::make_shared<URLSessionTransport>(session),
                                                          store, [] { return std::string("client"); });
            const auto body = [=, &heard]() -> Task<> {
                auto updates = manager->updates();
                const auto token = co_await manager->refreshAfterUnauthorized("old");
                heard += token == "new" && manager->state() == State::signedIn ? 1 : 0;
            };
            const auto ended = [&](std::exception_ptr failure) {
                try {
                    if (failure) std::rethrow_exception(failure);
                } catch (const URLError& error) {
                    heard += error.detail == "no network" ? 1 : 0;
                } catch (const CancelledError&) {
                    ++cancelled;
                }
            };
            for (int i = 0; i < callers; ++i) {
                const auto handle = platform::spawn(pool.executor(), body, ended);
                if (i % 8 == 7) handle.cancel();
            }
        }
        EXPECT_EQ(heard + cancelled, callers);
        EXPECT_LE(cancelled, callers / 8);
        EXPECT_TRUE(!online || session->requests().size() == 2);
        EXPECT_EQ(store->load(), online ? TokenSet({"new", "r2"}) : TokenSet({"old", "r1"}));
    }
}

}  // namespace
}  // namespace vorlinden::tests
