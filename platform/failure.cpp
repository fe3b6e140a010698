#include "platform/failure.h"

#include <cerrno>
#include <system_error>

namespace vorlinden::platform {

namespace {

std::string fileText(int code, const std::string& path) {
    const std::string reason = std::generic_category().message(code);
    return path.empty() ? reason : path + ": " + reason;
}

const char* words(URLError::Code code) {
    switch (code) {
        case URLError::Code::cancelled:
            return "The request was cancelled.";
        case URLError::Code::timedOut:
            return "The server did not answer in time.";
        case URLError::Code::cannotFindHost:
            return "The server's name could not be found.";
        case URLError::Code::cannotConnect:
            return "The server could not be reached.";
        case URLError::Code::connectionLost:
            return "The connection to the server was lost.";
        case URLError::Code::secureConnectionFailed:
            return "No secure connection to the server could be made.";
        case URLError::Code::badResponse:
            return "The server's answer could not be understood.";
        case URLError::Code::other:
            return "The request could not be made.";
    }
    return "";
}

std::string urlText(URLError::Code code, const std::string& detail) {
    return detail.empty() ? words(code) : std::string(words(code)) + " (" + detail + ")";
}

}  // namespace

FileError::FileError(int errorCode, std::string where)
    : Failure(fileText(errorCode, where)), code(errorCode), path(std::move(where)) {}

FileError FileError::noSuchFile(std::string path) {
    return {ENOENT, std::move(path)};
}

URLError::URLError(Code errorCode, std::string why)
    : Failure(urlText(errorCode, why)), code(errorCode), detail(std::move(why)) {}

}  // namespace vorlinden::platform
