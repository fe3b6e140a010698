#include "synckit/server/concealed.h"

#include "platform/url.h"

namespace vorlinden {
namespace {

constexpr std::size_t shortestSecret = 16;
constexpr std::string_view replacement = "[secret]";

void replaceAll(std::string& text, std::string_view what) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + replacement.size()))
        text.replace(at, what.size(), replacement);
}

}  // namespace

std::string concealed(std::string text, std::string_view secret) {
    if (secret.size() < shortestSecret) return text;
    replaceAll(text, secret);
    replaceAll(text, platform::percentEncoded(secret));
    return text;
}

}  // namespace vorlinden
