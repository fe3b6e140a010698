#include "linux/host/sign_in.h"

#include "linux/host/redirect_inbox.h"
#include "platform/fileprovider/domain_registry.h"
#include "tests/host/host_fixture.h"

namespace vorlinden::host {
namespace {

// A person who allows access at once: the page's own state comes back, with a code.
class AllowingPage : public AuthorizationPage {
 public:
    Task<std::string> visit(URL page) override {
        visited.push_back(page.absoluteString());
        const auto query = "&" + page.encodedQuery().value_or("");
        const auto begin = query.find("&state=") + 7;
        co_return "vorlinden://oauth/callback?code=the-code&state=" +
            (state.empty() ? query.substr(begin, query.find('&', begin) - begin) : state);
    }
    std::vector<std::string> visited;
    std::string state;  // in place of the page's own
};

class SignInTest : public tests::HostTest {
 protected:
    SignedIn run(SignInOptions options = {"Test Machine", false}) {
        const auto workspace = open();
        return machine.loop.run([&] { return signIn(workspace, page, options); });
    }
    std::optional<std::string> meta(std::string_view key) { return open()->store->meta(key); }

    AllowingPage page;
};

TEST_F(SignInTest, LeavesSessionClientDeviceBrainsAndDomain) {
    addBrain(1, "notes", {});
    EXPECT_EQ(run().brains, 1U);
    const auto workspace = open();
    EXPECT_EQ(workspace->tokenStore->load(), (TokenSet{"access", "refresh"}));
    EXPECT_EQ(workspace->store->meta(MetaKey::clientId), "client-1");
    EXPECT_EQ(workspace->store->meta(MetaKey::deviceId), "device-1");
    EXPECT_EQ(workspace->store->meta(MetaKey::deviceName), "Test Machine");
    EXPECT_EQ(workspace->store->brains().size(), 1U);
    const platform::fileprovider::DomainRegistry registry(folders.state, machine.files);
    EXPECT_TRUE(registry.isRegistered(productDomain().identifier));
    // The verifier that goes out is the one whose challenge the page was shown.
    const auto exchange = server.bodies("/token").at(0);
    const auto verifier = exchange.substr(exchange.find("code_verifier=") + 14, 86);
    EXPECT_NE(page.visited.at(0).find("code_challenge=" + PKCE::challengeFor(verifier)), std::string::npos);
}

TEST_F(SignInTest, RegistersProgramAndDeviceOncePerServer) {
    run();
    run();
    EXPECT_EQ(server.count("/register"), 1U);
    EXPECT_EQ(server.devices.size(), 1U);
    EXPECT_NE(page.visited.at(0), page.visited.at(1)) << "state and challenge are fresh each time";

    server.issuer = "https://another.test";
    server.devices.clear();
    run();
    EXPECT_EQ(meta(MetaKey::clientId), "client-2");
    EXPECT_EQ(server.devices.size(), 1U);

    run({"Test Machine", true});
    EXPECT_EQ(meta(MetaKey::clientId), "client-3");
    run({"Other name", false});
    EXPECT_EQ(meta(MetaKey::deviceName), "Other name");
    EXPECT_EQ(meta(MetaKey::deviceId), "device-2");
}

TEST_F(SignInTest, AnotherSignInsRedirectChangesNothing) {
    run();
    open()->tokenStore->save({"mine", "too"});
    page.state = "of-another";
    EXPECT_THROW(run(), SignInError);
    EXPECT_EQ(open()->tokenStore->load(), (TokenSet{"mine", "too"}));
    EXPECT_EQ(server.count("/token"), 1U) << "the code never goes out";
}

TEST_F(SignInTest, TellsARegistrationThatTheServerForgot) {
    server.instead.emplace("/token", tests::FakeURLSession::response(401, R"({"error":"invalid_client"})"));
    try {
        run();
        FAIL();
    } catch (const SignInError& error) {
        EXPECT_EQ(error.reason, SignInError::Reason::unknownClient);
    }
}

TEST_F(SignInTest, OpensNoPageThatIsNoWebAddress) {
    server.instead.emplace(
        "/.well-known/oauth-authorization-server",
        tests::FakeURLSession::response(200, R"({"issuer":"i","authorization_endpoint":"file:///etc",
                           "token_endpoint":"https://sync.test/token","registration_endpoint":"https://sync.test/register"})"));
    EXPECT_THROW(run(), SignInError);
    EXPECT_TRUE(page.visited.empty());
}

TEST_F(SignInTest, TheRedirectReachesTheOneThatWaits) {
    const auto system = machine.system();
    EXPECT_FALSE(RedirectInbox::deliver(system, folders.state, "vorlinden://nobody"));
    {
        RedirectInbox inbox(system, folders.state);
        EXPECT_THROW(RedirectInbox(system, folders.state), SignInError) << "one at a time";
        const auto waiting = machine.loop.start([&] { return inbox.receive(); });
        EXPECT_FALSE(waiting.done());
        EXPECT_TRUE(RedirectInbox::deliver(system, folders.state, "vorlinden://here"));
        machine.loop.runUntilIdle();
        EXPECT_EQ(waiting.result(), "vorlinden://here");
        RedirectInbox::deliver(system, folders.state, "vorlinden://too-late");
    }
    RedirectInbox next(system, folders.state);
    const auto waiting = machine.loop.start([&] { return next.receive(); });
    EXPECT_FALSE(waiting.done()) << "what an earlier sign-in left behind is gone";
    waiting.cancel();
    machine.loop.runUntilIdle();
    EXPECT_THROW(waiting.result(), CancelledError);
}

}  // namespace
}  // namespace vorlinden::host
