// Local work that waits, a server it can go to, and what went wrong on the way.
#pragma once

#include <deque>
#include <map>

#include "synckit/auth/token_manager.h"
#include "synckit/server/sync_api_client.h"
#include "synckit/server/sync_json.h"
#include "tests/conflicts/conflict_world.h"
#include "tests/support/fake_system.h"

namespace vorlinden::tests {

class UploadWorld : public ConflictWorld {
 public:
    UploadWorld() {
        machine.deviceName = "M";
        machine.session->setHandler([this](const platform::URLRequest& request) { return answer(request); });
    }

    // What the server holds, and every request that reached it: "PUT f = bytes", "MOVE a to b", ...
    std::map<std::string, std::string> server;
    Lines calls;
    // The moves and deletes that the server made, as its feed tells them. (Echoes of content are the puller's
    // business.)
    std::vector<Op> echoes;
    // What becomes of the next requests, one word each: "served", a refusal such as "409" or
    // "403 FORBIDDEN_SUBTREE" (with the message "no"), "offline" for a request that never arrives, "lost" for
    // one that is served and not answered. All further ones are served, but for those that change what lies
    // in the folder "ro".
    std::deque<std::string> fates;
    // Called when a request arrives, and again when its answer leaves.
    std::function<void()> onStep = [] {};

    FakeSystem machine;
    const std::shared_ptr<TokenPersisting> tokens =
        std::make_shared<KeychainTokenStore>(machine.secrets, KeychainTokenStore::defaultService, "group");
    const URL base = *URL::parse("https://s.example");
    const std::shared_ptr<HTTPTransport> transport = std::make_shared<URLSessionTransport>(machine.session);
    const std::shared_ptr<TokenManager> tokenManager = signedIn();
    const std::shared_ptr<SyncAPIClient> api = std::make_shared<SyncAPIClient>(base, transport, tokenManager);

 private:
    using Answer = FakeURLSession::Answer;

    std::shared_ptr<TokenManager> signedIn() {
        tokens->save({"old", "refresh"});
        return std::make_shared<TokenManager>(machine.loop.executor(), base, transport, tokens,
                                              [] { return std::string("client"); });
    }

    static platform::URLResponse json(int status, std::string body) {
        return FakeURLSession::response(status, std::move(body), {{"Content-Type", "application/json"}});
    }

    Answer answer(const platform::URLRequest& request) {
        const auto path = request.url.encodedPath();
        if (path.starts_with("/.well-known/"))
            return json(200,
                        R"({"issuer":"https://s.example","authorization_endpoint":"https://s.example/a",)"
                        R"("token_endpoint":"https://s.example/t","registration_endpoint":)"
                        R"("https://s.example/r"})");
        if (path == "/t")
            return json(200, R"({"access_token":"new","token_type":"Bearer","expires_in":60,)"
                             R"("refresh_token":"refresh2","scope":"readwrite"})");
        EXPECT_TRUE(path.starts_with("/api/sync/brains/" + brain.lowerText() + "/")) << path;
        const auto fate = fates.empty() ? "served" : fates.front();
        if (!fates.empty()) fates.pop_front();
        if (fate == "offline") return URLError(URLError::Code::cannotConnect);
        onStep();
        const bool acts = fate == "served" || fate == "lost";
        const auto answer = serve(request, acts);
        onStep();
        if (fate == "lost") return URLError(URLError::Code::connectionLost);
        return acts ? answer : refused(fate);
    }

    static platform::URLResponse refused(const std::string& fate) {
        const auto code = fate.size() > 4 ? fate.substr(4) : "SOME_CODE";
        return json(std::stoi(fate), R"({"error":{"code":")" + code + R"(","message":"no"}})");
    }

    // Records the request; `act` is false for one that is refused whatever it wants.
    platform::URLResponse serve(const platform::URLRequest& request, bool act) {
        if (request.url.encodedPath().ends_with("/blobs")) {
            calls.push_back("BLOB");
            return json(200, R"({"hash":"the-server's","size":77})");
        }
        const std::string body(request.body->view());
        const platform::JSONDocument document(body);
        const auto sent = document.root();
        EXPECT_EQ(sent.requiredString("deviceId"), "device");
        EXPECT_FALSE(sent.optional("title"));
        if (sent.optional("fromPath"))
            return move(sent.requiredString("fromPath"), sent.requiredString("toPath"), act);
        const auto path = sent.requiredString("path");
        if (request.method == "DELETE") return remove(path, act);
        const auto hash = sent.optionalString("blobHash");
        return put(path, hash ? "blob " + *hash : sent.requiredString("body"), act);
    }
    platform::URLResponse put(const std::string& path, const std::string& content, bool act) {
        calls.push_back("PUT " + shortName(path) + " = " + content);
        if (path.starts_with("ro/")) return refused("403 FORBIDDEN_SUBTREE");
        if (act) server[path] = content;
        return json(200, SyncJSON::encode(WriteResult{{"id:" + path, path}, "c9"}).text);
    }
    platform::URLResponse remove(const std::string& path, bool act) {
        calls.push_back("DELETE " + path);
        if (path.starts_with("ro/")) return refused("403 FORBIDDEN_SUBTREE");
        if (act && server.erase(path) == 0) return refused("404 NOT_FOUND");
        if (act) echoes.push_back({Op::Delete{path}});
        return json(200, SyncJSON::encode(DeleteResult{}).text);
    }
    platform::URLResponse move(const std::string& from, const std::string& to, bool act) {
        calls.push_back("MOVE " + from + " to " + shortName(to));
        if (to.starts_with("ro/")) return refused("403 FORBIDDEN_SUBTREE");
        if (act && !server.contains(from)) return refused("404 NOT_FOUND");
        if (act && server.contains(to)) return refused("409 CONFLICT");
        if (act) {
            auto file = server.extract(from);
            file.key() = to;
            server.insert(std::move(file));
            echoes.push_back({Op::Move{from, to}});
        }
        return json(200, SyncJSON::encode(WriteResult{{"id:" + to, to}, "c9"}).text);
    }
};

}  // namespace vorlinden::tests
