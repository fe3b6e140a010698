// A transport without a network: answers by script, records what was asked.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/task.h"
#include "synckit/server/http_transport.h"

namespace vorlinden::test {

// Thread-safe. Each request takes the next scripted answer, or asks the handler once the script is at its
// end; with neither, it fails with URLError::badResponse, which no test expects.
class FakeTransport : public HTTPTransport {
 public:
    struct Answer {
        int status = 200;
        std::string body;
        std::vector<Header> headers = {{"Content-Type", "application/json"}};
    };
    using Handler = std::function<Answer(const URLRequest&)>;  // may throw

    FakeTransport& answer(int status, std::string body,
                          std::vector<Header> headers = {{"Content-Type", "application/json"}}) {
        return then(
            [a = Answer{status, std::move(body), std::move(headers)}](const URLRequest&) { return a; });
    }
    FakeTransport& fail(URLError::Code code) {
        return then([code](const URLRequest&) -> Answer { throw URLError(code); });
    }
    FakeTransport& then(Handler handler) {
        std::lock_guard hold(mutex_);
        script_.push_back(std::move(handler));
        return *this;
    }
    // For every request beyond the script.
    void always(Handler handler) {
        std::lock_guard hold(mutex_);
        handler_ = std::move(handler);
    }

    // Requests that arrive from now on wait for release(), which lets go those that wait and all that follow.
    void holdRequests() {
        std::lock_guard hold(mutex_);
        gate_.emplace();
    }
    void release() {
        std::lock_guard hold(mutex_);
        if (gate_) gate_->set();
        gate_.reset();
    }
    // Blocks until so many requests have arrived in all.
    void waitForRequests(std::size_t count) {
        std::unique_lock hold(mutex_);
        arrived_.wait(hold, [&] { return requests_.size() >= count; });
    }
    std::vector<URLRequest> requests() const {
        std::lock_guard hold(mutex_);
        return requests_;
    }

    Task<HTTPAnswer> send(URLRequest request) override {
        Handler handler;
        const auto gate = arrive(request, handler);
        if (gate) co_await gate->wait();
        if (!handler) throw URLError(URLError::Code::badResponse, "no answer in the script");
        auto answer = handler(request);
        co_return HTTPAnswer{Data(std::move(answer.body)), HTTPResponse{answer.status, answer.headers}};
    }

 private:
    std::optional<platform::Signal> arrive(const URLRequest& request, Handler& handler) {
        std::lock_guard hold(mutex_);
        requests_.push_back(request);
        arrived_.notify_all();
        handler = handler_;
        if (!script_.empty()) {
            handler = std::move(script_.front());
            script_.pop_front();
        }
        return gate_;
    }

    mutable std::mutex mutex_;  // guards everything below
    std::condition_variable arrived_;
    std::deque<Handler> script_;
    Handler handler_;
    std::optional<platform::Signal> gate_;
    std::vector<URLRequest> requests_;
};

// The value of a request's header, or absent.
inline std::optional<std::string> header(const URLRequest& request, std::string_view name) {
    for (const auto& [key, value] : request.headers)
        if (key == name) return value;
    return std::nullopt;
}

}  // namespace vorlinden::test
