#include "synckit/server/sync_api_client.h"

#include <gtest/gtest.h>

#include "platform/json.h"
#include "tests/support/fake_url_session.h"
#include "tests/support/test_loop.h"

namespace vorlinden::tests {
namespace {

using platform::Header;

class SyncAPIClientTest : public testing::Test {
 protected:
    void answer(int status, const std::string& body,
                std::vector<Header> headers = {{"Content-Type", "application/json"}}) {
        session_->answer(FakeURLSession::response(status, body, std::move(headers)));
    }
    // Runs an operation of a client on the answers prepared before.
    template <class Operation>
    auto run(Operation operation, const std::string& token = "token") {
        SyncAPIClient api(*URL::parse("https://store.example/root//"),
                          std::make_shared<URLSessionTransport>(session_),
                          std::make_shared<StaticTokenProvider>(token));
        return loop_.run([&] { return operation(api); });
    }
    template <class Error, class Operation>
    Error failureOf(Operation operation, const std::string& token = "token") {
        try {
            run(operation, token);
        } catch (const Error& error) {
            return error;
        }
        throw std::logic_error("the operation succeeded");
    }
    std::string sent() const { return FakeURLSession::text(session_->requests().back()); }

    std::shared_ptr<FakeURLSession> session_ = std::make_shared<FakeURLSession>();
    TestLoop loop_;
};

const auto listBrains = [](auto& api) { return api.listBrains(); };

TEST_F(SyncAPIClientTest, EachOperationIsOneRequest) {
    const std::string device =
        R"({"id":"d","name":"n","platform":"p","createdAt":"2023-11-14T22:13:20.123Z"})";
    const std::string written = R"({"node":{"nodeId":"n","path":"p"},"cursor":"c"})";
    const std::string unchanged = R"({"reset":false,"entries":[]})";
    using Client = SyncAPIClient;
    const auto discarding = [](auto operation) {
        return [operation](Client& api) -> Task<> { co_await operation(api); };
    };
    const std::tuple<std::function<Task<>(Client&)>, std::string, std::string> cases[] = {
        {discarding([](auto& api) { return api.registerDevice("my \"box\"", "linux"); }),
         R"({"device":)" + device + "}", R"(POST devices json {"name":"my \"box\"","platform":"linux"})"},
        {discarding([](auto& api) { return api.listDevices(); }), R"({"devices":[)" + device + "]}",
         "GET devices"},
        {discarding(listBrains), R"({"brains":[{"id":"b","teamId":"t","name":"n","slug":"s"}]})",
         "GET brains"},
        {discarding([](auto& api) { return api.changes("b/1", std::nullopt, "d 1"); }), unchanged,
         "GET brains/b%2F1/changes?deviceId=d%201"},
        {discarding([](auto& api) { return api.changes("b", "c+1", "d"); }), unchanged,
         "GET brains/b/changes?cursor=c%2B1&deviceId=d"},
        {discarding([](auto& api) { return api.putTextFile("b", "d", "x/ü.md", "T", "one\ntwo"); }), written,
         R"(PUT brains/b/file json {"body":"one\ntwo","deviceId":"d","path":"x/ü.md","title":"T"})"},
        {discarding([](auto& api) { return api.putTextFile("b", "d", "p", std::nullopt, ""); }), written,
         R"(PUT brains/b/file json {"body":"","deviceId":"d","path":"p"})"},
        {discarding([](auto& api) { return api.putBlobFile("b", "d", "p", {}, "h", 5'000'000'000); }),
         written,
         R"(PUT brains/b/file json {"blobHash":"h","blobSize":5000000000,"deviceId":"d","path":"p"})"},
        {discarding([](auto& api) { return api.move("b", "d", "from", "to"); }), written,
         R"(POST brains/b/move json {"deviceId":"d","fromPath":"from","toPath":"to"})"},
        {discarding([](auto& api) { return api.deleteFile("b", "d", "p"); }), R"({"deleted":false})",
         R"(DELETE brains/b/file json {"deviceId":"d","path":"p"})"},
    };
    for (const auto& [operation, body, request] : cases) {
        answer(200, body);
        run(operation);
        const auto end = request.find(" json ");
        const auto line = request.substr(0, end),
                   sentBody = end == std::string::npos ? "" : request.substr(end + 6);
        EXPECT_EQ(sent(), line.substr(0, line.find(' ') + 1) + "https://store.example/root/api/sync/" +
                              line.substr(line.find(' ') + 1) +
                              "\nAuthorization: Bearer token\nAccept: application/json\n" +
                              (sentBody.empty() ? "no body" : "Content-Type: application/json\n" + sentBody));
        EXPECT_EQ(session_->requests().back().timeout, std::chrono::seconds(60));
    }
}

TEST_F(SyncAPIClientTest, ABlobGoesUpFromTheMemoryWhereItLies) {
    const auto bytes = Data::copyOf("raw\r\n");
    answer(200, R"({"hash":"h","size":5})");
    EXPECT_EQ(run([&](auto& api) { return api.uploadBlob("b", "d", bytes); }), (BlobReceipt{"h", 5}));
    EXPECT_EQ(sent(),
              "POST https://store.example/root/api/sync/brains/b/blobs?deviceId=d\n"
              "Authorization: Bearer token\nAccept: application/json\n"
              "Content-Type: application/octet-stream\nraw\r\n");
    EXPECT_EQ(session_->requests().back().body->data(), bytes.data());
}

TEST_F(SyncAPIClientTest, ADownloadIsTextOrBytesByItsContentType) {
    const auto download = [](auto& api) { return api.downloadFile("b", "a/b c.md", "17"); };
    const std::string text = R"({"path":"p","at":"17","content":"words"})";
    answer(200, text, {{"content-type", "Application/JSON; charset=utf-8"}});
    EXPECT_EQ(run(download), DownloadedFile{DownloadedFile::Text{"words"}});
    EXPECT_EQ(sent(),
              "GET https://store.example/root/api/sync/brains/b/file?path=a%2Fb%20c.md&at=17\n"
              "Authorization: Bearer token\n"
              "Accept: application/json, application/octet-stream\nno body");
    answer(206, text, {{"CONTENT-TYPE", "application/octet-stream"}});
    EXPECT_EQ(run(download), DownloadedFile{DownloadedFile::Blob{Data::copyOf(text)}});
    answer(200, text, {{"Content-Type", "Text/HTML"}});
    EXPECT_STREQ(failureOf<SyncClientError>(download).what(), "Unexpected response Content-Type: Text/HTML");
    answer(200, text, {});
    EXPECT_STREQ(failureOf<SyncClientError>(download).what(), "Unexpected response Content-Type: none");
}

TEST_F(SyncAPIClientTest, AnAnswerOutsideTwoHundredIsTheServersError) {
    const std::tuple<int, std::string, SyncAPIError> cases[] = {
        {403,
         R"({"error":{"code":"FORBIDDEN_SUBTREE","message":"no","more":1}})",
         {403, "FORBIDDEN_SUBTREE", "no"}},
        {500, "it broke", {500, "unknown", "HTTP 500: it broke"}},
        {401, R"({"error":{"code":"X"}})", {401, "unknown", R"(HTTP 401: {"error":{"code":"X"}})"}},
        {302, "a\xffz", {302, "unknown", "HTTP 302: a\uFFFDz"}},
        {199, R"({"brains":[]})", {199, "unknown", R"(HTTP 199: {"brains":[]})"}},
        {300, "", {300, "unknown", "HTTP 300"}},
        {400, "Bearer a token of sixteen bytes is odd", {400, "unknown", "HTTP 400: Bearer [secret] is odd"}},
    };
    for (const auto& [status, body, expected] : cases) {
        answer(status, body);
        EXPECT_EQ(failureOf<SyncAPIError>(listBrains, "a token of sixteen bytes"), expected);
    }
    EXPECT_EQ(SyncAPIError(404, "NOT_FOUND", "gone").errorDescription(),
              "Sync API error 404 NOT_FOUND: gone");
}

TEST_F(SyncAPIClientTest, WhatDoesNotReadOrArriveIsAFailureOfItsOwn) {
    for (const auto* body : {"", "[]", R"({"brains":{}})", "\xff"}) {
        answer(204, body);
        failureOf<platform::JSONError>(listBrains);
    }
    session_->answer(URLError(URLError::Code::timedOut, "late"));
    EXPECT_EQ(failureOf<URLError>(listBrains), URLError(URLError::Code::timedOut, "late"));
    session_->answer(platform::URLResponse{});
    EXPECT_STREQ(failureOf<SyncClientError>(listBrains).what(), "The response was not an HTTP response.");
    const auto requests = session_->requests().size();
    failureOf<platform::JSONError>([](auto& api) { return api.putTextFile("b", "d", "p\xff", {}, ""); });
    EXPECT_EQ(session_->requests().size(), requests) << "a body that doesn't encode";
}

}  // namespace
}  // namespace vorlinden::tests
