#include "tests/host/fake_server.h"

#include <stdexcept>

#include "platform/json.h"

namespace vorlinden::tests {
namespace {

using platform::JSONObjectBuilder;
using platform::JSONText;

constexpr const char* moment = "2026-03-04T05:06:07.089Z";

FakeServer::Answer json(const JSONObjectBuilder& object) {
    return FakeURLSession::response(200, object.text().text, {{"Content-Type", "application/json"}});
}

JSONText device(const std::string& id) {
    return JSONObjectBuilder()
        .add("id", id)
        .add("name", "Test Machine")
        .add("platform", "linux")
        .add("createdAt", moment)
        .text();
}

JSONText createEntry(const std::string& path) {
    JSONObjectBuilder op;
    op.add("kind", "create").add("path", path).add("title", path).add("isDirectory", false);
    op.add("tags", std::vector<std::string>());
    JSONObjectBuilder entry;
    entry.add("cursor", "at-" + path).add("at", moment);
    entry.add("author", JSONObjectBuilder().add("kind", "member").add("memberId", "m").text());
    entry.add("ops", std::vector<JSONText>{op.text()});
    return entry.text();
}

JSONText snapshotNode(const std::string& path) {
    JSONObjectBuilder node;
    node.add("nodeId", "id-" + path).add("path", path).add("title", path).add("isDirectory", false);
    node.add("kind", "text").add("updatedAt", moment);
    return node.text();
}

}  // namespace

FakeServer::FakeServer(FakeURLSession& session) : session_(session) {
    session.setHandler([this](const platform::URLRequest& request) { return answer(request); });
}

std::vector<std::string> FakeServer::bodies(const std::string& path) const {
    std::vector<std::string> bodies;
    for (const auto& request : session_.requests()) {
        if (request.url.encodedPath() != path) continue;
        bodies.emplace_back(request.body ? request.body->view() : std::string_view());
    }
    return bodies;
}

FakeServer::Answer FakeServer::feed(const std::vector<std::string>& newTextFiles, const std::string& cursor) {
    std::vector<JSONText> entries;
    for (const auto& path : newTextFiles)
        entries.push_back(createEntry(path));
    return json(JSONObjectBuilder().add("reset", false).add("cursor", cursor).add("entries", entries));
}

FakeServer::Answer FakeServer::snapshot(const std::vector<std::string>& textFiles,
                                        const std::string& cursor) {
    std::vector<JSONText> nodes;
    for (const auto& path : textFiles)
        nodes.push_back(snapshotNode(path));
    return json(JSONObjectBuilder().add("reset", true).add("cursor", cursor).add("snapshot", nodes));
}

FakeServer::Answer FakeServer::failure(int status, const std::string& code) {
    const auto error = JSONObjectBuilder().add("code", code).add("message", "because of " + code).text();
    return FakeURLSession::response(status, JSONObjectBuilder().add("error", error).text().text);
}

FakeServer::Answer FakeServer::answer(const platform::URLRequest& request) {
    const auto path = request.url.encodedPath();
    if (const auto other = instead.find(path); other != instead.end()) return other->second;
    if (path == "/.well-known/oauth-authorization-server") {
        return json(JSONObjectBuilder()
                        .add("issuer", issuer)
                        .add("authorization_endpoint", issuer + "/authorize")
                        .add("token_endpoint", issuer + "/token")
                        .add("registration_endpoint", issuer + "/register"));
    }
    if (path == "/register") {
        return json(JSONObjectBuilder()
                        .add("client_id", "client-" + std::to_string(count("/register")))
                        .add("client_name", "n")
                        .add("redirect_uris", std::vector<std::string>())
                        .add("token_endpoint_auth_method", "none")
                        .add("grant_types", std::vector<std::string>())
                        .add("response_types", std::vector<std::string>()));
    }
    if (path == "/token") {
        return json(JSONObjectBuilder()
                        .add("access_token", "access")
                        .add("token_type", "Bearer")
                        .add("expires_in", std::int64_t{60})
                        .add("refresh_token", "refresh")
                        .add("scope", "readwrite"));
    }
    if (path == "/api/sync/brains") return FakeURLSession::response(200, brainsJSON());
    if (path == "/api/sync/devices" && request.method == "POST") return registerDevice();
    if (path == "/api/sync/devices") {
        std::vector<JSONText> list;
        for (const auto& id : devices)
            list.push_back(device(id));
        return json(JSONObjectBuilder().add("devices", list));
    }
    return changes(request, path);
}

std::string FakeServer::brainsJSON() const {
    std::vector<JSONText> list;
    for (const auto& [id, brain] : brains) {
        list.push_back(JSONObjectBuilder()
                           .add("id", id.lowerText())
                           .add("teamId", "t")
                           .add("name", "The " + brain.slug)
                           .add("slug", brain.slug)
                           .text());
    }
    return JSONObjectBuilder().add("brains", list).text().text;
}

FakeServer::Answer FakeServer::registerDevice() {
    devices.push_back("device-" + std::to_string(devices.size() + 1));
    return json(JSONObjectBuilder().add("device", device(devices.back())));
}

// One file of a brain: its content, a put, or a deletion.
FakeServer::Answer FakeServer::file(const platform::URLRequest& request) {
    if (request.method == "GET") {
        const auto query = request.url.encodedQuery().value_or("");
        const auto path = platform::percentDecoded(query.substr(5, query.find('&') - 5)).value_or("");
        const auto content = contents.find(path);
        if (content == contents.end()) return failure(404, "NOT_FOUND");
        return json(JSONObjectBuilder().add("path", path).add("at", "head").add("content", content->second));
    }
    onWrite();
    const platform::JSONDocument body(request.body->view());
    const auto path = body.root().requiredString("path");
    if (const auto other = insteadOfPut.find(path); other != insteadOfPut.end()) return other->second;
    if (request.method == "DELETE")
        return json(JSONObjectBuilder().add("deleted", true).add("cursor", "put"));
    contents[path] = body.root().requiredString("body");
    const auto node = JSONObjectBuilder().add("nodeId", "id-" + path).add("path", path).text();
    return json(JSONObjectBuilder().add("node", node).add("cursor", "put"));
}

FakeServer::Answer FakeServer::changes(const platform::URLRequest& request, const std::string& path) {
    for (const auto& [id, brain] : brains) {
        if (path == "/api/sync/brains/" + id.lowerText() + "/file") return file(request);
        if (path != "/api/sync/brains/" + id.lowerText() + "/changes") continue;
        const auto query = request.url.encodedQuery().value_or("");
        const auto cursor =
            query.starts_with("cursor=") ? query.substr(7, query.find('&') - 7) : std::string();
        return brain.changes(cursor);
    }
    throw std::logic_error("no answer for " + request.method + " " + path);
}

}  // namespace vorlinden::tests
