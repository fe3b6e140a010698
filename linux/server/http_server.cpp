#include "linux/server/http_server.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>
#include <thread>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
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
        return Tcp::acceptor(context, Tcp::endpoint(address, settings.port));
    } catch (const boost::system::system_error& error) {
        throw ListenFailure(settings.address, settings.port, error.code().message());
    }
}

}  // namespace

// A thread with the connections that it alone runs, so that nothing is handed from thread to thread.
class HttpServer::Worker {
 public:
    Worker() : thread_([this] { context_.run(); }) {}
    ~Worker() { stop(); }

    asio::io_context& context() { return context_; }
    // Ends what is under way and waits for the thread. Nothing runs here afterwards.
    void stop() {
        context_.stop();
        if (thread_.joinable()) thread_.join();
    }

    std::size_t connections = 0;  // guarded by the server's mutex

 private:
    asio::io_context context_{1};  // one thread runs it
    asio::executor_work_guard<asio::io_context::executor_type> busy_{context_.get_executor()};
    std::thread thread_;
};

class HttpServer::Core {
 public:
    Core(const Settings& settings, Storage& storage, FaultPlan& faults)
        : settings_(settings),
          storage_(storage),
          faults_(faults),
          workers_(settings.threads),
          acceptor_(listening(door_.context(), settings)) {}

    std::uint16_t port() const { return acceptor_.local_endpoint().port(); }

    void start(Application& application) {
        shared_ = std::make_unique<ConnectionContext>(
            ConnectionContext{application, storage_, faults_, settings_.delay});
        asio::co_spawn(door_.context(), accept(), [](std::exception_ptr) {});
    }

    void stop() {
        door_.stop();
        std::unique_lock guard(mutex_);
        for (const auto& [connection, worker] : connections_)
            connection->close();
        allGone_.wait_for(guard, patience, [this] { return connections_.empty(); });
        guard.unlock();
        for (auto& worker : workers_)
            worker.stop();
        connections_.clear();
    }

 private:
    asio::awaitable<void> accept() {
        while (true) {
            auto& worker = leastBusy();
            auto [problem, socket] =
                co_await acceptor_.async_accept(worker.context(), asio::as_tuple(asio::use_awaitable));
            if (problem) {
                co_await breathe();
            } else {
                serve(std::move(socket), worker);
            }
        }
    }

    // Out of descriptors, perhaps: the next attempt would fail at once as well.
    asio::awaitable<void> breathe() {
        asio::steady_timer timer(door_.context(), 50ms);
        co_await timer.async_wait(asio::use_awaitable);
    }

    Worker& leastBusy() {
        const std::lock_guard guard(mutex_);
        return *std::ranges::min_element(workers_, {}, &Worker::connections);
    }

    void serve(Tcp::socket socket, Worker& worker) {
        std::shared_ptr<HttpConnection> connection;
        try {
            connection = std::make_shared<HttpConnection>(*shared_, std::move(socket));
        } catch (const boost::system::system_error&) {
            return;  // gone already
        }
        {
            const std::lock_guard guard(mutex_);
            if (connections_.size() >= mostConnections) return;
            connections_.emplace(connection, &worker);
            ++worker.connections;
        }
        // What a connection throws is its client's trouble and ends with it.
        asio::co_spawn(worker.context(), HttpConnection::run(connection),
                       [this, connection](std::exception_ptr) { forget(connection); });
    }

    void forget(const std::shared_ptr<HttpConnection>& connection) {
        const std::lock_guard guard(mutex_);
        const auto place = connections_.find(connection);
        --place->second->connections;
        connections_.erase(place);
        if (connections_.empty()) allGone_.notify_all();
    }

    const Settings settings_;
    Storage& storage_;
    FaultPlan& faults_;
    std::unique_ptr<ConnectionContext> shared_;  // set by start(), before any connection

    std::mutex mutex_;
    std::condition_variable allGone_;

    std::deque<Worker> workers_;
    std::map<std::shared_ptr<HttpConnection>, Worker*>
        connections_;  // guarded by mutex_; goes before the workers
    Worker door_;
    Tcp::acceptor acceptor_;
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
