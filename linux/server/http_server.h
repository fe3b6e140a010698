// HTTP/1.1 on a loopback port.
//
// Connections are kept. Each belongs to one thread of a bounded pool, the one with the fewest, which runs it
// and makes its answers, so that a request is never handed from thread to thread. An answer may block: it
// holds up only what shares its thread, and that is nobody while there are no more connections than threads.
#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>

#include "linux/server/faults.h"
#include "linux/server/http_message.h"
#include "linux/server/storage.h"

namespace vorlinden::server {

// What is served. Called on the pool's threads, several at a time, and may block. What the first two
// throw is handed to failure().
class Application {
 public:
    virtual ~Application() = default;
    // By the head alone, so that nobody sends 100 MB to hear a no.
    virtual BodyPlan admit(const RequestHead& head) = 0;
    virtual Response answer(const Request& request) = 0;
    // The answer to a request of which one of the two threw `problem`. Doesn't throw.
    virtual Response failure(const RequestHead& head, std::exception_ptr problem) = 0;
    // Whether trial faults and delays are for this request.
    virtual bool isOnTrial(const RequestHead& head) const = 0;
};

class HttpServer {
 public:
    struct Settings {
        std::string address;
        std::uint16_t port = 0;
        unsigned threads = 16;
        std::chrono::milliseconds delay{0};
    };

    // Listens at once and serves from start() on. Throws Failure if the address can't be had.
    HttpServer(const Settings& settings, Storage& storage, FaultPlan& faults);
    ~HttpServer();  // stops

    // `application` outlives the server's last request.
    void start(Application& application);
    std::uint16_t port() const;
    // Ends idle connections at once, requests at work after a second at most; returns when all threads have
    // ended.
    void stop();

 private:
    class Worker;
    class Core;
    std::unique_ptr<Core> core_;
};

}  // namespace vorlinden::server
