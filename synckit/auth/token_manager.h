// The session: hands out the access token, refreshes it when the server has rejected it, and ends the session
// when the grant is gone.
//
// The stored tokens are the truth, shared with other processes; nothing is cached here but the server's
// metadata. The session ends on three proofs only: nothing stored, a rejected refresh token that nobody has
// replaced, a fresh token rejected at once. Everything else leaves the tokens alone, so that an outage signs
// nobody out.
//
// An object of identity, made by std::make_shared; every operation may be called from any thread. The store
// is asked under mutex_, which is never held across a wait. At most one refresh runs; it is a task of its own
// on `executor`, keeps the manager alive, and outlives callers that are cancelled while they wait for it.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>

#include "synckit/auth/keychain_token_store.h"
#include "synckit/auth/oauth_client.h"
#include "synckit/auth/session_updates.h"
#include "synckit/server/http_transport.h"
#include "synckit/server/sync_errors.h"

namespace vorlinden {

class MetadataStore;

struct TokenManagerError : Failure {
    enum class Reason { signedOut, missingRefreshToken };
    explicit TokenManagerError(Reason reason);
    static TokenManagerError signedOut() { return TokenManagerError(Reason::signedOut); }
    static TokenManagerError missingRefreshToken() { return TokenManagerError(Reason::missingRefreshToken); }

    Reason reason;
    std::string errorDescription() const { return what(); }
    bool operator==(const TokenManagerError&) const = default;
};

class TokenManager : public TokenProviding, public std::enable_shared_from_this<TokenManager> {
 public:
    // `clientId` is asked at each refresh, outside mutex_; what it throws surfaces.
    TokenManager(platform::Executor executor, URL baseURL, std::shared_ptr<HTTPTransport> transport,
                 std::shared_ptr<TokenPersisting> tokens, std::function<std::string()> clientId);
    // The client id of the catalogue; signedOut when it has none.
    TokenManager(platform::Executor executor, URL baseURL, std::shared_ptr<HTTPTransport> transport,
                 std::shared_ptr<TokenPersisting> tokens, std::shared_ptr<MetadataStore> metadata);

    SessionState state() const;
    SessionState restoreSession();
    SessionUpdates updates();
    void signIn(const OAuthTokenResponse& response);
    void signOut();

    Task<std::string> currentAccessToken() override;
    Task<std::string> refreshAfterUnauthorized(std::optional<std::string> rejectedAccessToken = {});

    // Runs `body`; when the server rejects the token, refreshes it and runs `body` once more. A second 401
    // ends the session. T may be void.
    template <class T>
    Task<T> withAuthRetry(std::function<Task<T>()> body);

 private:
    struct Refresh;  // the one in flight, and what came of it

    std::optional<std::string> storedAccessToken();
    [[noreturn]] void endRejectedSession();
    std::variant<std::string, std::shared_ptr<Refresh>> joinOrStartRefresh(
        const std::optional<std::string>& rejectedAccessToken);
    void start(std::shared_ptr<Refresh> refresh);
    Task<std::string> runRefresh();
    std::string storedRefreshToken();
    Task<AuthServerMetadata> serverMetadata();
    std::string acceptRefreshed(const OAuthTokenResponse& response, const std::string& oldRefreshToken);
    std::string settleInvalidGrant(const std::string& triedRefreshToken);
    void setState(SessionState state);  // under mutex_

    const platform::Executor executor_;
    const OAuthClient oauth_;
    const std::shared_ptr<TokenPersisting> tokens_;
    const std::function<std::string()> clientId_;

    mutable std::mutex mutex_;  // guards the fields below and the steps on tokens_
    std::optional<AuthServerMetadata> metadata_;
    std::shared_ptr<Refresh> inFlight_;
    SessionBroadcast subscribers_;
    SessionState state_ = SessionState::signedOut;
};

template <class T>
Task<T> TokenManager::withAuthRetry(std::function<Task<T>()> body) {
    const auto rejected = storedAccessToken();
    try {
        co_return co_await body();
    } catch (const SyncAPIError& error) {
        if (!error.isUnauthenticated()) throw;
    }
    co_await refreshAfterUnauthorized(rejected);
    try {
        co_return co_await body();
    } catch (const SyncAPIError& error) {
        if (!error.isUnauthenticated()) throw;
    }
    endRejectedSession();
}

}  // namespace vorlinden
