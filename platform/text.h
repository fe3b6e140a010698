// What this system needs of Unicode. Ordinary comparison of text is by UTF-8 bytes (std::string's own); these
// are the exceptions, done by ICU. Pure functions, any thread. Invalid UTF-8 is read with U+FFFD in its
// place.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vorlinden::platform {

bool isValidUTF8(std::string_view bytes);
// Invalid sequences replaced by U+FFFD.
std::string repairedUTF8(std::string_view bytes);
// UTF-16 code units of valid UTF-8 text.
std::size_t utf16Length(std::string_view text);
// Normalisation form C.
std::string composed(std::string_view text);
// Full lower-casing and case folding without a locale.
std::string lowerCased(std::string_view text);
std::string caseFolded(std::string_view text);
// White space and line breaks removed at both ends (Unicode White_Space).
std::string trimmed(std::string_view text);

}  // namespace vorlinden::platform
