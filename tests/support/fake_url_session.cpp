#include "tests/support/fake_url_session.h"

#include <stdexcept>

namespace vorlinden::tests {

using platform::URLRequest;
using platform::URLResponse;

URLResponse FakeURLSession::response(int status, std::string body, std::vector<platform::Header> headers) {
    return {platform::Data(std::move(body)), platform::HTTPResponse{status, std::move(headers)}};
}

std::string FakeURLSession::text(const URLRequest& request) {
    std::string text = request.method + " " + request.url.absoluteString();
    for (const auto& [name, value] : request.headers)
        text += "\n" + name + ": " + value;
    return text + "\n" + (request.body ? std::string(request.body->view()) : "no body");
}

void FakeURLSession::answer(Answer answer) {
    const std::lock_guard lock(mutex_);
    script_.push_back(std::move(answer));
}

void FakeURLSession::setHandler(std::function<Answer(const URLRequest&)> handler) {
    const std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
}

void FakeURLSession::hold() {
    const std::lock_guard lock(mutex_);
    if (!held_) held_.emplace();
}

void FakeURLSession::release() {
    const std::lock_guard lock(mutex_);
    if (held_) held_->set();
    held_.reset();
}

std::vector<URLRequest> FakeURLSession::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

platform::Task<URLResponse> FakeURLSession::send(URLRequest request) {
    co_await platform::checkCancellation();
    std::optional<platform::Signal> held;
    {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
        held = held_;
    }
    if (held) co_await held->wait();
    Answer answer = answerTo(request);
    co_await platform::checkCancellation();  // the server has acted, the answer is on its way
    if (const auto* failure = std::get_if<platform::URLError>(&answer)) throw *failure;
    co_return std::get<URLResponse>(std::move(answer));
}

FakeURLSession::Answer FakeURLSession::answerTo(const URLRequest& request) {
    std::function<Answer(const URLRequest&)> handler;
    {
        const std::lock_guard lock(mutex_);
        if (!script_.empty()) {
            Answer next = std::move(script_.front());
            script_.pop_front();
            return next;
        }
        handler = handler_;
    }
    if (!handler)
        throw std::logic_error("no answer for " + request.method + " " + request.url.absoluteString());
    return handler(request);
}

}  // namespace vorlinden::tests
