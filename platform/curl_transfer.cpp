#include "platform/curl_transfer.h"

#include <algorithm>
#include <utility>

namespace vorlinden::platform {
namespace {

constexpr std::size_t maximumHeaderBytes = 256 << 10;
constexpr std::size_t maximumReserve = 64 << 20;  // a promised length is believed up to here

// A server that sends a byte now and then isn't idle and would hold its caller for ever. Nobody works over a
// line as slow as this for so long.
constexpr long drippingBytesPerSecond = 64;
constexpr auto drippingTimeouts = 5;

// Servers hang up on idle connections, few of them sooner than after five seconds. A request that is sent
// only once must not meet that moment.
constexpr long idleSecondsBeforeAWrite = 4;

URLError::Code codeFor(CURLcode code) {
    using Code = URLError::Code;
    switch (code) {
        case CURLE_OPERATION_TIMEDOUT:
            return Code::timedOut;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return Code::cannotFindHost;
        case CURLE_COULDNT_CONNECT:
        case CURLE_PROXY:
            return Code::cannotConnect;
        case CURLE_GOT_NOTHING:
        case CURLE_PARTIAL_FILE:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM:
        case CURLE_ABORTED_BY_CALLBACK:  // onSend()
            return Code::connectionLost;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_USE_SSL_FAILED:
            return Code::secureConnectionFailed;
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_UNSUPPORTED_PROTOCOL:  // also what answers in HTTP/0.9
        case CURLE_BAD_CONTENT_ENCODING:
        case CURLE_WRITE_ERROR:
            return Code::badResponse;
        default:
            return Code::other;
    }
}

// libcurl's way to send a header without a value is a semicolon.
std::string headerLine(const Header& header) {
    const auto& [name, value] = header;
    return value.empty() ? name + ";" : name + ": " + value;
}

}  // namespace

CurlTransfer::CurlTransfer(URLRequest request, std::size_t maximumBody)
    : request_(std::move(request)), maximumBody_(maximumBody), easy_(curl_easy_init()) {
    if (!easy_) throw URLError(URLError::Code::other, "out of memory");
    setUp();
    setUpRequest();
}

template <class Value>
void CurlTransfer::set(CURLoption option, Value value) {
    const auto code = curl_easy_setopt(handle(), option, value);
    if (code != CURLE_OK) throw URLError(URLError::Code::other, curl_easy_strerror(code));
}

void CurlTransfer::setUp() {
    set(CURLOPT_PRIVATE, this);
    set(CURLOPT_ERRORBUFFER, errorText_);
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_QUICK_EXIT, 1L);  // giving up doesn't wait for a name to be resolved
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    set(CURLOPT_ACCEPT_ENCODING, "");  // all that libcurl can unpack
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    set(CURLOPT_TCP_KEEPALIVE, 1L);
    set(CURLOPT_BUFFERSIZE, 64L << 10);
    // Idle time is watched by the I/O thread; this lets libcurl share the time out among a host's addresses.
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request_.timeout.count()));
    set(CURLOPT_LOW_SPEED_LIMIT, drippingBytesPerSecond);
    const auto dripping = std::chrono::ceil<std::chrono::seconds>(request_.timeout * drippingTimeouts);
    set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(dripping.count()));
    set(CURLOPT_HEADERFUNCTION, &onHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &onBody);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_NOPROGRESS, 0L);
    set(CURLOPT_XFERINFOFUNCTION, &onProgress);
    set(CURLOPT_XFERINFODATA, this);
}

