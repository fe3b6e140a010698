// The authorization endpoints: metadata (RFC 8414), registration (RFC 7591), authorization and tokens (RFC
// 6749 with PKCE, RFC 7636).
//
// Thread-safe. Refuses by throwing OAuthRefusal, but for the page, which tells the person itself.
#pragma once

#include <string>

#include "linux/server/authorization.h"
#include "linux/server/http_message.h"

namespace vorlinden::server {

class OAuthApi {
 public:
    // `issuer` is the server's own URL, without a slash at its end.
    OAuthApi(Authorization& authorization, std::string issuer, bool autoApprove)
        : authorization_(authorization), issuer_(std::move(issuer)), autoApprove_(autoApprove) {}

    static bool serves(const RequestHead& head);
    Response answer(const Request& request) const;

 private:
    Response metadata() const;
    Response registerClient(const Request& request) const;
    Response authorize(const RequestHead& head) const;
    Response decide(const Request& request) const;
    Response token(const Request& request) const;
    Response allowed(const std::string& ticket, const std::string& member, int status) const;
    void checkResource(const Parameters& parameters) const;

    Authorization& authorization_;
    const std::string issuer_;
    const bool autoApprove_;
};

// The error as the client reads it.
Response oauthErrorResponse(const OAuthRefusal& refusal);

}  // namespace vorlinden::server
