#include "linux/server/oauth_api.h"

#include <algorithm>

#include "linux/server/oauth_pages.h"
#include "platform/json.h"
#include "platform/text.h"
#include "platform/url.h"

namespace vorlinden::server {

namespace {

using platform::JSONObjectBuilder;

using Texts = std::vector<std::string>;

constexpr const char* autoApprovedMember = "owner";
constexpr const char* defaultScope = "readwrite";

Response redirect(const AuthorizationRequest& request, Parameters::List answer, int status) {
    if (request.state) answer.emplace_back("state", *request.state);
    auto location = request.redirectUri;
    for (const auto& [name, value] : answer) {
        location += location.find('?') == std::string::npos ? '?' : '&';
        location += platform::percentEncoded(name) + "=" + platform::percentEncoded(value);
    }
    return {status, "", {}, {{"Location", location}, {"Cache-Control", "no-store"}}};
}

std::string required(const Parameters& parameters, const char* name) {
    auto value = parameters.find(name);
    if (!value) throw OAuthRefusal(400, "invalid_request", std::string("\"") + name + "\" is missing.");
    return *std::move(value);
}

// What is wrong with a request whose redirect URI can be trusted; empty if nothing is.
std::string problemOf(const Parameters& query) {
    if (query.text("response_type") != "code") return "unsupported_response_type";
    const bool hasChallenge =
        query.text("code_challenge_method") == "S256" && query.text("code_challenge").size() == 43;
    const auto scope = query.find("scope").value_or(defaultScope);
    if (scope != defaultScope) return "invalid_scope";
    return hasChallenge ? "" : "invalid_request";
}

bool isUsableName(const std::string& member) {
    return !member.empty() && member.size() <= 256 && platform::isValidUTF8(member) &&
           std::ranges::none_of(member, [](char c) { return static_cast<unsigned char>(c) < ' '; });
}

Response tokenResponse(const Tokens& tokens) {
    auto response = Response::json(JSONObjectBuilder()
                                       .add("access_token", tokens.access)
                                       .add("token_type", "Bearer")
                                       .add("expires_in", std::int64_t{tokens.lifetime.count()})
                                       .add("refresh_token", tokens.refresh)
                                       .add("scope", tokens.scope)
                                       .text()
                                       .text);
    response.headers = {{"Cache-Control", "no-store"}};
    return response;
}

}  // namespace

Response oauthErrorResponse(const OAuthRefusal& refusal) {
    return Response::json(
        JSONObjectBuilder().add("error", refusal.error).add("error_description", refusal.what()).text().text,
        refusal.status);
}

bool OAuthApi::serves(const RequestHead& head) {
    return head.path.size() == 2 && (head.path[0] == "oauth" || head.path[0] == ".well-known");
}

Response OAuthApi::answer(const Request& request) const {
    const auto& head = request.head;
    const bool reads = head.method == "GET";
    const bool posts = head.method == "POST";
    if (reads && head.isAt({".well-known", "oauth-authorization-server"})) return metadata();
    if (posts && head.isAt({"oauth", "register"})) return registerClient(request);
    if (reads && head.isAt({"oauth", "authorize"})) return authorize(head);
    if (posts && head.isAt({"oauth", "authorize"})) return decide(request);
    if (posts && head.isAt({"oauth", "token"})) return token(request);
    throw OAuthRefusal(404, "invalid_request", "There is no such endpoint.");
}

Response OAuthApi::metadata() const {
    return Response::json(JSONObjectBuilder()
                              .add("issuer", issuer_)
                              .add("authorization_endpoint", issuer_ + "/oauth/authorize")
                              .add("token_endpoint", issuer_ + "/oauth/token")
                              .add("registration_endpoint", issuer_ + "/oauth/register")
                              .add("response_types_supported", Texts{"code"})
                              .add("grant_types_supported", Texts{"authorization_code", "refresh_token"})
                              .add("code_challenge_methods_supported", Texts{"S256"})
                              .add("token_endpoint_auth_methods_supported", Texts{"none"})
                              .add("scopes_supported", Texts{defaultScope})
                              .text()
                              .text);
}

Response OAuthApi::registerClient(const Request& request) const {
    if (!request.head.contentType.starts_with("application/json")) {
        throw OAuthRefusal(415, "invalid_client_metadata", "The body must be application/json.");
    }
    const platform::JSONDocument document(request.body);
    const auto root = document.root();
    const auto method = root.optionalString("token_endpoint_auth_method").value_or("none");
    if (method != "none")
        throw OAuthRefusal(400, "invalid_client_metadata", "Only public clients can register.");
    const auto client = authorization_.registerClient(
        root.optionalString("client_name").value_or("An application"), root.requiredStrings("redirect_uris"));
    return Response::json(JSONObjectBuilder()
                              .add("client_id", client.id)
                              .add("client_name", client.name)
                              .add("redirect_uris", client.redirectUris)
                              .add("token_endpoint_auth_method", "none")
                              .add("grant_types", Texts{"authorization_code", "refresh_token"})
                              .add("response_types", Texts{"code"})
                              .add("client_id_issued_at", client.issuedAt)
                              .text()
                              .text,
                          201);
}

Response OAuthApi::authorize(const RequestHead& head) const {
    const auto& query = head.query;
    const auto client = authorization_.client(query.text("client_id"));
    if (!client) return problemPage("The application that sent you here isn't registered with this server.");
    const AuthorizationRequest request{client->id, query.text("redirect_uri"), query.find("state"),
                                       query.text("code_challenge"), defaultScope};
    if (std::ranges::count(client->redirectUris, request.redirectUri) == 0) {
        return problemPage(
            "The application that sent you here wants to be called back at an address that it hasn't "
            "registered.");
    }
    if (const auto problem = problemOf(query); !problem.empty())
        return redirect(request, {{"error", problem}}, 302);
    try {
        checkResource(query);
    } catch (const OAuthRefusal& refusal) {
        return redirect(request, {{"error", refusal.error}}, 302);
    }
    const auto ticket = authorization_.ask(request);
    if (autoApprove_) return allowed(ticket, autoApprovedMember, 302);
    return consentPage(client->name, request.redirectUri, ticket);
}

Response OAuthApi::decide(const Request& request) const {
    const auto form = Parameters::ofForm(request.body);
    const auto ticket = form.text("ticket");
    if (form.text("decision") == "allow") {
        const auto member = platform::trimmed(form.text("member"));
        if (!isUsableName(member)) return problemPage("Go back and say who you are.");
        return allowed(ticket, member, 303);
    }
    const auto denied = authorization_.deny(ticket);
    if (!denied)
        return problemPage("This question has been answered or has expired. Start the sign-in again.");
    return redirect(*denied, {{"error", "access_denied"}}, 303);
}

Response OAuthApi::allowed(const std::string& ticket, const std::string& member, int status) const {
    const auto consent = authorization_.approve(ticket, member);
    if (!consent)
        return problemPage("This question has been answered or has expired. Start the sign-in again.");
    return redirect(consent->request, {{"code", consent->code}}, status);
}

Response OAuthApi::token(const Request& request) const {
    if (!request.head.contentType.starts_with("application/x-www-form-urlencoded")) {
        throw OAuthRefusal(415, "invalid_request", "The body must be a form.");
    }
    const auto form = Parameters::ofForm(request.body);
    checkResource(form);
    const auto grant = required(form, "grant_type");
    const auto clientId = required(form, "client_id");
    if (grant == "authorization_code") {
        return tokenResponse(authorization_.exchange(clientId, required(form, "code"),
                                                     required(form, "redirect_uri"),
                                                     required(form, "code_verifier")));
    }
    if (grant == "refresh_token") {
        return tokenResponse(authorization_.refresh(clientId, required(form, "refresh_token")));
    }
    throw OAuthRefusal(400, "unsupported_grant_type", "Only authorization_code and refresh_token are known.");
}

// Tokens are for this server alone.
void OAuthApi::checkResource(const Parameters& parameters) const {
    auto resource = parameters.find("resource").value_or(issuer_);
    while (resource.ends_with('/'))
        resource.pop_back();
    if (resource != issuer_)
        throw OAuthRefusal(400, "invalid_target", "This server gives no access to " + resource);
}

}  // namespace vorlinden::server
