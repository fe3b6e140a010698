// One HTTP request on its way through libcurl. Internal to the URL session.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include <curl/curl.h>

#include "platform/http.h"
#include "platform/task.h"

namespace vorlinden::platform {

struct CurlEasyCleanup {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct CurlMultiCleanup {
    void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
};
struct CurlListFree {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using CurlEasy = std::unique_ptr<CURL, CurlEasyCleanup>;
using CurlMulti = std::unique_ptr<CURLM, CurlMultiCleanup>;
using CurlList = std::unique_ptr<curl_slist, CurlListFree>;

// Shared by the task that waits for it and the I/O thread that runs it. Made by the task, then touched by the
// I/O thread alone until ended() is set; the outcome is read afterwards.
class CurlTransfer {
 public:
    using Time = std::chrono::steady_clock::time_point;

    // Throws URLError for a request that can't be sent.
    CurlTransfer(URLRequest request, std::size_t maximumBody);
    CurlTransfer(const CurlTransfer&) = delete;
    CurlTransfer& operator=(const CurlTransfer&) = delete;

    CURL* handle() const { return easy_.get(); }
    void start(Time now) { lastByte_ = now; }
    // When it will have been idle for too long, if nothing happens until then.
    Time deadline() const { return lastByte_ + request_.timeout; }
    void finish(CURLcode code);
    void fail(URLError failure);

    const Signal& ended() const { return ended_; }
    URLResponse takeResponse();  // throws URLError

 private:
    template <class Value>
    void set(CURLoption option, Value value);
    void setUp();
    void setUpRequest();
    void addHeader(const std::string& line);
    URLError failure(CURLcode code) const;
    HTTPResponse response() const;

    static std::size_t onHeader(char* bytes, std::size_t size, std::size_t count, void* self);
    static std::size_t onBody(char* bytes, std::size_t size, std::size_t count, void* self);
    static int onSend(void* self, char* remote, char* local, int remotePort, int localPort);
    static int onProgress(void* self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent);
    std::size_t take(const char* bytes, std::size_t count);

    const URLRequest request_;  // its body is sent from where it lies
    const std::size_t maximumBody_;
    char errorText_[CURL_ERROR_SIZE] = {};
    CurlList headers_;
    CurlEasy easy_;  // after what it points at, so that it goes first

    Time lastByte_;
    curl_off_t bytesMoved_ = 0;
    std::size_t headerBytes_ = 0;
    bool tooLarge_ = false;
    bool sent_ = false;
    std::string body_;

    Signal ended_;
    std::optional<URLError> failure_;
    URLResponse response_;
};

}  // namespace vorlinden::platform
