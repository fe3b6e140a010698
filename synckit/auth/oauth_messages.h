// The values that the authorization side sends.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "synckit/types.h"

namespace vorlinden {

// Authorization server metadata. A list that the server leaves out is empty.
struct AuthServerMetadata {
    std::string issuer;
    URL authorizationEndpoint;
    URL tokenEndpoint;
    URL registrationEndpoint;
    std::vector<std::string> responseTypesSupported = {};
    std::vector<std::string> grantTypesSupported = {};
    std::vector<std::string> codeChallengeMethodsSupported = {};
    std::vector<std::string> tokenEndpointAuthMethodsSupported = {};
    std::vector<std::string> scopesSupported = {};
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

// The server's metadata names an endpoint to which no secret may be sent: neither on the configured server
// itself, nor https, nor on this machine.
struct InsecureEndpointError : Failure {
    explicit InsecureEndpointError(std::string endpoint);
    std::string endpoint;
    bool operator==(const InsecureEndpointError&) const = default;
};

}  // namespace vorlinden
