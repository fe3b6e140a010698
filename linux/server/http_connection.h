// One connection of the HTTP server: reads requests one after the other and answers each.
//
// Private to the HTTP server. Runs on the one thread of its socket's executor; close() may be called from
// any. Kept alive by its own coroutine.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string_view>

#include <boost/asio/awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>

#include "linux/server/http_server.h"

namespace vorlinden::server {

// What all connections of a server share. Outlives them.
struct ConnectionContext {
    Application& application;
    Storage& storage;
    FaultPlan& faults;
    std::chrono::milliseconds delay;
};

class HttpConnection : public std::enable_shared_from_this<HttpConnection> {
 public:
    HttpConnection(const ConnectionContext& context, boost::asio::ip::tcp::socket socket);

    // Ends when either side closes; what it throws is the network's or the client's fault.
    static boost::asio::awaitable<void> run(std::shared_ptr<HttpConnection> self);
    // At once if it is idle, otherwise after the answer in the making.
    void close();

 private:
    struct Exchange;

    boost::asio::awaitable<bool> serveOne();  // false: that was the last one
    boost::asio::awaitable<bool> readHead(Exchange& exchange);
    void admit(Exchange& exchange);
    // False if part of the body stays unread; then there is a refusal.
    boost::asio::awaitable<bool> takeBody(Exchange& exchange);
    boost::asio::awaitable<void> receive(Exchange& exchange);
    boost::asio::awaitable<Response> answer(const Exchange& exchange);
    boost::asio::awaitable<void> send(const Response& response, bool keepAlive);
    boost::asio::awaitable<void> wait(std::chrono::milliseconds duration);
    boost::asio::awaitable<void> discardRest();
    boost::asio::awaitable<void> dropMidway();

    const ConnectionContext context_;
    boost::beast::tcp_stream stream_;
    boost::beast::flat_buffer buffer_;
    bool busy_ = false;
    bool closing_ = false;
};

}  // namespace vorlinden::server
