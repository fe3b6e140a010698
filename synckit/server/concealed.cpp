#include "synckit/server/concealed.h"

#include <utility>

#include "platform/url.h"

namespace vorlinden {
namespace {

constexpr std::size_t shortestSecret = 16;
constexpr std::string_view replacement = "[secret]";

// In one pass: a hostile answer may hold the secret a million times.
std::string replaced(std::string text, std::string_view what) {
    std::string result;
    std::size_t done = 0;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, done)) {
        result.append(text, done, at - done).append(replacement);
        done = at + what.size();
    }
    return done == 0 ? std::move(text) : result.append(text, done);
}

// As some writers of JSON do.
std::string withSlashesEscaped(std::string_view text) {
    std::string result;
    for (const char each : text) {
        if (each == '/') result.push_back('\\');
        result.push_back(each);
    }
    return result;
}

std::string withLowerCaseEscapes(std::string encoded) {
    for (auto at = encoded.find('%'); at != std::string::npos; at = encoded.find('%', at + 3)) {
        for (auto digit = at + 1; digit < at + 3; ++digit)
            if (encoded[digit] >= 'A') encoded[digit] = static_cast<char>(encoded[digit] - 'A' + 'a');
    }
    return encoded;
}

}  // namespace

std::string concealed(std::string text, std::string_view secret) {
    if (secret.size() < shortestSecret) return text;
    const auto encoded = platform::percentEncoded(secret);
    for (const auto& form :
         {std::string(secret), withSlashesEscaped(secret), encoded, withLowerCaseEscapes(encoded)})
        text = replaced(std::move(text), form);
    return text;
}

}  // namespace vorlinden
