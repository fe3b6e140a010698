#include <atomic>
#include <cstdlib>
#include <future>
#include <latch>

#include <gtest/gtest.h>

#include "platform/curl_session.h"
#include "platform/failure.h"
#include "platform/http.h"
#include "tests/support/loopback_server.h"

namespace vorlinden::tests {
namespace {

using namespace std::chrono_literals;
using platform::Data;
using platform::Task;
using platform::URL;
using platform::URLError;
using platform::URLRequest;
using platform::URLResponse;
using Reply = LoopbackServer::Reply;

class URLSessionTest : public testing::Test {
 protected:
    std::future<URLResponse> start(URLRequest request) {
        auto ended = std::make_shared<std::promise<URLResponse>>();
        auto response = std::make_shared<std::optional<URLResponse>>();
        handle_ = platform::spawn(
            pool_.executor(),
            [session = session_, request, response]() -> Task<> {
                *response = co_await session->send(request);
            },
            [ended, response](std::exception_ptr failure) {
                if (failure)
                    ended->set_exception(failure);
                else
                    ended->set_value(std::move(**response));
            });
        return ended->get_future();
    }
    URLResponse send(URLRequest request) { return start(std::move(request)).get(); }
    URLError::Code failureOf(URLRequest request) {
        try {
            send(std::move(request));
        } catch (const URLError& error) {
            return error.code;
        }
        throw std::logic_error("the request succeeded");
    }

