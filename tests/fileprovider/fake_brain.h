// A brain's files on a server inside one test.
#pragma once

#include <deque>
#include <map>
#include <string>

#include "platform/json.h"
#include "synckit/server/sync_json.h"
#include "tests/support/fake_url_session.h"

namespace vorlinden::tests {

// Answers the writing requests of a FakeURLSession, and refreshes of the token, as the server would. Lives as
// long as the session is asked.
class FakeBrain {
 public:
    explicit FakeBrain(FakeURLSession& session) {
        session.setHandler([this](const platform::URLRequest& request) { return answer(request); });
    }

    std::map<std::string, std::string> files;  // content by path
    std::string readOnly = "none";             // the path that this user may not write
    // What becomes of the next requests, one each; of all later ones "ok". "off" reaches nobody, "lost" is
    // done but not answered, "403 FORBIDDEN" is refused with that status and code.
    std::deque<std::string> fates;

 private:
    using Answer = FakeURLSession::Answer;

    Answer answer(const platform::URLRequest& request) {
        if (request.url.encodedPath().starts_with("/.well-known/")) return json({metadata});
        if (request.url.encodedPath() == "/token") return json({tokens});
        std::string fate = "ok";
        if (!fates.empty()) {
            fate = fates.front();
            fates.pop_front();
        }
        if (fate == "off") return platform::URLError(platform::URLError::Code::cannotConnect);
        if (fate != "ok" && fate != "lost") return refusal(std::stoi(fate), fate.substr(4));
        Answer done = act(request);
        if (fate == "lost") return platform::URLError(platform::URLError::Code::connectionLost);
        return done;
    }

    Answer act(const platform::URLRequest& request) {
        const std::string body(request.body ? request.body->view() : "");
        if (request.url.encodedPath().ends_with("/blobs")) {
            blob_ = body;
            return json(SyncJSON::encode(BlobReceipt{"hash-of-server", 0}));
        }
        const platform::JSONDocument document(body);
        const auto root = document.root();
        if (request.method == "POST")
            return move(root.requiredString("fromPath"), root.requiredString("toPath"));
        const auto path = root.requiredString("path");
        if (request.method == "DELETE")
            return json(SyncJSON::encode(DeleteResult{files.erase(path) != 0, {}}));
        if (path == readOnly) return refusal(403, "FORBIDDEN_SUBTREE");
        files[path] = root.optionalString("body").value_or(blob_);
        return written(path);
    }
    Answer move(const std::string& from, const std::string& to) {
        if (!files.contains(from)) return refusal(404, "NOT_FOUND");
        if (files.contains(to)) return refusal(409, "CONFLICT");
        files[to] = files.extract(from).mapped();
        return written(to);
    }

    static Answer written(const std::string& path) {
        return json(SyncJSON::encode(WriteResult{{"srv:" + path, path}, "cursor-9"}));
    }
    static Answer json(const platform::JSONText& text) {
        return FakeURLSession::response(200, text.text, {{"Content-Type", "application/json"}});
    }
    static Answer refusal(int status, const std::string& code) {
        return FakeURLSession::response(
            status, R"({"error":{"code":")" + code + R"(","message":"No: )" + code + R"("}})");
    }

    static constexpr const char* metadata =
        R"({"issuer":"https://sync.vorlinden.example","authorization_endpoint":"https://sync.vorlinden.example/a",
            "token_endpoint":"https://sync.vorlinden.example/token",
            "registration_endpoint":"https://sync.vorlinden.example/register"})";
    static constexpr const char* tokens =
        R"({"access_token":"access-2","token_type":"Bearer","expires_in":60,"refresh_token":"refresh-2",
            "scope":"readwrite"})";

    std::string blob_;  // the bytes last uploaded
};

}  // namespace vorlinden::tests
