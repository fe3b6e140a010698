// The address to which the authorization server sends the browser back.
#pragma once

#include <string>
#include <string_view>

namespace vorlinden::host {

// The authorization code in a redirected URL of the sign-in that was started with `expectedState`. Throws
// SignInError. A pure function.
std::string authorizationCode(std::string_view redirectedURL, std::string_view expectedState);

}  // namespace vorlinden::host
