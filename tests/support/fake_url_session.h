// A URLSession without a network.
#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/http.h"

namespace vorlinden::tests {

// Answers from a script, one entry per request in order, or by a handler. Records every request. While held,
// requests wait; a waiting or new request of a cancelled task ends with CancelledError. A request for which
// nothing was prepared throws std::logic_error. Thread-safe.
class FakeURLSession final : public platform::URLSession {
 public:
    using Answer = std::variant<platform::URLResponse, platform::URLError>;

    // An HTTP answer made of its parts.
    static platform::URLResponse response(int status, std::string body,
                                          std::vector<platform::Header> headers = {});

    // A request in lines: "METHOD URL", each header, the body or "no body".
    static std::string text(const platform::URLRequest& request);

    void answer(Answer answer);
    // Used when the script is empty.
    void setHandler(std::function<Answer(const platform::URLRequest&)> handler);
    void hold();
    void release();

    std::vector<platform::URLRequest> requests() const;

    platform::Task<platform::URLResponse> send(platform::URLRequest request) override;

 private:
    Answer answerTo(const platform::URLRequest& request);

    mutable std::mutex mutex_;  // guards the fields below
    std::vector<platform::URLRequest> requests_;
    std::deque<Answer> script_;
    std::function<Answer(const platform::URLRequest&)> handler_;
    std::optional<platform::Signal> held_;
};

}  // namespace vorlinden::tests
