#include "synckit/auth/oauth_messages.h"

#include "platform/json.h"
#include "platform/text.h"

namespace vorlinden {
namespace {

using platform::JSONDocument;
using platform::JSONValue;

URL requiredURL(const JSONValue& object, std::string_view key) {
    const auto value = object.required(key);
    if (auto url = URL::parse(value.text())) return *url;
    throw value.corrupted("Invalid URL: " + std::string(value.text()));
}

std::vector<std::string> stringsOrNone(const JSONValue& object, std::string_view key) {
    return object.optionalStrings(key).value_or(std::vector<std::string>());
}

std::string describe(int status, const std::string& error, const std::optional<std::string>& description) {
    return "OAuth error " + std::to_string(status) + " " + error + (description ? ": " + *description : "");
}

}  // namespace

AuthServerMetadata AuthServerMetadata::decode(const Data& data) {
    const JSONDocument document(data.view());
    const auto v = document.root();
    return {.issuer = v.requiredString("issuer"),
            .authorizationEndpoint = requiredURL(v, "authorization_endpoint"),
            .tokenEndpoint = requiredURL(v, "token_endpoint"),
            .registrationEndpoint = requiredURL(v, "registration_endpoint"),
            .responseTypesSupported = stringsOrNone(v, "response_types_supported"),
            .grantTypesSupported = stringsOrNone(v, "grant_types_supported"),
            .codeChallengeMethodsSupported = stringsOrNone(v, "code_challenge_methods_supported"),
            .tokenEndpointAuthMethodsSupported = stringsOrNone(v, "token_endpoint_auth_methods_supported"),
            .scopesSupported = stringsOrNone(v, "scopes_supported")};
}

ClientRegistration ClientRegistration::decode(const Data& data) {
    const JSONDocument document(data.view());
    const auto v = document.root();
    return {.clientId = v.requiredString("client_id"),
            .clientName = v.requiredString("client_name"),
            .redirectUris = v.requiredStrings("redirect_uris"),
            .tokenEndpointAuthMethod = v.requiredString("token_endpoint_auth_method"),
            .grantTypes = v.requiredStrings("grant_types"),
            .responseTypes = v.requiredStrings("response_types"),
            .clientIdIssuedAt = v.optionalInteger("client_id_issued_at")};
}

OAuthTokenResponse OAuthTokenResponse::decode(const Data& data) {
    const JSONDocument document(data.view());
    const auto v = document.root();
    return {.accessToken = v.requiredString("access_token"),
            .tokenType = v.requiredString("token_type"),
            .expiresIn = v.requiredInteger("expires_in"),
            .refreshToken = v.optionalString("refresh_token"),
            .scope = v.requiredString("scope")};
}

OAuthError::OAuthError(int errorStatus, std::string errorCode, std::optional<std::string> text)
    : Failure(describe(errorStatus, errorCode, text)),
      status(errorStatus),
      error(std::move(errorCode)),
      errorDescription(std::move(text)) {}

OAuthError OAuthError::decode(int status, const Data& data) {
    try {
        const JSONDocument document(data.view());
        const auto v = document.root();
        return {status, v.requiredString("error"), v.optionalString("error_description")};
    } catch (const platform::JSONError&) {
        auto text = platform::repairedUTF8(data.view());
        return {status, "unknown", text.empty() ? std::nullopt : std::optional(std::move(text))};
    }
}

InsecureEndpointError::InsecureEndpointError(std::string url)
    : Failure("The server wants sign-in data sent to " + url +
              ", which is neither https nor on the server itself. Check the server's address."),
      endpoint(std::move(url)) {}

}  // namespace vorlinden
