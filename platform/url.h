// URLs by RFC 3986: a checked text with its parts.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorlinden::platform {

// A value that holds the absolute text as it was given, known to be a URI or relative reference of RFC 3986.
class URL {
 public:
    static std::optional<URL> parse(std::string_view text);

    const std::string& absoluteString() const { return text_; }
    std::optional<std::string> scheme() const;  // as written
    std::optional<std::string> host() const;    // decoded; absent without an authority
    std::string encodedPath() const;
    std::optional<std::string> encodedQuery() const;
    // The same URL with path and query replaced by already encoded text (absent: no query); absent if none
    // results.
    std::optional<URL> with(std::string_view encodedPath, std::optional<std::string_view> encodedQuery) const;
    // "scheme://host:port" in lower case with the default port made explicit; absent without a host.
    std::optional<std::string> origin() const;
    bool isLoopback() const;  // the host is this machine: "localhost" or a loopback address

    bool operator==(const URL&) const = default;

 private:
    explicit URL(std::string text) : text_(std::move(text)) {}
    std::string text_;
};

// All but the unreserved set of RFC 3986 becomes %XX, upper-case digits, on the UTF-8 bytes.
std::string percentEncoded(std::string_view text);
// The inverse for a query value or path component; "+" stays a plus sign. Absent for a broken escape.
std::optional<std::string> percentDecoded(std::string_view text);

}  // namespace vorlinden::platform
