#include "synckit/server/http_transport.h"

#include "platform/system.h"
#include "synckit/server/sync_errors.h"

namespace vorlinden {

URLSessionTransport::URLSessionTransport(std::shared_ptr<platform::URLSession> session)
    : session_(std::move(session)) {}

std::shared_ptr<URLSessionTransport> URLSessionTransport::ephemeral(const platform::System& system) {
    return std::make_shared<URLSessionTransport>(system.urlSession());
}

Task<HTTPAnswer> URLSessionTransport::send(URLRequest request) {
    auto answer = co_await session_->send(std::move(request));
    if (!answer.http) throw SyncClientError::nonHTTPResponse();
    co_return HTTPAnswer{std::move(answer.body), std::move(*answer.http)};
}

Task<std::string> StaticTokenProvider::currentAccessToken() {
    co_return token_;
}

}  // namespace vorlinden
