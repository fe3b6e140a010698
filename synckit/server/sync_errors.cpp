#include "synckit/server/sync_errors.h"

#include "platform/json.h"
#include "platform/text.h"

namespace vorlinden {
namespace {

std::string describe(const SyncClientError::Reason& reason) {
    struct Describe {
        std::string operator()(const SyncClientError::InvalidURL& r) const {
            return "Could not build a request URL: " + r.text;
        }
        std::string operator()(const SyncClientError::UnexpectedContentType& r) const {
            return "Unexpected response Content-Type: " + r.contentType.value_or("none");
        }
        std::string operator()(const SyncClientError::NonHTTPResponse&) const {
            return "The response was not an HTTP response.";
        }
    };
    return std::visit(Describe{}, reason);
}

}  // namespace

SyncAPIError::SyncAPIError(int errorStatus, std::string errorCode, std::string errorMessage)
    : Failure("Sync API error " + std::to_string(errorStatus) + " " + errorCode + ": " + errorMessage),
      status(errorStatus),
      code(std::move(errorCode)),
      message(std::move(errorMessage)) {}

SyncAPIError SyncAPIError::decode(int status, const Data& data) {
    try {
        const platform::JSONDocument document(data.view());
        const auto error = document.root().required("error");
        return {status, error.requiredString("code"), error.requiredString("message")};
    } catch (const platform::JSONError&) {
        const auto text = platform::repairedUTF8(data.view());
        return {status, "unknown", "HTTP " + std::to_string(status) + (text.empty() ? "" : ": " + text)};
    }
}

SyncClientError::SyncClientError(Reason why) : Failure(describe(why)), reason(std::move(why)) {}
SyncClientError SyncClientError::invalidURL(std::string text) {
    return SyncClientError(InvalidURL{std::move(text)});
}
SyncClientError SyncClientError::unexpectedContentType(std::optional<std::string> contentType) {
    return SyncClientError(UnexpectedContentType{std::move(contentType)});
}
SyncClientError SyncClientError::nonHTTPResponse() {
    return SyncClientError(NonHTTPResponse{});
}

}  // namespace vorlinden
