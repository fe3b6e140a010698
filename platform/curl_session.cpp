#include "platform/curl_session.h"

#include <csignal>
#include <mutex>
#include <stop_token>
#include <thread>
#include <unordered_map>
#include <vector>

#include "platform/curl_transfer.h"

namespace vorlinden::platform {
namespace {

using Clock = std::chrono::steady_clock;
using TransferRef = std::shared_ptr<CurlTransfer>;

constexpr long idleConnectionsKept = 32;
constexpr auto longestPoll = std::chrono::minutes(10);

// Signals are other threads' business; above all, a connection closed by the server must not raise SIGPIPE.
void blockSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

// All transfers of a session, run by one thread that nobody ever waits for.
class CurlLoop {
 public:
    CurlLoop();
    ~CurlLoop();
    CurlLoop(const CurlLoop&) = delete;
    CurlLoop& operator=(const CurlLoop&) = delete;

    // From any thread.
    void start(TransferRef transfer) { command({std::move(transfer), true}); }
    void cancel(TransferRef transfer) { command({std::move(transfer), false}); }

 private:
    struct Command {
        TransferRef transfer;
        bool start;
    };

    void command(Command command);
    std::vector<Command> takeCommands();
    void run(const std::stop_token& stop);
    void obey(const Command& command);
    void add(const TransferRef& transfer);
    void collectFinished();
    void endIdle();
    void poll();
    TransferRef forget(CURL* handle);
    void failAll(const URLError& failure);

    std::mutex mutex_;  // guards commands_; innermost
    std::vector<Command> commands_;

    const CurlMulti multi_;
    std::unordered_map<CURL*, TransferRef> active_;  // the I/O thread's own
    std::jthread thread_;                            // last, so that it ends before the rest goes
};

CurlMulti makeMulti() {
    // Once per process, before any other use of libcurl.
    static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
    CurlMulti multi(ready == CURLE_OK ? curl_multi_init() : nullptr);
    if (!multi) throw URLError(URLError::Code::other, "libcurl can't be used");
    curl_multi_setopt(multi.get(), CURLMOPT_MAXCONNECTS, idleConnectionsKept);
    return multi;
}

CurlLoop::CurlLoop() : multi_(makeMulti()), thread_([this](const std::stop_token& stop) { run(stop); }) {}

CurlLoop::~CurlLoop() {
    thread_.request_stop();
    curl_multi_wakeup(multi_.get());
    thread_.join();
}

void CurlLoop::command(Command command) {
    {
        std::lock_guard hold(mutex_);
        commands_.push_back(std::move(command));
    }
    curl_multi_wakeup(multi_.get());
}

std::vector<CurlLoop::Command> CurlLoop::takeCommands() {
    std::lock_guard hold(mutex_);
    return std::exchange(commands_, {});
}

void CurlLoop::run(const std::stop_token& stop) {
    blockSignals();
    while (!stop.stop_requested()) {
        for (const auto& command : takeCommands())
            obey(command);
        int running = 0;
        curl_multi_perform(multi_.get(), &running);
        collectFinished();
        endIdle();
        poll();
    }
    for (const auto& command : takeCommands())
        obey(command);
    failAll(URLError(URLError::Code::cancelled));
}

void CurlLoop::obey(const Command& command) {
    if (command.start)
        add(command.transfer);
    else
        forget(command.transfer->handle());
}

void CurlLoop::add(const TransferRef& transfer) {
    transfer->start(Clock::now());
    const auto code = curl_multi_add_handle(multi_.get(), transfer->handle());
    if (code != CURLM_OK) return transfer->fail(URLError(URLError::Code::other, curl_multi_strerror(code)));
    active_.emplace(transfer->handle(), transfer);
}

// Takes a transfer out of the loop; null if it had ended already. Its connection is closed if it was in use.
TransferRef CurlLoop::forget(CURL* handle) {
    const auto found = active_.extract(handle);
    if (found.empty()) return nullptr;
    curl_multi_remove_handle(multi_.get(), handle);
    return found.mapped();
}

void CurlLoop::collectFinished() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        const auto code = message->data.result;  // the message goes with the handle
        if (const auto transfer = forget(message->easy_handle)) transfer->finish(code);
    }
}

void CurlLoop::endIdle() {
    const auto now = Clock::now();
    std::vector<CURL*> idle;
    for (const auto& [handle, transfer] : active_)
        if (transfer->deadline() <= now) idle.push_back(handle);
    for (auto* const handle : idle)
        forget(handle)->fail(URLError(URLError::Code::timedOut));
}

void CurlLoop::poll() {
    auto until = Clock::now() + longestPoll;
    for (const auto& [handle, transfer] : active_)
        until = std::min(until, transfer->deadline());
    // Rounded up, so that the deadline has passed when poll() returns.
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
    const auto code =
        curl_multi_poll(multi_.get(), nullptr, 0, static_cast<int>(std::max<long>(wait.count(), 0)), nullptr);
    if (code != CURLM_OK) failAll(URLError(URLError::Code::other, curl_multi_strerror(code)));
}

void CurlLoop::failAll(const URLError& failure) {
    while (!active_.empty())
        forget(active_.begin()->first)->fail(failure);
}

// Whatever ends the wait for a transfer, cancellation or the end of the waiting task itself, ends the
// transfer.
struct CancelOnExit {
    CurlLoop& loop;
    const TransferRef& transfer;
    ~CancelOnExit() {
        if (!transfer->ended().isSet()) loop.cancel(transfer);
    }
};

class CurlSession : public URLSession {
 public:
    explicit CurlSession(std::size_t maximumBody) : maximumBody_(maximumBody) {}

    Task<URLResponse> send(URLRequest request) override {
        co_await checkCancellation();
        const auto transfer = std::make_shared<CurlTransfer>(std::move(request), maximumBody_);
        loop_.start(transfer);
        {
            const CancelOnExit guard{loop_, transfer};
            co_await transfer->ended().wait();
        }
        co_return transfer->takeResponse();
    }

 private:
    const std::size_t maximumBody_;
    CurlLoop loop_;
};

}  // namespace

std::shared_ptr<URLSession> curlSession(std::size_t maximumBody) {
    return std::make_shared<CurlSession>(maximumBody);
}

std::shared_ptr<URLSession> ephemeralURLSession() {
    return curlSession(std::size_t{512} << 20);
}

}  // namespace vorlinden::platform
