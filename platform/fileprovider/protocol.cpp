#include "platform/fileprovider/protocol.h"

#include <utility>

namespace vorlinden::platform::fileprovider {

namespace {

std::string describe(const std::string& domain, std::int64_t code, const std::optional<std::string>& text) {
    return text ? *text : domain + " error " + std::to_string(code);
}

}  // namespace

Error::Error(std::string errorDomainName, std::int64_t errorCode, std::optional<std::string> errorText)
    : Failure(describe(errorDomainName, errorCode, errorText)),
      domain(std::move(errorDomainName)),
      code(errorCode),
      text(std::move(errorText)) {}

}  // namespace vorlinden::platform::fileprovider
