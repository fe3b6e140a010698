// What the server takes for text, for junk and for a path, and what it calls a file that comes without a
// title. Clients decide by rules of their own; a test holds the two to each other. Pure functions, any
// thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vorlinden::server {

// The longest text in UTF-16 code units, and the most bytes that such a text can have.
inline constexpr std::size_t maxTextLength = 1024 * 1024;
inline constexpr std::size_t maxTextBytes = 3 * maxTextLength;

// Text is UTF-8 without a byte-order mark and without NUL, up to maxTextLength. Everything else is a blob.
bool isText(std::string_view bytes);
// Names that desktops leave behind and nobody wants to share; looks at the last component of a path.
bool isJunk(std::string_view path);
// Components joined by "/", none empty, "." or "..", no backslash and no NUL, valid UTF-8, up to 4096 bytes.
bool isValidPath(std::string_view path);
// The last component without its last extension.
std::string titleOf(std::string_view path);

std::string_view lastComponent(std::string_view path);
// Empty for a path at the top.
std::string_view parentOf(std::string_view path);
// `path` is `folder` or lies below it; everything lies below the empty path.
bool isAtOrBelow(std::string_view path, std::string_view folder);

}  // namespace vorlinden::server
