// Servers, and proxies on the way to them, like to repeat a request in the text of an error. What a person is
// shown of it, or what is kept, must not hold a token.
#pragma once

#include <string>
#include <string_view>

namespace vorlinden {

// `text` with each occurrence of `secret`, plain, percent-encoded or with its slashes escaped, replaced by
// "[secret]". A secret of fewer than 16 bytes is none worth the name, and is left alone: it would tear
// ordinary words apart.
std::string concealed(std::string text, std::string_view secret);

}  // namespace vorlinden
