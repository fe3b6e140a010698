// A server of few words on 127.0.0.1: it reads HTTP/1.1 requests and sends whatever bytes it is told to.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/url.h"

namespace vorlinden::tests {

// One thread per connection. Thread-safe. The destructor ends all connections and waits for the handlers.
class LoopbackServer {
 public:
    struct Request {
        std::string head;  // request line and headers, each with its CRLF
        std::string body;  // by its Content-Length
        std::string requestLine() const { return head.substr(0, head.find('\r')); }
    };
    struct Reply {
        std::string bytes;   // sent as they are; none at all is silence
        bool close = false;  // the connection is closed behind them
        // Asked for further bytes, before it is closed, until it gives none or the connection has ended.
        std::function<std::string()> more = {};
    };
    // Called on the connection's thread, several at a time.
    using Handler = std::function<Reply(const Request&)>;

    // `greeting` is sent to whoever connects, before anything is read.
    explicit LoopbackServer(Handler handler, std::string greeting = {});
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    platform::URL url(const std::string& pathAndQuery = "/", const std::string& scheme = "http") const;
    std::size_t connectionsAccepted() const;
    // Block until so many have been read, or so many connections closed by the other side.
    void waitForRequests(std::size_t count) const;
    void waitForClosed(std::size_t count) const;

    // A whole response with its length.
    static Reply response(const std::string& body, const std::string& status = "200 OK",
                          const std::string& headers = {});

 private:
    void acceptAll();
    void serve(int connection);
    bool readRequest(int connection, std::string& received, Request& request);

    const Handler handler_;
    const std::string greeting_;
    int listener_;
    std::uint16_t port_;
    mutable std::mutex mutex_;  // guards the fields below
    mutable std::condition_variable changed_;
    std::vector<int> connections_;
    std::list<std::jthread> threads_;
    std::size_t requests_ = 0;
    std::size_t closed_ = 0;
    std::jthread acceptor_;
};

}  // namespace vorlinden::tests
