// OAuth 2.0 towards the sync server's authorization side: metadata (RFC 8414), dynamic registration (RFC
// 7591), authorization code with PKCE, refresh.
//
// A plain value without state or tokens; every operation stands by itself, retries nothing, and may run on
// any thread beside others. Operations throw OAuthError (status outside 200 to 299),
// SyncClientError::invalidURL, platform::JSONError, URLError, CancelledError, and InsecureEndpointError
// before a secret could leave for an endpoint of the metadata that isn't to be trusted with it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "synckit/auth/pkce.h"
#include "synckit/server/http_transport.h"
#include "synckit/types.h"

namespace vorlinden {

struct AuthServerMetadata {
    std::string issuer;
    URL authorizationEndpoint;
    URL tokenEndpoint;
    URL registrationEndpoint;
    std::vector<std::string> responseTypesSupported;
    std::vector<std::string> grantTypesSupported;
    std::vector<std::string> codeChallengeMethodsSupported;
    std::vector<std::string> tokenEndpointAuthMethodsSupported;
    std::vector<std::string> scopesSupported;
    bool operator==(const AuthServerMetadata&) const = default;

    static AuthServerMetadata decode(const Data& data);  // throws platform::JSONError
};

struct ClientRegistration {
    std::string clientId;
    std::string clientName;
    std::vector<std::string> redirectUris;
    std::string tokenEndpointAuthMethod;
    std::vector<std::string> grantTypes;
    std::vector<std::string> responseTypes;
    std::optional<std::int64_t> clientIdIssuedAt;  // seconds since 1970
    bool operator==(const ClientRegistration&) const = default;

    static ClientRegistration decode(const Data& data);  // throws platform::JSONError
};

struct OAuthTokenResponse {
    std::string accessToken;
    std::string tokenType;
    std::int64_t expiresIn = 0;  // seconds; nobody relies on it
    std::optional<std::string> refreshToken;
    std::string scope;
    bool operator==(const OAuthTokenResponse&) const = default;

    static OAuthTokenResponse decode(const Data& data);  // throws platform::JSONError
};

// An answer outside 200 to 299 of the authorization side.
struct OAuthError : Failure {
    OAuthError(int status, std::string error, std::optional<std::string> errorDescription);
    static OAuthError decode(int status, const Data& data);  // never fails

    int status;
    std::string error;  // the OAuth error code, or "unknown"
    std::optional<std::string> errorDescription;

    bool isInvalidGrant() const { return error == "invalid_grant"; }
    bool isInvalidClient() const { return error == "invalid_client"; }
    std::string description() const { return what(); }
    bool operator==(const OAuthError&) const = default;
};

// The server's metadata names an endpoint to which no secret may be sent: neither the configured server
// itself, nor https, nor this machine.
struct InsecureEndpointError : Failure {
    explicit InsecureEndpointError(std::string endpoint);
    std::string endpoint;
    bool operator==(const InsecureEndpointError&) const = default;
};

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
    URL baseURL_;
    std::shared_ptr<HTTPTransport> transport_;
};

}  // namespace vorlinden
