// OAuth 2.0 towards the sync server's authorization side: metadata (RFC 8414), dynamic registration (RFC
// 7591), authorization code with PKCE, refresh.
//
// A plain value without state or tokens; every operation stands by itself, retries nothing, and may run on
// any thread beside others. Operations throw OAuthError (status outside 200 to 299),
// SyncClientError::invalidURL, platform::JSONError, URLError, CancelledError, and InsecureEndpointError
// before a secret could leave for an endpoint of the metadata that isn't to be trusted with it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "synckit/auth/oauth_messages.h"
#include "synckit/auth/pkce.h"
#include "synckit/server/http_transport.h"
#include "synckit/types.h"

namespace vorlinden {

class OAuthClient {
 public:
    static constexpr const char* defaultClientName = "Vorlinden Desktop";
    static constexpr const char* defaultRedirectURI = "vorlinden://oauth/callback";
    static constexpr const char* defaultScope = "readwrite";

    OAuthClient(URL baseURL, std::shared_ptr<HTTPTransport> transport);

    Task<AuthServerMetadata> discover() const;
    Task<ClientRegistration> registerClient(std::string clientName = defaultClientName,
                                            std::vector<std::string> redirectURIs = {
                                                defaultRedirectURI}) const;
    Task<ClientRegistration> registerClient(AuthServerMetadata metadata,
                                            std::string clientName = defaultClientName,
                                            std::vector<std::string> redirectURIs = {
                                                defaultRedirectURI}) const;
    // The page that the person's browser opens; makes no request. The issuer stands for an absent `resource`.
    URL authorizationURL(const AuthServerMetadata& metadata, const std::string& clientId,
                         const std::string& redirectURI, const std::string& state, const PKCE& pkce,
                         const std::optional<std::string>& resource = {},
                         const std::string& scope = defaultScope) const;
    Task<OAuthTokenResponse> exchangeCode(AuthServerMetadata metadata, std::string clientId, std::string code,
                                          std::string redirectURI, std::string codeVerifier,
                                          std::optional<std::string> resource = {}) const;
    Task<OAuthTokenResponse> refresh(AuthServerMetadata metadata, std::string clientId,
                                     std::string refreshToken) const;

 private:
    using Form = std::vector<std::pair<std::string, std::string>>;
    Task<HTTPAnswer> perform(URLRequest request, Form form) const;
    Task<OAuthTokenResponse> requestToken(AuthServerMetadata metadata, Form form) const;
    Task<ClientRegistration> postRegistration(URL endpoint, std::string clientName,
                                              std::vector<std::string> redirectURIs) const;
    void requireTrustworthy(const URL& endpoint) const;

    URL baseURL_;
    std::shared_ptr<HTTPTransport> transport_;
};

}  // namespace vorlinden
