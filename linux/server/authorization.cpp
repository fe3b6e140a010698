#include "linux/server/authorization.h"

#include "linux/server/digest.h"
#include "platform/text.h"
#include "platform/url.h"
#include "platform/uuid.h"

namespace vorlinden::server {

namespace {

using namespace std::chrono_literals;

constexpr auto ticketLifetime = 10min;
constexpr auto codeLifetime = 1min;
constexpr auto rotatedStaysValid = 30s;

std::int64_t milliseconds(platform::Timestamp time) {
    return time.time_since_epoch().count();
}

OAuthRefusal invalidGrant(const char* description) {
    return {400, "invalid_grant", description};
}
OAuthRefusal invalidClient() {
    return {401, "invalid_client", "This client is not registered here."};
}

// Something that a browser may be sent to with a code: not this page's own world (javascript:, data:), and in
// clear only to this machine.
bool isAcceptableRedirect(const std::string& text) {
    const auto url = platform::URL::parse(text);
    if (!url || text.find_first_of("#\r\n") != std::string::npos) return false;
    const auto scheme = platform::lowerCased(url->scheme().value_or(""));
    if (scheme == "http") {
        const auto host = url->host().value_or("");
        return host == "127.0.0.1" || host == "localhost" || host == "[::1]" || host == "::1";
    }
    return !scheme.empty() && scheme != "javascript" && scheme != "data" && scheme != "file" &&
           scheme != "blob" && scheme != "about";
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const auto& line : lines)
        text += line + "\n";
    return text;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    for (std::size_t start = 0; start < text.size();) {
        const auto end = text.find('\n', start);
        result.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return result;
}

}  // namespace

Authorization::Authorization(Storage& storage, std::chrono::seconds tokenLifetime)
    : storage_(storage), lifetime_(tokenLifetime) {}

ClientRow Authorization::registerClient(const std::string& name,
                                        const std::vector<std::string>& redirectUris) {
    const auto text = joined(redirectUris);
    if (name.size() > 1024 || text.size() > 8192) {
        throw OAuthRefusal(400, "invalid_client_metadata", "The registration is too long.");
    }
    if (redirectUris.empty())
        throw OAuthRefusal(400, "invalid_redirect_uri", "A client needs a redirect URI.");
    for (const auto& uri : redirectUris) {
        if (!isAcceptableRedirect(uri)) throw OAuthRefusal(400, "invalid_redirect_uri", "Unusable: " + uri);
    }
    const auto now = std::chrono::floor<std::chrono::seconds>(storage_.clock().now());
    const ClientRow client{platform::UUID::random(storage_.random()).lowerText(), name, redirectUris,
                           now.time_since_epoch().count()};
    WriteTransaction transaction(storage_);
    transaction.database().run(
        "INSERT INTO clients (client_id, name, redirect_uris, issued_at) VALUES (?, ?, ?, ?)", client.id,
        name, text, client.issuedAt);
    transaction.commit();
    return client;
}

std::optional<ClientRow> Authorization::client(const std::string& id) const {
    ReadTransaction transaction(storage_);
    auto query = transaction.database().query(
        "SELECT client_id, name, redirect_uris, issued_at FROM clients WHERE client_id = ?", id);
    if (!query.next()) return std::nullopt;
    return ClientRow{query.text(0), query.text(1), lines(query.text(2)), query.integer(3)};
}

std::string Authorization::ask(const AuthorizationRequest& request) {
    const auto ticket = randomSecret(storage_.random());
    WriteTransaction transaction(storage_);
    forgetOld(transaction);
    transaction.database().run(
        "INSERT INTO authorizations (ticket, client_id, redirect_uri, state, challenge, scope, expires_at)"
        " VALUES (?, ?, ?, ?, ?, ?, ?)",
        sha256Hex(ticket), request.clientId, request.redirectUri, request.state, request.challenge,
        request.scope, milliseconds(storage_.clock().now() + ticketLifetime));
    transaction.commit();
    return ticket;
}

std::optional<Authorization::Consent> Authorization::approve(const std::string& ticket,
                                                             const std::string& member) {
    Consent consent{{}, randomSecret(storage_.random())};
    WriteTransaction transaction(storage_);
    const auto now = storage_.clock().now();
    auto query = transaction.database().query(
        "UPDATE authorizations SET code = ?, member = ?, expires_at = ? WHERE ticket = ? AND code IS NULL"
        " AND expires_at > ? RETURNING client_id, redirect_uri, state, challenge, scope",
        sha256Hex(consent.code), member, milliseconds(now + codeLifetime), sha256Hex(ticket),
        milliseconds(now));
    if (!query.next()) return std::nullopt;
    consent.request = {query.text(0), query.text(1), query.optionalText(2), query.text(3), query.text(4)};
    while (query.next()) {
    }
    transaction.commit();
    return consent;
}

std::optional<AuthorizationRequest> Authorization::deny(const std::string& ticket) {
    WriteTransaction transaction(storage_);
    auto query = transaction.database().query(
        "DELETE FROM authorizations WHERE ticket = ? AND code IS NULL"
        " RETURNING client_id, redirect_uri, state, challenge, scope",
        sha256Hex(ticket));
    if (!query.next()) return std::nullopt;
    AuthorizationRequest request{query.text(0), query.text(1), query.optionalText(2), query.text(3),
                                 query.text(4)};
    while (query.next()) {
    }
    transaction.commit();
    return request;
}

Tokens Authorization::exchange(const std::string& clientId, const std::string& code,
                               const std::string& redirectUri, const std::string& verifier) {
    if (!client(clientId)) throw invalidClient();
    WriteTransaction transaction(storage_);
    auto& database = transaction.database();
    std::string challenge;
    std::string member;
    std::string scope;
    {
        auto query = database.query(
            "SELECT redirect_uri, challenge, member, scope, expires_at, session FROM authorizations"
            " WHERE code = ? AND client_id = ?",
            sha256Hex(code), clientId);
        if (!query.next()) throw invalidGrant("The code is unknown.");
        if (const auto session = query.optionalInteger(5)) {
            database.run("DELETE FROM sessions WHERE session = ?", *session);
            transaction.commit();
            throw invalidGrant("The code has been used.");
        }
        if (query.integer(4) <= milliseconds(storage_.clock().now()))
            throw invalidGrant("The code has expired.");
        if (query.text(0) != redirectUri) throw invalidGrant("The redirect URI is another one.");
        challenge = query.text(1);
        member = query.text(2);
        scope = query.text(3);
    }
    if (sha256Base64URL(verifier) != challenge) throw invalidGrant("The code verifier doesn't fit.");
    database.run("INSERT INTO sessions (client_id, member, scope) VALUES (?, ?, ?)", clientId, member, scope);
    const auto session = database.lastRow();
    database.run("UPDATE authorizations SET session = ? WHERE code = ?", session, sha256Hex(code));
    auto tokens = issue(transaction, session, scope);
    transaction.commit();
    return tokens;
}

Tokens Authorization::refresh(const std::string& clientId, const std::string& refreshToken) {
    if (!client(clientId)) throw invalidClient();
    WriteTransaction transaction(storage_);
    auto& database = transaction.database();
    const auto now = storage_.clock().now();
    forgetOld(transaction);
    std::int64_t session = 0;
    std::string scope;
    {
        auto query = database.query(
            "SELECT session, scope FROM refresh_tokens JOIN sessions USING (session)"
            " WHERE token = ? AND client_id = ?",
            sha256Hex(refreshToken), clientId);
        if (!query.next()) throw invalidGrant("The refresh token is unknown, replaced or revoked.");
        session = query.integer(0);
        scope = query.text(1);
    }
    database.run("UPDATE refresh_tokens SET rotated_at = ? WHERE token = ? AND rotated_at IS NULL",
                 milliseconds(now), sha256Hex(refreshToken));
    auto tokens = issue(transaction, session, scope);
    transaction.commit();
    return tokens;
}

std::optional<std::string> Authorization::memberOf(Storage& storage, Database& database,
                                                   const std::string& accessToken) {
    auto query = database.query(
        "SELECT member FROM access_tokens JOIN sessions USING (session) WHERE token = ? AND expires_at > ?",
        sha256Hex(accessToken), milliseconds(storage.clock().now()));
    if (!query.next()) return std::nullopt;
    return query.text(0);
}

void Authorization::expireAccessTokens() {
    WriteTransaction transaction(storage_);
    transaction.database().run("DELETE FROM access_tokens");
    transaction.commit();
}

void Authorization::endSessions() {
    WriteTransaction transaction(storage_);
    transaction.database().run("DELETE FROM sessions");
    transaction.commit();
}

Tokens Authorization::issue(WriteTransaction& transaction, std::int64_t session, const std::string& scope) {
    Tokens tokens{randomSecret(storage_.random()), randomSecret(storage_.random()), lifetime_, scope};
    auto& database = transaction.database();
    database.run("INSERT INTO access_tokens (token, session, expires_at) VALUES (?, ?, ?)",
                 sha256Hex(tokens.access), session, milliseconds(storage_.clock().now() + lifetime_));
    database.run("INSERT INTO refresh_tokens (token, session) VALUES (?, ?)", sha256Hex(tokens.refresh),
                 session);
    return tokens;
}

// Codes stay past their time for as long as a ticket does, so that a replayed one is known for what it is.
void Authorization::forgetOld(WriteTransaction& transaction) {
    auto& database = transaction.database();
    const auto now = storage_.clock().now();
    database.run("DELETE FROM authorizations WHERE expires_at < ?", milliseconds(now - ticketLifetime));
    database.run("DELETE FROM access_tokens WHERE expires_at <= ?", milliseconds(now));
    database.run("DELETE FROM refresh_tokens WHERE rotated_at < ?", milliseconds(now - rotatedStaysValid));
}

}  // namespace vorlinden::server
