// Sign-in as an application and a person go through it, and what is refused on the way.
#include <gtest/gtest.h>

#include "synckit/auth/oauth_client.h"
#include "tests/syncserver/member.h"

namespace vorlinden::tests {
namespace {

using namespace std::chrono_literals;

struct OAuth : testing::Test {
    Answer authorize(const std::string& more = {}) {
        return http.send("GET", authorizeTarget(clientId, more));
    }
    std::string freshCode() { return codeIn(authorize()); }
    int statusWith(const std::string& accessToken) {
        return http.send("GET", "/api/sync/brains", "", {{"Authorization", "Bearer " + accessToken}}).status;
    }

    RunningServer running;
    PlainClient http{running.server->url()};
    std::string clientId = registerClient(http);
};

TEST_F(OAuth, CodeIsGoodForOneExchangeAndAReplayEndsTheSession) {
    const auto redirect = authorize("&resource=" + running.server->url() + "%2F");
    EXPECT_EQ(redirect.status, 302);
    EXPECT_TRUE(redirect.headers.at("location").starts_with("vorlinden://oauth/callback?code="));
    EXPECT_TRUE(redirect.headers.at("location").ends_with("&state=a%20b"));

    const auto tokens = exchangeCode(http, clientId, codeIn(redirect));
    EXPECT_EQ(tokens.status, 200);
    EXPECT_EQ(tokens.headers.at("cache-control"), "no-store");
    EXPECT_EQ(statusWith(tokens.text("access_token")), 200);

    const auto replay = exchangeCode(http, clientId, codeIn(redirect));
    EXPECT_EQ(replay.status, 400);
    EXPECT_EQ(replay.text("error"), "invalid_grant");
    EXPECT_EQ(statusWith(tokens.text("access_token")), 401);
}

TEST_F(OAuth, ExchangeProvesWhoAskedForTheCode) {
    const auto exchange = [&](const std::string& changed) {
        return http.postForm("/oauth/token", "grant_type=authorization_code&code=" + freshCode() + changed);
    };
    const auto rest = std::string("&redirect_uri=") + callback + "&code_verifier=" + verifier;
    const auto mine = "&client_id=" + clientId;
    EXPECT_EQ(exchange(mine + rest).status, 200);
    EXPECT_EQ(exchange(mine + rest + "x").text("error"), "invalid_grant");
    EXPECT_EQ(exchange(mine + "&redirect_uri=vorlinden%3A%2F%2Felse&code_verifier=" + verifier).text("error"),
              "invalid_grant");
    EXPECT_EQ(exchange("&client_id=" + registerClient(http) + rest).text("error"), "invalid_grant");
    EXPECT_EQ(exchange("&client_id=nobody" + rest).text("error"), "invalid_client");

    const auto late = freshCode();
    running.clock->advance(61s);
    EXPECT_EQ(exchangeCode(http, clientId, late).text("error"), "invalid_grant");
    EXPECT_EQ(http.postForm("/oauth/token", "grant_type=password&client_id=" + clientId).text("error"),
              "unsupported_grant_type");
}

TEST_F(OAuth, RotatedRefreshTokenIsHonouredForHalfAMinute) {
    const auto first = exchangeCode(http, clientId, freshCode()).text("refresh_token");
    const auto one = refresh(http, clientId, first);
    running.clock->advance(30s);
    const auto other = refresh(http, clientId, first);  // another process that held the same token
    EXPECT_EQ(one.status, 200);
    EXPECT_EQ(other.status, 200);
    EXPECT_EQ(statusWith(one.text("access_token")), 200);
    EXPECT_EQ(statusWith(other.text("access_token")), 200);

    running.clock->advance(1ms);
    EXPECT_EQ(refresh(http, clientId, first).text("error"), "invalid_grant");
    EXPECT_EQ(refresh(http, clientId, one.text("refresh_token")).status, 200);
    EXPECT_EQ(refresh(http, clientId, other.text("refresh_token")).status, 200);
    EXPECT_EQ(refresh(http, registerClient(http), other.text("refresh_token")).text("error"),
              "invalid_grant");
}

TEST_F(OAuth, AccessEndsWithTheTokensLifeAndByAnAdministrator) {
    Member member(running.server->url());
    running.clock->advance(3600s);
    const auto expired = member.send("GET", "/api/sync/brains");
    EXPECT_EQ(expired.status, 401);
    EXPECT_EQ(expired.code(), "UNAUTHENTICATED");
    auto tokens = refresh(http, member.clientId, member.refreshToken);
    EXPECT_EQ(statusWith(tokens.text("access_token")), 200);

    running.admin().expireAccessTokens();
    EXPECT_EQ(statusWith(tokens.text("access_token")), 401);
    tokens = refresh(http, member.clientId, tokens.text("refresh_token"));
    EXPECT_EQ(statusWith(tokens.text("access_token")), 200);

    running.admin().endSessions();
    EXPECT_EQ(statusWith(tokens.text("access_token")), 401);
    EXPECT_EQ(refresh(http, member.clientId, tokens.text("refresh_token")).text("error"), "invalid_grant");
}

TEST_F(OAuth, NobodyIsSentToAnAddressThatWasNotRegistered) {
    auto target = authorizeTarget(clientId);
    target.replace(target.find(callback), std::string(callback).size(), "https%3A%2F%2Fevil.example");
    for (const auto& bad : {target, authorizeTarget("nobody")}) {
        const auto answer = http.send("GET", bad);
        EXPECT_EQ(answer.status, 400);
        EXPECT_FALSE(answer.headers.contains("location"));
    }
    for (const std::string uris : {R"j(["JavaScript:alert(1)"])j", R"(["http://evil.example/"])",
                                   R"(["vorlinden://x#fragment"])", "[]", "7"}) {
        const auto answer =
            http.postJson("/oauth/register", R"({"client_name":"x","redirect_uris":)" + uris + "}");
        EXPECT_EQ(answer.text("error"), uris == "7" ? "invalid_request" : "invalid_redirect_uri") << uris;
    }
}

TEST(OAuthPage, AsksThePersonOnceAndRunsNothing) {
    RunningServer running([](auto& options) { options.autoApprove = false; });
    PlainClient http(running.server->url());
    const auto clientId = registerClient(http, "<script>alert('x')</script>");
    const auto ticketOn = [](const Answer& page) {
        const auto start = page.body.find("name=\"ticket\" value=\"") + 21;
        return page.body.substr(start, page.body.find('"', start) - start);
    };

    const auto page = http.send("GET", authorizeTarget(clientId));
    EXPECT_EQ(page.status, 200);
    EXPECT_EQ(page.body.find("<script"), std::string::npos);
    EXPECT_NE(page.body.find("&lt;script&gt;"), std::string::npos);
    EXPECT_NE(page.headers.at("content-security-policy").find("default-src 'none'"), std::string::npos);
    EXPECT_NE(page.headers.at("content-security-policy").find("form-action 'self' vorlinden:"),
              std::string::npos);

    const auto form = "ticket=" + ticketOn(page) + "&member=Ada+L&decision=allow";
    const auto allowed = http.postForm("/oauth/authorize", form);
    EXPECT_EQ(allowed.status, 303);
    EXPECT_EQ(http.postForm("/oauth/authorize", form).status, 400);
    EXPECT_EQ(exchangeCode(http, clientId, codeIn(allowed)).status, 200);

    const auto again = http.send("GET", authorizeTarget(clientId));
    const auto denied = http.postForm("/oauth/authorize", "ticket=" + ticketOn(again) + "&decision=deny");
    EXPECT_EQ(denied.headers.at("location"), "vorlinden://oauth/callback?error=access_denied&state=a%20b");
    EXPECT_EQ(http.postForm("/oauth/authorize", "ticket=guess&member=x&decision=allow").status, 400);

    const auto late = http.send("GET", authorizeTarget(clientId));
    running.clock->advance(11min);
    EXPECT_EQ(
        http.postForm("/oauth/authorize", "ticket=" + ticketOn(late) + "&member=x&decision=allow").status,
        400);
}

}  // namespace
}  // namespace vorlinden::tests
