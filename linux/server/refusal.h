// What the server says no to.
#pragma once

#include <string>
#include <utility>

#include "platform/failure.h"

namespace vorlinden::server {

// A request that is refused: thrown by the rules, turned into the error envelope at the HTTP edge. `what()`
// is the message for the person at the other end.
struct Refusal : platform::Failure {
    Refusal(int httpStatus, std::string codeWord, std::string message)
        : Failure(std::move(message)), status(httpStatus), code(std::move(codeWord)) {}

    int status;
    std::string code;
    bool operator==(const Refusal&) const = default;

    static Refusal badRequest(std::string message) { return {400, "BAD_REQUEST", std::move(message)}; }
    static Refusal invalidPath(const std::string& path) {
        return {400, "INVALID_PATH", "\"" + path + "\" is not a valid path."};
    }
    static Refusal unauthenticated() {
        return {401, "UNAUTHENTICATED", "The access token is missing, unknown or expired."};
    }
    static Refusal forbidden() { return {403, "FORBIDDEN", "You have no access to this brain."}; }
    static Refusal readOnly(const std::string& path) {
        return {403, "FORBIDDEN_SUBTREE", "\"" + path + "\" is read-only for you."};
    }
    static Refusal unknownDevice() {
        return {403, "UNKNOWN_DEVICE", "This device is not registered. Register it first."};
    }
    static Refusal notFound(const std::string& path) {
        return {404, "NOT_FOUND", "There is nothing at \"" + path + "\"."};
    }
    static Refusal conflict(std::string message) { return {409, "CONFLICT", std::move(message)}; }
    static Refusal expiredCursor() {
        return {410, "CURSOR_EXPIRED", "The server no longer knows this cursor. Fetch the changes again."};
    }
    static Refusal tooLarge(std::int64_t limit) {
        return {413, "TOO_LARGE",
                "The file is larger than the limit of " + std::to_string(limit) + " bytes."};
    }
};

}  // namespace vorlinden::server
