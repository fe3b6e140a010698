// The way to the server, with a memory of the last time that it wasn't open: a drain says that a row has to
// wait, but not why.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "synckit/server/http_transport.h"

namespace vorlinden::host {

// Passes everything through unchanged. Thread-safe.
class WatchedTransport : public HTTPTransport {
 public:
    explicit WatchedTransport(std::shared_ptr<HTTPTransport> below) : below_(std::move(below)) {}

    Task<HTTPAnswer> send(URLRequest request) override;

    // Why the last request that failed in a passing way did so, for a person; absent if none has since
    // forget().
    std::optional<std::string> trouble() const;
    void forget();

 private:
    void remember(std::exception_ptr failure);

    const std::shared_ptr<HTTPTransport> below_;
    mutable std::mutex mutex_;  // guards trouble_
    std::optional<std::string> trouble_;
};

}  // namespace vorlinden::host
