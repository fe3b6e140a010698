#include "synckit/server/sync_api_client.h"

#include <gtest/gtest.h>

#include "platform/json.h"
#include "tests/support/fake_url_session.h"
#include "tests/support/test_loop.h"

namespace vorlinden::tests {
namespace {

using platform::Header;

const std::string stamp = "2023-11-14T22:13:20.123Z";
const std::string writeResult = R"({"node":{"nodeId":"n","path":"p"},"cursor":"c"})";

class SyncAPIClientTest : public testing::Test {
 protected:
    void answer(int status, const std::string& body,
                std::vector<Header> headers = {{"Content-Type", "application/json"}}) {
        session_->answer(FakeURLSession::response(status, body, std::move(headers)));
    }
    SyncAPIClient client() {
        return {*URL::parse("https://store.example/root//"), std::make_shared<URLSessionTransport>(session_),
                std::make_shared<StaticTokenProvider>("token")};
    }
    // Runs an operation of a client on the answers prepared before.
    template <class Operation>
    auto run(Operation operation) {
        auto api = client();
        return loop_.run([&] { return operation(api); });
    }
    template <class Error, class Operation>
    Error failureOf(Operation operation) {
        try {
            run(operation);
        } catch (const Error& error) {
            return error;
        }
        throw std::logic_error("the operation succeeded");
    }
    // What went out last: method, URL, accept, content type, body.
    std::string sent() const {
        const auto request = session_->requests().back();
        std::string text = request.method + " " + request.url.absoluteString();
        for (const auto& [name, value] : request.headers)
            text += "\n" + name + ": " + value;
        return text + "\n" + (request.body ? std::string(request.body->view()) : "no body");
    }

