#include "tests/syncserver/member.h"

#include "platform/json.h"
#include "platform/url.h"
#include "synckit/server/sync_json.h"

namespace vorlinden::tests {

using platform::JSONObjectBuilder;

RunningServer::RunningServer(const std::function<void(server::ServerOptions&)>& adjust) {
    restart(adjust);
    admin().grant("docs");
}

void RunningServer::restart(const std::function<void(server::ServerOptions&)>& adjust) {
    server::ServerOptions options{.data = folder / "data", .autoApprove = true, .threads = 2};
    adjust(options);
    server.reset();
    server.emplace(options, clock);
}

std::string registerClient(PlainClient& http, const std::string& name) {
    const auto body = JSONObjectBuilder()
                          .add("client_name", name)
                          .add("redirect_uris", std::vector<std::string>{"vorlinden://oauth/callback"})
                          .add("token_endpoint_auth_method", "none")
                          .text();
    return http.postJson("/oauth/register", body.text).text("client_id");
}

std::string authorizeTarget(const std::string& clientId, const std::string& more) {
    return "/oauth/authorize?response_type=code&client_id=" + clientId + "&redirect_uri=" + callback +
           "&state=a%20b&code_challenge=" + challenge + "&code_challenge_method=S256&scope=readwrite" + more;
}

std::string codeIn(const Answer& redirect) {
    const auto& location = redirect.headers.at("location");
    const auto start = location.find("code=") + 5;
    return location.substr(start, location.find('&', start) - start);
}

Answer exchangeCode(PlainClient& http, const std::string& clientId, const std::string& code) {
    return http.postForm("/oauth/token", "grant_type=authorization_code&client_id=" + clientId +
                                             "&code=" + code + "&redirect_uri=" + callback +
                                             "&code_verifier=" + verifier);
}

Answer refresh(PlainClient& http, const std::string& clientId, const std::string& refreshToken) {
    return http.postForm("/oauth/token",
                         "grant_type=refresh_token&client_id=" + clientId + "&refresh_token=" + refreshToken);
}

Member::Member(const std::string& url) : http(url), clientId(registerClient(http)) {
    const auto tokens = exchangeCode(http, clientId, codeIn(http.send("GET", authorizeTarget(clientId))));
    accessToken = tokens.text("access_token");
    refreshToken = tokens.text("refresh_token");
    const auto device = send("POST", "/api/sync/devices", R"({"name":"Desk","platform":"linux"})");
    deviceId = SyncJSON::decode<DeviceEnvelope>(device.body).device.id;
    for (const auto& brain : SyncJSON::decode<BrainsEnvelope>(send("GET", "/api/sync/brains").body).brains) {
        if (brain.slug == "docs") brainId = brain.id;
    }
}

Answer Member::send(const std::string& method, const std::string& target, const std::string& body,
                    const std::string& contentType) {
    return http.send(method, target, body,
                     {{"Authorization", "Bearer " + accessToken}, {"Content-Type", contentType}});
}

Answer Member::onBrain(const std::string& method, const std::string& rest, const std::string& body,
                       const std::string& contentType) {
    return send(method, "/api/sync/brains/" + brainId + "/" + rest, body, contentType);
}

Answer Member::putText(const std::string& path, const std::string& text, const std::string& more) {
    const auto object =
        JSONObjectBuilder().add("deviceId", deviceId).add("path", path).add("body", text).text().text;
    return onBrain("PUT", "file", object.substr(0, object.size() - 1) + more + "}");
}

Answer Member::uploadBlob(const std::string& bytes) {
    return onBrain("POST", "blobs?deviceId=" + deviceId, bytes, "application/octet-stream");
}

Answer Member::putBlob(const std::string& path, const std::string& hash, std::int64_t size) {
    const auto object = JSONObjectBuilder()
                            .add("deviceId", deviceId)
                            .add("path", path)
                            .add("blobHash", hash)
                            .add("blobSize", size)
                            .text();
    return onBrain("PUT", "file", object.text);
}

Answer Member::move(const std::string& from, const std::string& to) {
    const auto object =
        JSONObjectBuilder().add("deviceId", deviceId).add("fromPath", from).add("toPath", to).text();
    return onBrain("POST", "move", object.text);
}

Answer Member::remove(const std::string& path) {
    return onBrain("DELETE", "file",
                   JSONObjectBuilder().add("deviceId", deviceId).add("path", path).text().text);
}

Answer Member::file(const std::string& path, const std::string& at) {
    return onBrain("GET",
                   "file?path=" + platform::percentEncoded(path) + "&at=" + platform::percentEncoded(at));
}

Answer Member::changesAnswer(const std::optional<std::string>& cursor) {
    return onBrain(
        "GET", "changes?" + (cursor ? "cursor=" + *cursor + "&" : std::string()) + "deviceId=" + deviceId);
}

ChangesResponse::Incremental Member::changes(const std::string& cursor) {
    return std::get<ChangesResponse::Incremental>(
        SyncJSON::decode<ChangesResponse>(changesAnswer(cursor).body).value);
}

ChangesResponse::Reset Member::snapshot(const std::optional<std::string>& cursor) {
    return std::get<ChangesResponse::Reset>(
        SyncJSON::decode<ChangesResponse>(changesAnswer(cursor).body).value);
}

std::string Member::head() {
    return snapshot().cursor.value();
}

std::string Member::content(const std::string& path, const std::optional<std::string>& at) {
    const auto answer = file(path, at ? *at : head());
    if (answer.headers.at("content-type") == "application/octet-stream") return answer.body;
    return answer.text("content");
}

}  // namespace vorlinden::tests
