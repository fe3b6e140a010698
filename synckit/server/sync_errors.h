// The failures of talking to the sync server.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "synckit/types.h"

namespace vorlinden {

// An answer outside 200 to 299. Told apart by `code`, and by `status` for 401 alone.
struct SyncAPIError : Failure {
    SyncAPIError(int status, std::string code, std::string message);
    // From the error envelope, or from whatever else the body holds. Never fails.
    static SyncAPIError decode(int status, const Data& data);

    int status;
    std::string code;     // the server's word, or "unknown"
    std::string message;  // the server's text, or one built from the status and the body

    bool isForbiddenSubtree() const { return code == "FORBIDDEN_SUBTREE"; }
    bool isConflict() const { return code == "CONFLICT"; }
    bool isNotFound() const { return code == "NOT_FOUND"; }
    bool isForbidden() const { return code == "FORBIDDEN"; }
    bool isUnauthenticated() const { return status == 401; }
    std::string errorDescription() const { return what(); }
    bool operator==(const SyncAPIError&) const = default;
};

// A failure on this side of the wire.
struct SyncClientError : Failure {
    struct InvalidURL {
        std::string text;
        bool operator==(const InvalidURL&) const = default;
    };
    struct UnexpectedContentType {
        std::optional<std::string> contentType;
        bool operator==(const UnexpectedContentType&) const = default;
    };
    struct NonHTTPResponse {
        bool operator==(const NonHTTPResponse&) const = default;
    };
    using Reason = std::variant<InvalidURL, UnexpectedContentType, NonHTTPResponse>;

    explicit SyncClientError(Reason reason);
    static SyncClientError invalidURL(std::string text);
    static SyncClientError unexpectedContentType(std::optional<std::string> contentType);
    static SyncClientError nonHTTPResponse();

    Reason reason;
    std::string errorDescription() const { return what(); }
    bool operator==(const SyncClientError&) const = default;
};

}  // namespace vorlinden
