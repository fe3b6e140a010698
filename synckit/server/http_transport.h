// What stands between the clients of the server and the platform: the sender of requests and the giver of
// tokens.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "platform/http.h"
#include "synckit/types.h"

namespace vorlinden {

namespace platform {
struct System;
}

using platform::Header;
using platform::HTTPResponse;
using platform::URLRequest;

struct HTTPAnswer {
    Data data;
    HTTPResponse response;
};

// Sends one request. Thread-safe. Throws URLError, or CancelledError when the calling task is cancelled.
class HTTPTransport {
 public:
    virtual ~HTTPTransport() = default;
    virtual Task<HTTPAnswer> send(URLRequest request) = 0;
};

// Gives the access token for the next request, or throws. Thread-safe.
class TokenProviding {
 public:
    virtual ~TokenProviding() = default;
    virtual Task<std::string> currentAccessToken() = 0;
};

// Throws SyncClientError::nonHTTPResponse besides.
class URLSessionTransport : public HTTPTransport {
 public:
    explicit URLSessionTransport(std::shared_ptr<platform::URLSession> session);
    static std::shared_ptr<URLSessionTransport> ephemeral(const platform::System& system);
    Task<HTTPAnswer> send(URLRequest request) override;

 private:
    std::shared_ptr<platform::URLSession> session_;
};

class StaticTokenProvider : public TokenProviding {
 public:
    explicit StaticTokenProvider(std::string token) : token_(std::move(token)) {}
    Task<std::string> currentAccessToken() override;

 private:
    std::string token_;
};

}  // namespace vorlinden
