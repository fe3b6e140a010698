#include "linux/host/redirect.h"

#include <gtest/gtest.h>

#include "linux/host/failures.h"

namespace vorlinden::host {
namespace {

using Reason = SignInError::Reason;

Reason refusal(const std::string& url) {
    try {
        authorizationCode(url, "s t");
    } catch (const SignInError& error) {
        return error.reason;
    }
    throw std::logic_error("accepted: " + url);
}

TEST(Redirect, GivesTheCodeOfItsOwnSignInAndDecodesIt) {
    EXPECT_EQ(authorizationCode("vorlinden://oauth/callback?code=a%2Fb&state=s%20t", "s t"), "a/b");
    EXPECT_EQ(authorizationCode("  vorlinden://oauth/callback?state=s+t&code=x&iss=y\n", "s t"), "x");
}

TEST(Redirect, RefusesWhatIsNotTheAnswerToThisSignIn) {
    const std::string base = "vorlinden://oauth/callback";
    const std::pair<std::string, Reason> cases[] = {
        {"", Reason::notARedirect},
        {"https://oauth/callback?code=x&state=s%20t", Reason::notARedirect},
        {"vorlinden://oauth/callback/more?code=x&state=s%20t", Reason::notARedirect},
        {"vorlinden://elsewhere?code=x&state=s%20t", Reason::notARedirect},
        {base, Reason::wrongState},
        {base + "?code=x", Reason::wrongState},
        {base + "?code=x&state=other", Reason::wrongState},
        {base + "?error=access_denied&state=other", Reason::wrongState},
        {base + "?code=x&state=s%20t&state=other", Reason::notARedirect},
        {base + "?code=%G1&state=s%20t", Reason::notARedirect},
        {base + "?code=&state=s%20t", Reason::notARedirect},
        {base + "?state=s%20t", Reason::notARedirect},
        {base + "?error=access_denied&state=s%20t", Reason::refused},
        {base + "?error=unauthorized_client&state=s%20t", Reason::unknownClient},
    };
    for (const auto& [url, reason] : cases)
        EXPECT_EQ(refusal(url), reason) << url;
}

TEST(Redirect, TellsTheServersOwnWordsOfARefusal) {
    try {
        authorizationCode(
            "vorlinden://oauth/callback?error=access_denied&error_description=not+today&state=s", "s");
        FAIL();
    } catch (const SignInError& error) {
        EXPECT_EQ(error.detail, "not today");
    }
}

}  // namespace
}  // namespace vorlinden::host
