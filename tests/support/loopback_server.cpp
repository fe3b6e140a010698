#include "tests/support/loopback_server.h"

#include <algorithm>
#include <stdexcept>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vorlinden::tests {
namespace {

void check(bool succeeded) {
    if (!succeeded) throw std::runtime_error("the loopback server can't start");
}

sockaddr* generic(sockaddr_in& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

std::size_t contentLength(const std::string& head) {
    const std::string name = "\r\nContent-Length: ";
    const auto at = head.find(name);
    return at == std::string::npos ? 0 : std::stoul(head.substr(at + name.size()));
}

bool receiveMore(int connection, std::string& received) {
    char bytes[1 << 16];
    const auto count = ::recv(connection, bytes, sizeof bytes, 0);
    if (count > 0) received.append(bytes, static_cast<std::size_t>(count));
    return count > 0;
}

// False when the connection has ended.
bool sendAll(int connection, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto count = ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

void sendReply(int connection, const LoopbackServer::Reply& reply) {
    auto bytes = reply.bytes;
    while (sendAll(connection, bytes) && reply.more) {
        bytes = reply.more();
        if (bytes.empty()) break;
    }
    if (reply.close) ::shutdown(connection, SHUT_RDWR);
}

}  // namespace

LoopbackServer::LoopbackServer(Handler handler, std::string greeting)
    : handler_(std::move(handler)),
      greeting_(std::move(greeting)),
      listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    check(::bind(listener_, generic(address), size) == 0 && ::listen(listener_, 64) == 0);
    check(::getsockname(listener_, generic(address), &size) == 0);
    port_ = ntohs(address.sin_port);
    acceptor_ = std::jthread([this] { acceptAll(); });
}

LoopbackServer::~LoopbackServer() {
    ::shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    for (const int connection : connections_)
        ::shutdown(connection, SHUT_RDWR);
    threads_.clear();  // joins
    for (const int connection : connections_)
        ::close(connection);
    ::close(listener_);
}

platform::URL LoopbackServer::url(const std::string& pathAndQuery, const std::string& scheme) const {
    return *platform::URL::parse(scheme + "://127.0.0.1:" + std::to_string(port_) + pathAndQuery);
}

std::size_t LoopbackServer::connectionsAccepted() const {
    const std::lock_guard hold(mutex_);
    return connections_.size();
}

void LoopbackServer::waitForRequests(std::size_t count) const {
    std::unique_lock hold(mutex_);
    changed_.wait(hold, [&] { return requests_ >= count; });
}

void LoopbackServer::waitForClosed(std::size_t count) const {
    std::unique_lock hold(mutex_);
    changed_.wait(hold, [&] { return closed_ >= count; });
}

LoopbackServer::Reply LoopbackServer::response(const std::string& body, const std::string& status,
                                               const std::string& headers) {
    return {"HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + headers +
            "\r\n" + body};
}

void LoopbackServer::acceptAll() {
    for (;;) {
        const int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) return;
        const std::lock_guard hold(mutex_);
        connections_.push_back(connection);
        threads_.emplace_back([this, connection] { serve(connection); });
    }
}

void LoopbackServer::serve(int connection) {
    sendAll(connection, greeting_);
    std::string received;
    Request request;
    while (readRequest(connection, received, request))
        sendReply(connection, handler_(request));
    const std::lock_guard hold(mutex_);
    ++closed_;
    changed_.notify_all();
}

// `received` holds what came beyond the last request. False when the connection has ended.
bool LoopbackServer::readRequest(int connection, std::string& received, Request& request) {
    std::size_t end = 0;
    while ((end = received.find("\r\n\r\n")) == std::string::npos)
        if (!receiveMore(connection, received)) return false;
    request.head = received.substr(0, end + 2);
    const auto length = end + 4 + contentLength(request.head);
    while (received.size() < length)
        if (!receiveMore(connection, received)) return false;
    request.body = received.substr(end + 4, length - end - 4);
    received.erase(0, length);
    const std::lock_guard hold(mutex_);
    ++requests_;
    changed_.notify_all();
    return true;
}

}  // namespace vorlinden::tests