    platform::TaskPool pool_{2};
    std::shared_ptr<platform::URLSession> session_ = platform::ephemeralURLSession();
    platform::TaskHandle handle_;  // of the request started last
};

TEST_F(URLSessionTest, SendsTheRequestAsItIsAndGivesTheWholeAnswer) {
    LoopbackServer::Request seen;
    LoopbackServer server([&](const auto& request) {
        seen = request;
        return LoopbackServer::response("hello", "201 Created",
                                        "X-One: 1\r\nContent-TYPE:  text/plain; a=b \r\n");
    });
    const auto response =
        send({.url = server.url("/a/../b%2Fc?x=%20&y"),
              .method = "PUT",
              .headers = {{"Authorization", "Bearer t"}, {"Accept", "a, b"}, {"Content-Type", "c"}},
              .body = Data::copyOf("body")});
    const auto host = server.url().absoluteString().substr(7);
    EXPECT_EQ(seen.head.substr(0, seen.head.find("Accept-Encoding")),
              "PUT /a/../b%2Fc?x=%20&y HTTP/1.1\r\nHost: " + host.substr(0, host.size() - 1) + "\r\n");
    EXPECT_NE(seen.head.find(
                  "\r\nAuthorization: Bearer t\r\nAccept: a, b\r\nContent-Type: c\r\nContent-Length: 4\r\n"),
              std::string::npos);
    for (const auto* unwanted : {"Expect", "User-Agent", "Cookie", "form-urlencoded"})
        EXPECT_EQ(seen.head.find(unwanted), std::string::npos) << unwanted;
    EXPECT_EQ(seen.body, "body");
    EXPECT_EQ(response.body.view(), "hello");
    EXPECT_EQ(response.http->status, 201);
    EXPECT_EQ(response.http->header("content-type"), "text/plain; a=b");
    EXPECT_EQ(response.http->header("x-two"), std::nullopt);
}

TEST_F(URLSessionTest, KeepsConnectionsButNoCookiesPasswordsOrRedirects) {
    LoopbackServer elsewhere([](const auto&) { return LoopbackServer::response("x"); });
    LoopbackServer server([&](const auto& request) {
        for (const auto* unwanted : {"Authorization", "Cookie"})
            EXPECT_EQ(request.head.find(unwanted), std::string::npos) << request.head;
        return LoopbackServer::response(
            "", "302 Found", "Set-Cookie: a=b\r\nLocation: " + elsewhere.url().absoluteString() + "\r\n");
    });
    auto url = server.url().absoluteString();
    url.insert(url.find("//") + 2, "me:pw@");  // goes nowhere
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(
            send({.url = *URL::parse(url), .method = i == 1 ? "POST" : "GET", .body = Data()}).http->status,
            302);
    EXPECT_EQ(server.connectionsAccepted(), 1U);
    EXPECT_EQ(elsewhere.connectionsAccepted(), 0U);
}

TEST_F(URLSessionTest, RepeatsNoWriteWhoseConnectionDies) {
    for (const std::string method : {"GET", "PUT", "POST", "DELETE"}) {
        std::atomic<int> requests = 0;
        LoopbackServer server([&](const auto&) {
            return ++requests == 1 ? LoopbackServer::response("x") : Reply{"", true};
        });
        send({.url = server.url()});
        EXPECT_EQ(failureOf({.url = server.url(), .method = method, .body = Data::copyOf("b")}),
                  URLError::Code::connectionLost);
        EXPECT_EQ(requests, method == "GET" ? 3 : 2) << method;
    }
}

TEST_F(URLSessionTest, HasManyRequestsInFlightOnFewThreads) {
    constexpr int count = 12;
    std::latch allHere(count);  // no answer before the last request has come
    LoopbackServer server([&](const auto&) {
        allHere.arrive_and_wait();
        return LoopbackServer::response("x");
    });
    std::vector<std::future<URLResponse>> answers;
    for (int i = 0; i < count; ++i)
        answers.push_back(start({.url = server.url()}));
    for (auto& answer : answers)
        EXPECT_EQ(answer.get().body.view(), "x");
}

TEST_F(URLSessionTest, CancellingEndsTheRequestAtOnce) {
    LoopbackServer server([](const auto&) { return Reply{}; });
    auto waiting = start({.url = server.url()});
    server.waitForRequests(1);
    handle_.cancel();
    EXPECT_THROW(waiting.get(), platform::CancelledError);
    server.waitForClosed(1);  // the server sees it go
}

TEST_F(URLSessionTest, DroppingTheSessionEndsItsRequests) {
    LoopbackServer server([](const auto&) { return Reply{}; });
    std::promise<std::exception_ptr> ended;
    const auto body = [session = session_.get(), request = URLRequest{.url = server.url()}]() -> Task<> {
        co_await session->send(request);
    };
    platform::spawn(pool_.executor(), body, [&](std::exception_ptr failure) { ended.set_value(failure); });
    server.waitForRequests(1);
    session_.reset();
    EXPECT_THROW(std::rethrow_exception(ended.get_future().get()), URLError);
}

TEST_F(URLSessionTest, ASlowServerIsWaitedForButNotOneThatIsSilentOrDrips) {
    for (const auto* start : {"", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf"}) {
        LoopbackServer silent([&](const auto&) { return Reply{start}; });
        EXPECT_EQ(failureOf({.url = silent.url(), .timeout = 50ms}), URLError::Code::timedOut);
    }
    LoopbackServer slow([](const auto&) {
        auto left = std::make_shared<int>(12);
        return Reply{"HTTP/1.1 200 OK\r\n\r\n", true, [left]() -> std::string {
                         std::this_thread::sleep_for(50ms);  // the server's pace
                         return (*left)-- > 0 ? std::string(1000, 'x') : "";
                     }};
    });
    EXPECT_EQ(send({.url = slow.url(), .timeout = 500ms}).body.size(), 12'000U);
    LoopbackServer dripping([](const auto&) {
        return Reply{"HTTP/1.1 200 OK\r\n\r\n", true, [] {
                         std::this_thread::sleep_for(50ms);
                         return std::string("x");
                     }};
    });
    EXPECT_EQ(failureOf({.url = dripping.url(), .timeout = 200ms}), URLError::Code::timedOut);
}

TEST_F(URLSessionTest, SendsALargeBody) {
    std::atomic<bool> whole = false;
    const auto bytes = Data(std::string(48 << 20, 'b') + "e");
    LoopbackServer server([&](const auto& request) {
        whole = request.body == bytes.view();
        return LoopbackServer::response("{}");
    });
    send({.url = server.url(), .method = "POST", .body = bytes});
    EXPECT_TRUE(whole);
}

TEST_F(URLSessionTest, ReadsEveryKindOfBody) {
    const std::string gzipped(
        "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xcb\x48\xcd\xc9\xc9\x57\xc8\x40\x90\x00\x80\x88\xf9\xe5\x11"
        "\x00\x00\x00",
        28);
    const std::pair<Reply, std::string> cases[] = {
        {LoopbackServer::response(gzipped, "200 OK", "Content-Encoding: gzip\r\n"), "hello hello hello"},
        {{"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n2;x=y\r\nde\r\n0\r\n\r\n"},
         "abcde"},
        {{"HTTP/1.1 200 OK\r\n\r\nuntil the end", true}, "until the end"},
    };
    for (const auto& [reply, expected] : cases) {
        LoopbackServer server([&](const auto&) { return reply; });
        EXPECT_EQ(send({.url = server.url()}).body.view(), expected);
    }
}

TEST_F(URLSessionTest, TellsApartWhyThereIsNoAnswer) {
    session_ = platform::curlSession(1000);
    std::string manyHeaders;
    while (manyHeaders.size() < 2 << 20)
        manyHeaders += "X: " + std::string(1000, 'x') + "\r\n";
    const std::pair<Reply, URLError::Code> cases[] = {
        {{"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf", true}, URLError::Code::connectionLost},
        {{"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nab", true},
         URLError::Code::connectionLost},
        {{"", true}, URLError::Code::connectionLost},
        {{"SSH-2.0-OpenSSH\r\n", true}, URLError::Code::badResponse},
        {LoopbackServer::response("no gzip", "200 OK", "Content-Encoding: gzip\r\n"),
         URLError::Code::badResponse},
        {LoopbackServer::response(std::string(1001, 'x')), URLError::Code::badResponse},
        {LoopbackServer::response("", "200 OK", manyHeaders), URLError::Code::badResponse},
    };
    for (const auto& [reply, expected] : cases) {
        LoopbackServer server([&](const auto&) { return reply; });
        EXPECT_EQ(failureOf({.url = server.url()}), expected) << reply.bytes.substr(0, 60);
    }
    LoopbackServer plain([](const auto&) { return Reply{}; }, "220 mail.example ESMTP\r\n");
    EXPECT_EQ(failureOf({.url = plain.url("/", "https")}), URLError::Code::secureConnectionFailed);
    EXPECT_EQ(failureOf({.url = *URL::parse("ftp://127.0.0.1/")}), URLError::Code::badResponse);
    std::optional<URL> gone;
    {
        gone = LoopbackServer([](const auto&) { return Reply{}; }).url();
    }
    EXPECT_EQ(failureOf({.url = *gone}), URLError::Code::cannotConnect);
    EXPECT_EQ(failureOf({.url = *gone, .headers = {{"Authorization", "Bearer a\r\nX: y"}}}),
              URLError::Code::other);
}

TEST_F(URLSessionTest, TakesTheUsersProxyButNotForThisMachine) {
    std::string asked;
    LoopbackServer proxy([&](const auto& request) {
        asked = request.requestLine();
        return LoopbackServer::response("x");
    });
    LoopbackServer server([](const auto&) { return LoopbackServer::response("y"); });
    ::setenv("http_proxy", proxy.url().absoluteString().c_str(), 1);
    EXPECT_EQ(send({.url = *URL::parse("http://store.example/a")}).body.view(), "x");
    EXPECT_EQ(asked, "GET http://store.example/a HTTP/1.1");
    EXPECT_EQ(send({.url = server.url()}).body.view(), "y");
    ::unsetenv("http_proxy");
}

}  // namespace
}  // namespace vorlinden::tests