void CurlTransfer::setUpRequest() {
    set(CURLOPT_URL, request_.url.absoluteString().c_str());
    set(CURLOPT_PATH_AS_IS, 1L);
    set(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_NONE));  // a name and password in a URL go nowhere
    if (request_.url.isLoopback()) set(CURLOPT_PROXY, "");
    if (request_.body) {
        const bool empty = request_.body->empty();
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body->size()));
        set(CURLOPT_POSTFIELDS, empty ? "" : reinterpret_cast<const char*>(request_.body->data()));
    }
    set(CURLOPT_CUSTOMREQUEST, request_.method.c_str());
    if (request_.method != "GET") {
        set(CURLOPT_PREREQFUNCTION, &onSend);
        set(CURLOPT_PREREQDATA, this);
        set(CURLOPT_MAXAGE_CONN, idleSecondsBeforeAWrite);
    }
    for (const auto& header : request_.headers)
        addHeader(headerLine(header));
    addHeader("Expect:");  // a body goes out without asking first
    set(CURLOPT_HTTPHEADER, headers_.get());
}

void CurlTransfer::addHeader(const std::string& line) {
    if (line.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos)
        throw URLError(URLError::Code::other, "a header of the request holds a line break");
    auto* const longer = curl_slist_append(headers_.get(), line.c_str());
    if (!longer) throw URLError(URLError::Code::other, "out of memory");
    static_cast<void>(headers_.release());
    headers_.reset(longer);
}

std::size_t CurlTransfer::onHeader(char*, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    transfer.headerBytes_ += size * count;
    transfer.lastByte_ = std::chrono::steady_clock::now();
    transfer.tooLarge_ = transfer.headerBytes_ > maximumHeaderBytes;
    return transfer.tooLarge_ ? 0 : size * count;
}

std::size_t CurlTransfer::onBody(char* bytes, std::size_t size, std::size_t count, void* self) {
    return static_cast<CurlTransfer*>(self)->take(bytes, size * count);
}

// An exception must not pass through libcurl.
std::size_t CurlTransfer::take(const char* bytes, std::size_t count) try {
    tooLarge_ = count > maximumBody_ - body_.size();
    if (tooLarge_) return 0;
    if (body_.empty()) {
        curl_off_t promised = 0;
        curl_easy_getinfo(handle(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &promised);
        if (promised > 0) body_.reserve(std::min(static_cast<std::size_t>(promised), maximumReserve));
    }
    body_.append(bytes, count);
    return count;
} catch (const std::exception&) {
    return 0;
}

// libcurl repeats a request whose connection dies before the answer, if that connection had served another
// one. The server may have acted: asked again to move or delete it would deny what it did, and a refresh
// token sent twice ends the session.
int CurlTransfer::onSend(void* self, char*, char*, int, int) {
    const bool again = std::exchange(static_cast<CurlTransfer*>(self)->sent_, true);
    return again ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
}

int CurlTransfer::onProgress(void* self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent) {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    if (std::exchange(transfer.bytesMoved_, received + sent) != received + sent)
        transfer.lastByte_ = std::chrono::steady_clock::now();
    return 0;
}

HTTPResponse CurlTransfer::response() const {
    long status = 0;
    curl_easy_getinfo(handle(), CURLINFO_RESPONSE_CODE, &status);
    HTTPResponse result{static_cast<int>(status), {}};
    curl_header* header = nullptr;
    while ((header = curl_easy_nextheader(handle(), CURLH_HEADER, -1, header)))
        result.headers.emplace_back(header->name, header->value);
    return result;
}

URLError CurlTransfer::failure(CURLcode code) const {
    if (tooLarge_) return URLError(URLError::Code::badResponse, "the answer is too large");
    if (code == CURLE_ABORTED_BY_CALLBACK) return URLError(codeFor(code), "the connection was lost");
    return URLError(codeFor(code), *errorText_ ? errorText_ : curl_easy_strerror(code));
}

void CurlTransfer::finish(CURLcode code) {
    if (code != CURLE_OK) return fail(failure(code));
    response_ = {Data(std::move(body_)), response()};
    ended_.set();
}

void CurlTransfer::fail(URLError failure) {
    failure_ = std::move(failure);
    ended_.set();
}

URLResponse CurlTransfer::takeResponse() {
    if (failure_) throw *failure_;
    return std::move(response_);
}

}  // namespace vorlinden::platform
