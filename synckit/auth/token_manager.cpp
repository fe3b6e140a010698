#include "synckit/auth/token_manager.h"

#include "synckit/catalogue/metadata_store.h"

namespace vorlinden {
namespace {

std::string describe(TokenManagerError::Reason reason) {
    switch (reason) {
        case TokenManagerError::Reason::signedOut:
            return "Signed out of Vorlinden. Sign in again to continue.";
        case TokenManagerError::Reason::missingRefreshToken:
            return "The server did not return a refresh token.";
    }
    return {};
}

std::function<std::string()> storedClientId(std::shared_ptr<MetadataStore> store) {
    return [store = std::move(store)] {
        if (auto id = store->meta(MetaKey::clientId)) return *id;
        throw TokenManagerError::signedOut();
    };
}

}  // namespace

TokenManagerError::TokenManagerError(Reason why) : Failure(describe(why)), reason(why) {}

// The outcome is written before `ended` is set and only read afterwards.
struct TokenManager::Refresh {
    platform::Signal ended;
    std::string accessToken;
    std::exception_ptr failure;
};

TokenManager::TokenManager(platform::Executor executor, URL baseURL, std::shared_ptr<HTTPTransport> transport,
                           std::shared_ptr<TokenPersisting> tokens, std::function<std::string()> clientId)
    : executor_(std::move(executor)),
      oauth_(std::move(baseURL), std::move(transport)),
      tokens_(std::move(tokens)),
      clientId_(std::move(clientId)) {}

TokenManager::TokenManager(platform::Executor executor, URL baseURL, std::shared_ptr<HTTPTransport> transport,
                           std::shared_ptr<TokenPersisting> tokens, std::shared_ptr<MetadataStore> metadata)
    : TokenManager(std::move(executor), std::move(baseURL), std::move(transport), std::move(tokens),
                   storedClientId(std::move(metadata))) {}

SessionState TokenManager::state() const {
    std::lock_guard hold(mutex_);
    return state_;
}

void TokenManager::setState(SessionState state) {
    if (state == state_) return;
    state_ = state;
    subscribers_.send(state);
}

SessionUpdates TokenManager::updates() {
    std::lock_guard hold(mutex_);
    return subscribers_.subscribe();
}

SessionState TokenManager::restoreSession() {
    std::lock_guard hold(mutex_);
    setState(tokens_->load() ? SessionState::signedIn : SessionState::signedOut);
    return state_;
}

void TokenManager::signIn(const OAuthTokenResponse& response) {
    if (!response.refreshToken) throw TokenManagerError::missingRefreshToken();
    std::lock_guard hold(mutex_);
    tokens_->save({response.accessToken, *response.refreshToken});
    setState(SessionState::signedIn);
}

void TokenManager::signOut() {
    std::lock_guard hold(mutex_);
    tokens_->remove();
    setState(SessionState::signedOut);
}

void TokenManager::endRejectedSession() {
    signOut();
    throw TokenManagerError::signedOut();
}

std::optional<std::string> TokenManager::storedAccessToken() {
    std::lock_guard hold(mutex_);
    auto stored = tokens_->load();
    return stored ? std::optional(std::move(stored->accessToken)) : std::nullopt;
}

Task<std::string> TokenManager::currentAccessToken() {
    if (auto token = storedAccessToken()) co_return *token;
    throw TokenManagerError::signedOut();
}

Task<std::string> TokenManager::refreshAfterUnauthorized(std::optional<std::string> rejectedAccessToken) {
    const auto answer = joinOrStartRefresh(rejectedAccessToken);
    if (const auto* replaced = std::get_if<std::string>(&answer)) co_return *replaced;
    const auto refresh = std::get<std::shared_ptr<Refresh>>(answer);
    co_await refresh->ended.wait();
    if (refresh->failure) std::rethrow_exception(refresh->failure);
    co_return refresh->accessToken;
}

// Who finds no refresh in flight stores one before anybody else can look, so that two can't both start.
std::variant<std::string, std::shared_ptr<TokenManager::Refresh>> TokenManager::joinOrStartRefresh(
    const std::optional<std::string>& rejectedAccessToken) {
    std::shared_ptr<Refresh> started;
    {
        std::lock_guard hold(mutex_);
        if (inFlight_) return inFlight_;
        if (rejectedAccessToken) {
            const auto stored = tokens_->load();
            if (stored && stored->accessToken != *rejectedAccessToken) return stored->accessToken;
        }
        started = inFlight_ = std::make_shared<Refresh>();
    }
    start(started);
    return started;
}

void TokenManager::start(std::shared_ptr<Refresh> refresh) {
    const auto self = shared_from_this();
    platform::spawn(
        executor_, [self, refresh]() -> Task<> { refresh->accessToken = co_await self->runRefresh(); },
        [self, refresh](std::exception_ptr failure) {
            {
                std::lock_guard hold(self->mutex_);
                self->inFlight_.reset();
            }
            refresh->failure = std::move(failure);
            refresh->ended.set();
        });
}

Task<std::string> TokenManager::runRefresh() {
    const auto refreshToken = storedRefreshToken();
    const auto metadata = co_await serverMetadata();
    const auto clientId = clientId_();
    std::optional<OAuthTokenResponse> response;
    try {
        response = co_await oauth_.refresh(metadata, clientId, refreshToken);
    } catch (const OAuthError& error) {
        if (!error.isInvalidGrant()) throw;
    }
    co_return response ? acceptRefreshed(*response, refreshToken) : settleInvalidGrant(refreshToken);
}

std::string TokenManager::storedRefreshToken() {
    std::lock_guard hold(mutex_);
    if (auto stored = tokens_->load()) return stored->refreshToken;
    setState(SessionState::signedOut);
    throw TokenManagerError::signedOut();
}

// Only the one refresh in flight comes here, so that no second discovery can overtake this one.
Task<AuthServerMetadata> TokenManager::serverMetadata() {
    {
        std::lock_guard hold(mutex_);
        if (metadata_) co_return *metadata_;
    }
    const auto discovered = co_await oauth_.discover();
    std::lock_guard hold(mutex_);
    metadata_ = discovered;
    co_return discovered;
}

std::string TokenManager::acceptRefreshed(const OAuthTokenResponse& response,
                                          const std::string& oldRefreshToken) {
    std::lock_guard hold(mutex_);
    tokens_->save({response.accessToken, response.refreshToken.value_or(oldRefreshToken)});
    setState(SessionState::signedIn);
    return response.accessToken;
}

// Another process may have used up the refresh token while we were asking: then its successor is stored, and
// the session lives on.
std::string TokenManager::settleInvalidGrant(const std::string& triedRefreshToken) {
    std::lock_guard hold(mutex_);
    const auto stored = tokens_->load();
    if (stored && stored->refreshToken != triedRefreshToken) {
        setState(SessionState::signedIn);
        return stored->accessToken;
    }
    tokens_->remove();
    setState(SessionState::signedOut);
    throw TokenManagerError::signedOut();
}

}  // namespace vorlinden
