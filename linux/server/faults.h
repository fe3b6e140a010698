// Failures on order, so that clients can be tried against a server that misbehaves.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "linux/server/http_message.h"

namespace vorlinden::server {

// What happens to the requests that a fault matches.
struct Fault {
    enum class Kind {
        answer,      // `response` instead of acting
        dropBefore,  // the connection ends, nothing is done
        dropAfter,   // the request is done, and the connection ends in place of the answer
        delay,       // the answer waits for `delay`, then all goes on as usual
    };
    Kind kind = Kind::answer;
    Response response;
    std::chrono::milliseconds delay{0};

    std::string method;          // empty: any
    std::string targetContains;  // a part of the request's target; empty: any
    std::int64_t skip = 0;       // matching requests that pass first
    std::int64_t times = 1;      // how many it then hits
};

// Thread-safe. Faults are asked in the order in which they were added, and the first that hits is used up by
// one.
class FaultPlan {
 public:
    void add(Fault fault);
    void clear();
    std::optional<Fault> take(const RequestHead& head);
    // Requests that were seen, hit or not, since the server began.
    std::int64_t requestsSeen() const;

 private:
    mutable std::mutex mutex_;
    std::vector<Fault> faults_;  // guarded by mutex_, as is all below
    std::int64_t seen_ = 0;
};

}  // namespace vorlinden::server
