#include "synckit/upload/content_uploader.h"

#include <deque>

#include <gtest/gtest.h>

#include "synckit/auth/token_manager.h"
#include "synckit/server/sync_api_client.h"
#include "tests/support/fake_url_session.h"
#include "tests/support/test_loop.h"

namespace vorlinden {
namespace {

const UUID brain = *UUID::parse("ABCDEF01-0000-4000-8000-000000000001");
const std::string written = R"({"node":{"nodeId":"n1","path":"a/f"},"cursor":"c9"})";
const std::string receipt = R"({"hash":"the-server's","size":77})";
const WriteResult result{{"n1", "a/f"}, "c9"};

// A session that is signed in and can be refreshed.
class MemoryTokens : public TokenPersisting {
 public:
    std::optional<TokenSet> load() override { return tokens; }
    void save(const TokenSet& now) override { tokens = now; }
    void remove() override { tokens.reset(); }
    std::optional<TokenSet> tokens = TokenSet{"old", "refresh"};
};

class ContentUploaderTest : public testing::Test {
 protected:
    ContentUploaderTest() {
        session->setHandler([this](const platform::URLRequest& request) { return answer(request); });
    }

    // "METHOD PATH" of a request to the sync API goes into `calls` and takes the next of `answers`; the
    // authorization side always works.
    tests::FakeURLSession::Answer answer(const platform::URLRequest& request) {
        const auto path = request.url.encodedPath();
        if (path.starts_with("/.well-known/"))
            return json(200,
                        R"({"issuer":"https://s.example","authorization_endpoint":"https://s.example/a",)"
                        R"("token_endpoint":"https://s.example/t","registration_endpoint":)"
                        R"("https://s.example/r"})");
        if (path == "/t")
            return json(200, R"({"access_token":"new","token_type":"Bearer","expires_in":60,)"
                             R"("refresh_token":"refresh2","scope":"readwrite"})");
        calls.push_back(request.method + " " + path);
        bodies.emplace_back(request.body->view());
        const auto [status, body] = answers.front();
        answers.pop_front();
        return json(status, body);
    }
    static platform::URLResponse json(int status, std::string body) {
        return tests::FakeURLSession::response(status, std::move(body),
                                               {{"Content-Type", "application/json"}});
    }

    UploadedContent send(ContentUploadPlan plan) {
        return loop.run(
            [this, plan] { return ContentUploader::send(plan, brain, "a/f", "device", api, tokenManager); });
    }

    const URL base = *URL::parse("https://s.example");
    const std::shared_ptr<tests::FakeURLSession> session = std::make_shared<tests::FakeURLSession>();
    const std::shared_ptr<HTTPTransport> transport = std::make_shared<URLSessionTransport>(session);
    const std::shared_ptr<MemoryTokens> tokens = std::make_shared<MemoryTokens>();
    tests::TestLoop loop;
    const std::shared_ptr<TokenManager> tokenManager = std::make_shared<TokenManager>(
        loop.executor(), base, transport, tokens, [] { return std::string("client"); });
    const std::shared_ptr<SyncAPIClient> api = std::make_shared<SyncAPIClient>(base, transport, tokenManager);
    std::deque<std::pair<int, std::string>> answers;
    std::vector<std::string> calls, bodies;

    const std::string file = "PUT /api/sync/brains/abcdef01-0000-4000-8000-000000000001/file";
    const std::string blobs = "POST /api/sync/brains/abcdef01-0000-4000-8000-000000000001/blobs";
    const ContentUploadPlan blob{ContentUploadPlan::Blob{Data(std::string("\0bytes", 6)), "planned", 6}};
};

TEST_F(ContentUploaderTest, TextGoesUpInOneCall) {
    answers = {{200, written}};
    EXPECT_EQ(send({ContentUploadPlan::Text{""}}), (UploadedContent{result, NodeKind::text, {}, {}}));
    EXPECT_EQ(calls, std::vector{file});
    EXPECT_EQ(bodies.at(0), R"({"body":"","deviceId":"device","path":"a/f"})");
}

TEST_F(ContentUploaderTest, BlobGoesUpBeforeTheFileThatNamesIt) {
    answers = {{200, receipt}, {200, written}};
    EXPECT_EQ(send(blob), (UploadedContent{result, NodeKind::blob, "the-server's", 6}));
    EXPECT_EQ(calls, (std::vector{blobs, file}));
    EXPECT_EQ(bodies.at(0), std::string("\0bytes", 6));
    EXPECT_EQ(bodies.at(1), R"({"blobHash":"the-server's","blobSize":6,"deviceId":"device","path":"a/f"})");
}

TEST_F(ContentUploaderTest, RejectedTokenRepeatsOnlyTheCallItHit) {
    answers = {{200, receipt}, {401, ""}, {200, written}};
    EXPECT_EQ(send(blob).result, result);
    EXPECT_EQ(calls, (std::vector{blobs, file, file}));
    EXPECT_EQ(tokens->tokens, (TokenSet{"new", "refresh2"}));

    answers = {{401, ""}, {401, ""}};
    try {
        send({ContentUploadPlan::Text{"t"}});
        ADD_FAILURE() << "a fresh token that is rejected ends the session";
    } catch (const TokenManagerError& error) {
        EXPECT_EQ(error, TokenManagerError::signedOut());
    }
}

TEST_F(ContentUploaderTest, OtherRefusalsPassThroughAtOnce) {
    answers = {{409, R"({"error":{"code":"CONFLICT","message":"no"}})"}};
    EXPECT_THROW(send(blob), SyncAPIError);
    EXPECT_EQ(calls, std::vector{blobs}) << "no file is made for a blob that isn't there";
}

TEST_F(ContentUploaderTest, TooLargeIsNeverSent) {
    try {
        send({ContentUploadPlan::TooLarge{104'857'601}});
        ADD_FAILURE();
    } catch (const UploadPlanError& error) {
        EXPECT_EQ(error, UploadPlanError::tooLarge(104'857'601));
    }
    EXPECT_EQ(session->requests().size(), 0U);
}

}  // namespace
}  // namespace vorlinden
