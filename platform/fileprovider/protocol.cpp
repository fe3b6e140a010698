#include "platform/fileprovider/protocol.h"

#include <utility>

namespace vorlinden::platform::fileprovider {

namespace {

std::string describe(const std::string& domain, std::int64_t code, const std::optional<std::string>& text) {
    return text ? *text : domain + " error " + std::to_string(code);
}

}  // namespace

Error::Error(std::string domain_, std::int64_t code_, std::optional<std::string> text_)
    : Failure(describe(domain_, code_, text_)),
      domain(std::move(domain_)),
      code(code_),
      text(std::move(text_)) {}

}  // namespace vorlinden::platform::fileprovider
