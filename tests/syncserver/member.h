// A running server in this process, and somebody who is signed in to it.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "linux/server/sync_server.h"
#include "synckit/server/wire_model.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temporary_folder.h"
#include "tests/syncserver/plain_client.h"

namespace vorlinden::tests {

// Has one brain, "docs", and approves every sign-in unless told otherwise. Time stands still until a test
// moves it.
struct RunningServer {
    explicit RunningServer(const std::function<void(server::ServerOptions&)>& adjust = [](auto&) {});
    // Ends the server if one runs, and starts one on the same folder.
    void restart(const std::function<void(server::ServerOptions&)>& adjust = [](auto&) {});
    const server::Administrator& admin() const { return server->administrator(); }

    TemporaryFolder folder;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    std::optional<server::SyncServer> server;
};

// The pair of a sign-in: what the authorization URL asks with, and what the exchange proves.
inline constexpr const char* verifier = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk";
inline constexpr const char* challenge = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM";
inline constexpr const char* callback = "vorlinden%3A%2F%2Foauth%2Fcallback";

// The steps of a sign-in, one by one.
std::string registerClient(PlainClient& http, const std::string& name = "Test");
std::string authorizeTarget(const std::string& clientId, const std::string& more = {});
std::string codeIn(const Answer& redirect);
Answer exchangeCode(PlainClient& http, const std::string& clientId, const std::string& code);
Answer refresh(PlainClient& http, const std::string& clientId, const std::string& refreshToken);

// Signed in with a device; the answers are read by the client's own decoder.
class Member {
 public:
    explicit Member(const std::string& url);

    Answer send(const std::string& method, const std::string& target, const std::string& body = {},
                const std::string& contentType = "application/json");
    Answer onBrain(const std::string& method, const std::string& rest, const std::string& body = {},
                   const std::string& contentType = "application/json");

    // Raw answers; `more` is further JSON members, such as `,"title":"T"`.
    Answer putText(const std::string& path, const std::string& text, const std::string& more = {});
    Answer uploadBlob(const std::string& bytes);
    Answer putBlob(const std::string& path, const std::string& hash, std::int64_t size);
    Answer move(const std::string& from, const std::string& to);
    Answer remove(const std::string& path);
    Answer file(const std::string& path, const std::string& at);
    Answer changesAnswer(const std::optional<std::string>& cursor);

    ChangesResponse::Incremental changes(const std::string& cursor);
    ChangesResponse::Reset snapshot(const std::optional<std::string>& cursor = {});
    std::string head();  // of the brain's feed
    // A file's bytes, now or at a cursor; text or blob.
    std::string content(const std::string& path, const std::optional<std::string>& at = {});

    PlainClient http;
    std::string clientId;
    std::string accessToken;
    std::string refreshToken;
    std::string deviceId;
    std::string brainId;
};

}  // namespace vorlinden::tests
