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
    // How long nothing may happen: no byte in either direction, the attempt to connect included. A connection
    // that does no more than drip is ended after five times as long.
    std::chrono::milliseconds timeout = std::chrono::seconds(60);
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

// libcurl on one I/O thread of its own: connections are reused, HTTP/2 is taken where it is offered, TLS is
// checked against the system's trust, proxies come from the user's environment (this machine itself is never
// asked through one). A GET whose reused connection turns out to be dead is sent again, any other request is
// sent at most once: connectionLost then says that nobody knows whether the server has acted. Holds nothing
// on disk and no cookies. Redirects are not followed, so that a bearer token never travels to another place.
// Compressed bodies arrive unpacked; a body of more than 512 MiB is a badResponse. Dropping the session ends
// what is still in flight with URLError::cancelled.
std::shared_ptr<URLSession> ephemeralURLSession();

}  // namespace vorlinden::platform
