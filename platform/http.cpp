#include "platform/http.h"

#include <algorithm>

namespace vorlinden::platform {
namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

std::optional<std::string> HTTPResponse::header(std::string_view name) const {
    for (const auto& [key, value] : headers)
        if (std::ranges::equal(key, name, {}, lower, lower)) return value;
    return std::nullopt;
}

}  // namespace vorlinden::platform
