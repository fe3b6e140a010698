// HTTP requests as the library sees them.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/data.h"
#include "platform/task.h"
#include "platform/url.h"

namespace vorlinden::platform {

using Header = std::pair<std::string, std::string>;

struct URLRequest {
    URL url;
    std::string method = "GET";
    std::vector<Header> headers = {};
    std::optional<Data> body = {};
    // How long the connection may stay without a byte in either direction.
    std::chrono::seconds timeout{60};
};

// Status and headers of an HTTP answer (RFC 9110).
struct HTTPResponse {
    int status = 0;
    std::vector<Header> headers;
    // The first header of that name, compared case-insensitively.
    std::optional<std::string> header(std::string_view name) const;
    bool operator==(const HTTPResponse&) const = default;
};

struct URLResponse {
    Data body;
    std::optional<HTTPResponse> http;  // absent if what answered did not speak HTTP
};

// Sends requests. Thread-safe, shared; many requests may be in flight and no thread is held for any of them.
// send() throws URLError when there is no answer, and CancelledError at once when the calling task is
// cancelled.
class URLSession {
 public:
    virtual ~URLSession() = default;
    virtual Task<URLResponse> send(URLRequest request) = 0;
};

// libcurl on one I/O thread of its own: connections are reused, TLS is checked against the system's trust,
// proxies come from the user's environment. Holds nothing on disk. Redirects are not followed, so that a
// bearer token never travels to another place. Response bodies are bounded (512 MiB).
std::shared_ptr<URLSession> ephemeralURLSession();

}  // namespace vorlinden::platform