    std::shared_ptr<FakeURLSession> session_ = std::make_shared<FakeURLSession>();
    TestLoop loop_;
};

const std::string root = "https://store.example/root/api/sync/";
const std::string plainHeaders = "\nAuthorization: Bearer token\nAccept: application/json\n";
const std::string jsonHeaders = plainHeaders + "Content-Type: application/json\n";

TEST_F(SyncAPIClientTest, DevicesAndBrainsGoOverTheWire) {
    const auto device = R"({"id":"d","name":"n","platform":"p","createdAt":")" + stamp + R"("})";
    answer(201, R"({"device":)" + device + "}");
    EXPECT_EQ(run([](auto& api) { return api.registerDevice("my \"box\"", "linux"); }).id, "d");
    EXPECT_EQ(sent(),
              "POST " + root + "devices" + jsonHeaders + R"({"name":"my \"box\"","platform":"linux"})");
    EXPECT_EQ(session_->requests().back().timeout, std::chrono::seconds(60));
    answer(200, R"({"devices":[)" + device + "]}");
    EXPECT_EQ(run([](auto& api) { return api.listDevices(); }).size(), 1U);
    EXPECT_EQ(sent(), "GET " + root + "devices" + plainHeaders + "no body");
    answer(200, R"({"brains":[{"id":"b","teamId":"t","name":"n","slug":"s"}]})");
    EXPECT_EQ(run([](auto& api) { return api.listBrains(); }).at(0).slug, "s");
    EXPECT_EQ(sent(), "GET " + root + "brains" + plainHeaders + "no body");
}

TEST_F(SyncAPIClientTest, ChangesGoOverTheWire) {
    const std::string none = R"({"reset":false,"entries":[]})";
    answer(200, none);
    run([](auto& api) { return api.changes("b/1", std::nullopt, "d 1"); });
    EXPECT_EQ(sent(), "GET " + root + "brains/b%2F1/changes?deviceId=d%201" + plainHeaders + "no body");
    answer(200, none);
    run([](auto& api) { return api.changes("b", "c+1", "d"); });
    EXPECT_EQ(sent(), "GET " + root + "brains/b/changes?cursor=c%2B1&deviceId=d" + plainHeaders + "no body");
}

TEST_F(SyncAPIClientTest, WritesGoOverTheWire) {
    answer(200, writeResult);
    EXPECT_EQ(run([](auto& api) { return api.putTextFile("b", "d", "x/ü.md", "T", "one\ntwo"); }),
              (WriteResult{{"n", "p"}, "c"}));
    EXPECT_EQ(sent(), "PUT " + root + "brains/b/file" + jsonHeaders +
                          R"({"body":"one\ntwo","deviceId":"d","path":"x/ü.md","title":"T"})");
    answer(200, writeResult);
    run([](auto& api) { return api.putTextFile("b", "d", "p", std::nullopt, ""); });
    EXPECT_EQ(sent(),
              "PUT " + root + "brains/b/file" + jsonHeaders + R"({"body":"","deviceId":"d","path":"p"})");
    answer(200, writeResult);
    run([](auto& api) { return api.putBlobFile("b", "d", "p", std::nullopt, "h", 5'000'000'000); });
    EXPECT_EQ(sent(), "PUT " + root + "brains/b/file" + jsonHeaders +
                          R"({"blobHash":"h","blobSize":5000000000,"deviceId":"d","path":"p"})");
    answer(200, writeResult);
    run([](auto& api) { return api.move("b", "d", "from", "to"); });
    EXPECT_EQ(sent(), "POST " + root + "brains/b/move" + jsonHeaders +
                          R"({"deviceId":"d","fromPath":"from","toPath":"to"})");
    answer(200, R"({"deleted":false})");
    EXPECT_FALSE(run([](auto& api) { return api.deleteFile("b", "d", "p"); }).deleted);
    EXPECT_EQ(sent(), "DELETE " + root + "brains/b/file" + jsonHeaders + R"({"deviceId":"d","path":"p"})");
}

TEST_F(SyncAPIClientTest, ABlobGoesUpFromTheMemoryWhereItLies) {
    const auto bytes = Data::copyOf("raw\r\n");
    answer(200, R"({"hash":"h","size":5})");
    EXPECT_EQ(run([&](auto& api) { return api.uploadBlob("b", "d", bytes); }), (BlobReceipt{"h", 5}));
    EXPECT_EQ(sent(), "POST " + root + "brains/b/blobs?deviceId=d" + plainHeaders +
                          "Content-Type: application/octet-stream\nraw\r\n");
    EXPECT_EQ(session_->requests().back().body->data(), bytes.data());
}

TEST_F(SyncAPIClientTest, ADownloadIsTextOrBytesByItsContentType) {
    const auto download = [](auto& api) { return api.downloadFile("b", "a/b c.md", "17"); };
    const std::string text = R"({"path":"p","at":"17","content":"words"})";
    answer(200, text, {{"content-type", "Application/JSON; charset=utf-8"}});
    EXPECT_EQ(run(download), DownloadedFile{DownloadedFile::Text{"words"}});
    EXPECT_EQ(sent(), "GET " + root + "brains/b/file?path=a%2Fb%20c.md&at=17\nAuthorization: Bearer token\n" +
                          "Accept: application/json, application/octet-stream\nno body");
    answer(206, text, {{"CONTENT-TYPE", "application/octet-stream"}});
    EXPECT_EQ(run(download), DownloadedFile{DownloadedFile::Blob{Data::copyOf(text)}});
    answer(200, text, {{"Content-Type", "Text/HTML"}});
    EXPECT_STREQ(failureOf<SyncClientError>(download).what(), "Unexpected response Content-Type: Text/HTML");
    answer(200, text, {});
    EXPECT_STREQ(failureOf<SyncClientError>(download).what(), "Unexpected response Content-Type: none");
}

TEST_F(SyncAPIClientTest, AnAnswerOutsideTwoHundredIsTheServersError) {
    const auto list = [](auto& api) { return api.listBrains(); };
    const std::tuple<int, std::string, SyncAPIError> cases[] = {
        {403,
         R"({"error":{"code":"FORBIDDEN_SUBTREE","message":"no","more":1}})",
         {403, "FORBIDDEN_SUBTREE", "no"}},
        {500, "it broke", {500, "unknown", "HTTP 500: it broke"}},
        {502, "", {502, "unknown", "HTTP 502"}},
        {401, R"({"error":{"code":"X"}})", {401, "unknown", R"(HTTP 401: {"error":{"code":"X"}})"}},
        {302, "a\xffz", {302, "unknown", "HTTP 302: a\uFFFDz"}},
        {199, R"({"brains":[]})", {199, "unknown", R"(HTTP 199: {"brains":[]})"}},
        {300, "", {300, "unknown", "HTTP 300"}},
    };
    for (const auto& [status, body, expected] : cases) {
        answer(status, body);
        EXPECT_EQ(failureOf<SyncAPIError>(list), expected);
    }
    const SyncAPIError subtree(403, "FORBIDDEN_SUBTREE", "m");
    EXPECT_TRUE(subtree.isForbiddenSubtree());
    EXPECT_FALSE(subtree.isForbidden() || subtree.isUnauthenticated());
    EXPECT_TRUE(SyncAPIError(401, "CONFLICT", "").isUnauthenticated());
    EXPECT_FALSE(SyncAPIError(409, "conflict", "").isConflict());
    EXPECT_EQ(SyncAPIError(404, "NOT_FOUND", "gone").errorDescription(),
              "Sync API error 404 NOT_FOUND: gone");
}

TEST_F(SyncAPIClientTest, NoErrorRepeatsTheToken) {
    const std::string token = "a token of sixteen bytes";
    SyncAPIClient api(*URL::parse("https://store.example"), std::make_shared<URLSessionTransport>(session_),
                      std::make_shared<StaticTokenProvider>(token));
    answer(400, "Authorization: Bearer " + token + " is odd");
    try {
        loop_.run([&] { return api.listBrains(); });
        FAIL();
    } catch (const SyncAPIError& error) {
        EXPECT_EQ(error.message, "HTTP 400: Authorization: Bearer [secret] is odd");
    }
}

TEST_F(SyncAPIClientTest, AnAnswerThatDoesNotReadIsADecodingError) {
    const auto list = [](auto& api) { return api.listBrains(); };
    for (const auto* body : {"", "[]", R"({"brains":{}})", "\xff"}) {
        answer(204, body);
        failureOf<platform::JSONError>(list);
    }
}

TEST_F(SyncAPIClientTest, NoRequestGoesOutWithoutATokenOrABodyThatEncodes) {
    struct NoToken : TokenProviding {
        Task<std::string> currentAccessToken() override { throw SyncAPIError(1, "no", "token"); }
    };
    SyncAPIClient tokenless(*URL::parse("https://store.example"),
                            std::make_shared<URLSessionTransport>(session_), std::make_shared<NoToken>());
    EXPECT_THROW(loop_.run([&] { return tokenless.listBrains(); }), SyncAPIError);
    EXPECT_THROW(run([](auto& api) { return api.putTextFile("b", "d", "p\xff", {}, ""); }),
                 platform::JSONError);
    EXPECT_EQ(session_->requests().size(), 0U);
}

TEST_F(SyncAPIClientTest, TransportFailuresPassUnchanged) {
    session_->answer(URLError(URLError::Code::timedOut, "late"));
    EXPECT_EQ(failureOf<URLError>([](auto& api) { return api.listBrains(); }),
              URLError(URLError::Code::timedOut, "late"));
    session_->answer(platform::URLResponse{});
    EXPECT_STREQ(failureOf<SyncClientError>([](auto& api) { return api.listBrains(); }).what(),
                 "The response was not an HTTP response.");
}

}  // namespace
}  // namespace vorlinden::tests
