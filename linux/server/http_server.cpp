#include "linux/server/http_server.h"

#include <condition_variable>
#include <set>
#include <thread>
#include <vector>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "linux/server/http_connection.h"

namespace vorlinden::server {

namespace {

namespace asio = boost::asio;
using Tcp = asio::ip::tcp;
using namespace std::chrono_literals;

constexpr std::size_t mostConnections = 1024;
constexpr auto patience = 1s;  // with requests at work when the server stops

// The address can't be listened on.
struct ListenFailure : platform::Failure {
    ListenFailure(const std::string& address, std::uint16_t port, const std::string& reason)
        : Failure("Can't listen on " + address + ":" + std::to_string(port) + ": " + reason + ".") {}
};

Tcp::acceptor listening(asio::io_context& context, const HttpServer::Settings& settings) {
    boost::system::error_code problem;
    const auto address = asio::ip::make_address(settings.address, problem);
    if (!problem && !address.is_loopback()) problem = asio::error::access_denied;
    if (problem)
        throw ListenFailure(settings.address, settings.port, "not an address of the loopback network");
    try {
        return Tcp::acceptor(asio::make_strand(context), Tcp::endpoint(address, settings.port));
    } catch (const boost::system::system_error& error) {
        throw ListenFailure(settings.address, settings.port, error.code().message());
    }
}

}  // namespace

class HttpServer::Core {
 public:
    Core(const Settings& settings, Storage& storage, FaultPlan& faults)
        : settings_(settings), storage_(storage), faults_(faults), acceptor_(listening(context_, settings)) {}

    std::uint16_t port() const { return acceptor_.local_endpoint().port(); }

    void start(Application& application) {
        shared_ = std::make_unique<ConnectionContext>(
            ConnectionContext{application, storage_, faults_, settings_.delay});
        spawn(acceptor_.get_executor(), accept(), nullptr);
        for (unsigned count = 0; count < settings_.threads; ++count) {
            threads_.emplace_back([this] { context_.run(); });
        }
    }

    void stop() {
        asio::post(acceptor_.get_executor(), [this] { acceptor_.close(); });
        std::unique_lock guard(mutex_);
        for (const auto& connection : connections_)
            connection->close();
        allGone_.wait_for(guard, patience, [this] { return connections_.empty(); });
        guard.unlock();
        context_.stop();
        threads_.clear();  // joins
        connections_.clear();
    }

 private:
    asio::awaitable<void> accept() {
        while (true) {
            auto [problem, socket] = co_await acceptor_.async_accept(asio::make_strand(context_),
                                                                     asio::as_tuple(asio::use_awaitable));
            if (problem == asio::error::operation_aborted || !acceptor_.is_open()) co_return;
            if (problem) {
                co_await breathe();
                continue;
            }
            serve(std::move(socket));
        }
    }

    // Out of descriptors: the next attempt would fail at once as well.
    asio::awaitable<void> breathe() {
        asio::steady_timer timer(acceptor_.get_executor(), 50ms);
        co_await timer.async_wait(asio::use_awaitable);
    }

    void serve(Tcp::socket socket) {
        const auto executor = socket.get_executor();
        std::shared_ptr<HttpConnection> connection;
        try {
            connection = std::make_shared<HttpConnection>(*shared_, std::move(socket));
        } catch (const boost::system::system_error&) {
            return;  // gone already
        }
        {
            const std::lock_guard guard(mutex_);
            if (connections_.size() >= mostConnections) return;
            connections_.insert(connection);
        }
        spawn(executor, HttpConnection::run(connection), connection);
    }

    // What a connection throws is its client's trouble and ends with it.
    template <class Executor>
    void spawn(const Executor& executor, asio::awaitable<void> work,
               std::shared_ptr<HttpConnection> connection) {
        asio::co_spawn(executor, std::move(work),
                       [this, connection](std::exception_ptr) { forget(connection); });
    }

    void forget(const std::shared_ptr<HttpConnection>& connection) {
        const std::lock_guard guard(mutex_);
        connections_.erase(connection);
        if (connections_.empty()) allGone_.notify_all();
    }

    const Settings settings_;
    Storage& storage_;
    FaultPlan& faults_;
    std::unique_ptr<ConnectionContext> shared_;  // set by start(), before the threads

    std::mutex mutex_;
    std::condition_variable allGone_;
    std::set<std::shared_ptr<HttpConnection>> connections_;  // guarded by mutex_

    asio::io_context context_;  // goes before what its coroutines use
    Tcp::acceptor acceptor_;
    std::vector<std::jthread> threads_;
};

HttpServer::HttpServer(const Settings& settings, Storage& storage, FaultPlan& faults)
    : core_(std::make_unique<Core>(settings, storage, faults)) {}
HttpServer::~HttpServer() {
    stop();
}

void HttpServer::start(Application& application) {
    core_->start(application);
}
std::uint16_t HttpServer::port() const {
    return core_->port();
}
void HttpServer::stop() {
    core_->stop();
}

}  // namespace vorlinden::server
