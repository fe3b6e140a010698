#include "synckit/auth/oauth_client.h"

#include "platform/json.h"
#include "synckit/server/concealed.h"
#include "synckit/server/request_url.h"
#include "synckit/server/sync_errors.h"

namespace vorlinden {
namespace {

// The scheme as its origin spells it, in lower case.
bool isTrustworthy(const URL& endpoint, const URL& base) {
    const auto origin = endpoint.origin();
    if (!origin) return false;
    if (origin == base.origin() || origin->starts_with("https://")) return true;
    return origin->starts_with("http://") && endpoint.isLoopback();
}

URLRequest request(URL url, const char* method) {
    URLRequest result{.url = std::move(url), .method = method};
    result.headers.emplace_back("Accept", "application/json");
    return result;
}

URLRequest post(URL url, const char* contentType, std::string body) {
    auto result = request(std::move(url), "POST");
    result.headers.emplace_back("Content-Type", contentType);
    result.body = Data(std::move(body));
    return result;
}

OAuthError concealed(OAuthError error, const std::vector<QueryItem>& form) {
    for (const auto& [name, value] : form) {
        if (name != "refresh_token" && name != "code" && name != "code_verifier") continue;
        auto text = error.errorDescription;
        if (text) text = vorlinden::concealed(*text, value);
        error = {error.status, vorlinden::concealed(error.error, value), std::move(text)};
    }
    return error;
}

}  // namespace

OAuthClient::OAuthClient(URL baseURL, std::shared_ptr<HTTPTransport> transport)
    : baseURL_(std::move(baseURL)), transport_(std::move(transport)) {}

// `form` is what the request holds of secrets, if anything.
Task<HTTPAnswer> OAuthClient::perform(URLRequest request, Form form) const {
    auto answer = co_await transport_->send(std::move(request));
    const int status = answer.response.status;
    if (status < 200 || status > 299) throw concealed(OAuthError::decode(status, answer.data), form);
    co_return answer;
}

Task<AuthServerMetadata> OAuthClient::discover() const {
    auto url = requestURL(baseURL_, {".well-known", "oauth-authorization-server"});
    auto get = request(std::move(url), "GET");
    const auto answer = co_await perform(std::move(get), {});
    co_return AuthServerMetadata::decode(answer.data);
}

Task<ClientRegistration> OAuthClient::registerClient(std::string clientName,
                                                     std::vector<std::string> redirectURIs) const {
    return postRegistration(requestURL(baseURL_, {"oauth", "register"}), std::move(clientName),
                            std::move(redirectURIs));
}

Task<ClientRegistration> OAuthClient::registerClient(AuthServerMetadata metadata, std::string clientName,
                                                     std::vector<std::string> redirectURIs) const {
    return postRegistration(metadata.registrationEndpoint, std::move(clientName), std::move(redirectURIs));
}

Task<ClientRegistration> OAuthClient::postRegistration(URL endpoint, std::string clientName,
                                                       std::vector<std::string> redirectURIs) const {
    platform::JSONObjectBuilder body;
    body.add("client_name", clientName).add("redirect_uris", redirectURIs);
    body.add("token_endpoint_auth_method", "none");
    auto request = post(std::move(endpoint), "application/json", body.text().text);
    const auto answer = co_await perform(std::move(request), {});
    co_return ClientRegistration::decode(answer.data);
}

URL OAuthClient::authorizationURL(const AuthServerMetadata& metadata, const std::string& clientId,
                                  const std::string& redirectURI, const std::string& state, const PKCE& pkce,
                                  const std::optional<std::string>& resource,
                                  const std::string& scope) const {
    const auto& endpoint = metadata.authorizationEndpoint;
    const auto query = encodedQuery({{"response_type", "code"},
                                     {"client_id", clientId},
                                     {"redirect_uri", redirectURI},
                                     {"state", state},
                                     {"code_challenge", pkce.challenge},
                                     {"code_challenge_method", pkce.method},
                                     {"resource", resource.value_or(metadata.issuer)},
                                     {"scope", scope}});
    if (auto url = endpoint.with(endpoint.encodedPath(), query)) return *url;
    throw SyncClientError::invalidURL(endpoint.absoluteString());
}

Task<OAuthTokenResponse> OAuthClient::exchangeCode(AuthServerMetadata metadata, std::string clientId,
                                                   std::string code, std::string redirectURI,
                                                   std::string codeVerifier,
                                                   std::optional<std::string> resource) const {
    Form form = {{"grant_type", "authorization_code"},
                 {"client_id", clientId},
                 {"code", code},
                 {"redirect_uri", redirectURI},
                 {"code_verifier", codeVerifier}};
    if (resource) form.emplace_back("resource", *resource);
    return requestToken(std::move(metadata), std::move(form));
}

Task<OAuthTokenResponse> OAuthClient::refresh(AuthServerMetadata metadata, std::string clientId,
                                              std::string refreshToken) const {
    Form form = {{"grant_type", "refresh_token"}, {"client_id", clientId}, {"refresh_token", refreshToken}};
    return requestToken(std::move(metadata), std::move(form));
}

Task<OAuthTokenResponse> OAuthClient::requestToken(AuthServerMetadata metadata, Form form) const {
    requireTrustworthy(metadata.tokenEndpoint);
    auto request = post(metadata.tokenEndpoint, "application/x-www-form-urlencoded", encodedQuery(form));
    const auto answer = co_await perform(std::move(request), std::move(form));
    co_return OAuthTokenResponse::decode(answer.data);
}

void OAuthClient::requireTrustworthy(const URL& endpoint) const {
    if (!isTrustworthy(endpoint, baseURL_)) throw InsecureEndpointError(endpoint.absoluteString());
}

}  // namespace vorlinden
