// Who may ask: clients, the person's consent, codes and tokens (OAuth 2.0 with PKCE for public clients).
//
// Knows nothing of HTTP. Secrets (tickets, codes, tokens) are kept as digests; what this object gives out in
// clear is nowhere else. Thread-safe. Refusals that the client must hear are OAuthRefusal.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "linux/server/storage.h"

namespace vorlinden::server {

// An error of the authorization endpoints, by its code word ("invalid_grant").
struct OAuthRefusal : platform::Failure {
    OAuthRefusal(int httpStatus, std::string codeWord, std::string description)
        : Failure(std::move(description)), status(httpStatus), error(std::move(codeWord)) {}
    int status;
    std::string error;
    bool operator==(const OAuthRefusal&) const = default;
};

struct ClientRow {
    std::string id;
    std::string name;
    std::vector<std::string> redirectUris;
    std::int64_t issuedAt = 0;  // seconds since 1970
};

struct AuthorizationRequest {
    std::string clientId;
    std::string redirectUri;
    std::optional<std::string> state;
    std::string challenge;  // S256
    std::string scope;
};

struct Tokens {
    std::string access;
    std::string refresh;
    std::chrono::seconds lifetime{};
    std::string scope;
};

class Authorization {
 public:
    Authorization(Storage& storage, std::chrono::seconds tokenLifetime);

    // Accepts redirect URIs of an application's own scheme, https, and http on this machine.
    ClientRow registerClient(const std::string& name, const std::vector<std::string>& redirectUris);
    std::optional<ClientRow> client(const std::string& id) const;

    // Notes a checked request until the person answers; the ticket names it for ten minutes.
    std::string ask(const AuthorizationRequest& request);
    struct Consent {
        AuthorizationRequest request;
        std::string code;  // for one exchange within a minute
    };
    // The person said yes. Absent if the ticket is unknown, used or too old.
    std::optional<Consent> approve(const std::string& ticket, const std::string& member);
    // The person said no.
    std::optional<AuthorizationRequest> deny(const std::string& ticket);

    // A code that comes a second time ends the session that it opened.
    Tokens exchange(const std::string& clientId, const std::string& code, const std::string& redirectUri,
                    const std::string& verifier);
    // The refresh token is replaced by the answer's. It is honoured for 30 seconds more, since two processes
    // that share it may come at once.
    Tokens refresh(const std::string& clientId, const std::string& refreshToken);

    // The member whose living access token this is.
    static std::optional<std::string> memberOf(Storage& storage, Database& database,
                                               const std::string& accessToken);

    void expireAccessTokens();  // every client has to refresh
    void endSessions();         // every client has to sign in again

 private:
    Tokens issue(WriteTransaction& transaction, std::int64_t session, const std::string& scope);
    void forgetOld(WriteTransaction& transaction);

    Storage& storage_;
    const std::chrono::seconds lifetime_;
};

}  // namespace vorlinden::server
