#include "linux/host/watched_transport.h"

#include <exception>
#include <utility>

#include "linux/host/explain.h"
#include "linux/host/pauses.h"
#include "synckit/server/sync_errors.h"

namespace vorlinden::host {

Task<HTTPAnswer> WatchedTransport::send(URLRequest request) {
    std::exception_ptr failure;
    try {
        auto answer = co_await below_->send(std::move(request));
        const auto status = answer.response.status;
        if (isPassing(status)) remember(std::make_exception_ptr(SyncAPIError(status, "unknown", "")));
        co_return answer;
    } catch (const URLError&) {
        failure = std::current_exception();
    }
    remember(failure);
    std::rethrow_exception(failure);
}

std::optional<std::string> WatchedTransport::trouble() const {
    const std::lock_guard hold(mutex_);
    return trouble_;
}

void WatchedTransport::forget() {
    const std::lock_guard hold(mutex_);
    trouble_.reset();
}

void WatchedTransport::remember(std::exception_ptr failure) {
    auto sentence = explain(failure).sentence;
    const std::lock_guard hold(mutex_);
    trouble_ = std::move(sentence);
}

}  // namespace vorlinden::host
