#include "platform/url.h"

#include <boost/url/encode.hpp>
#include <boost/url/parse.hpp>
#include <boost/url/pct_string_view.hpp>
#include <boost/url/rfc/unreserved_chars.hpp>
#include <boost/url/url.hpp>

namespace vorlinden::platform {
namespace {

namespace urls = boost::urls;

// The parts of a text that parse() has let through.
urls::url_view parts(const std::string& text) {
    return urls::parse_uri_reference(text).value();
}

std::string lowerASCII(std::string text) {
    for (auto& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

std::string portOf(const urls::url_view& url) {
    if (!url.port().empty()) return std::string(url.port());
    if (url.scheme_id() == urls::scheme::https) return "443";
    if (url.scheme_id() == urls::scheme::http) return "80";
    return {};
}

}  // namespace

std::optional<URL> URL::parse(std::string_view text) {
    if (text.empty() || !urls::parse_uri_reference({text.data(), text.size()})) return std::nullopt;
    return URL(std::string(text));
}

std::optional<std::string> URL::scheme() const {
    const auto url = parts(text_);
    return url.has_scheme() ? std::optional<std::string>(url.scheme()) : std::nullopt;
}

std::optional<std::string> URL::host() const {
    const auto url = parts(text_);
    return url.has_authority() ? std::optional<std::string>(url.host_address()) : std::nullopt;
}

std::string URL::encodedPath() const {
    return std::string(parts(text_).encoded_path());
}

std::optional<std::string> URL::encodedQuery() const {
    const auto url = parts(text_);
    return url.has_query() ? std::optional<std::string>(url.encoded_query()) : std::nullopt;
}

std::optional<URL> URL::with(std::string_view path, std::optional<std::string_view> query) const {
    // Boost.URL would repair what isn't properly encoded; here the text is put in as it is, or not at all.
    urls::url url(parts(text_));
    try {
        url.set_encoded_path({path.data(), path.size()});
        url.remove_query();
        if (query) url.set_encoded_query({query->data(), query->size()});
    } catch (const boost::system::system_error&) {
        return std::nullopt;
    }
    const bool unchanged = url.encoded_path() == path && url.has_query() == query.has_value() &&
                           (!query || url.encoded_query() == *query);
    return unchanged ? parse({url.data(), url.size()}) : std::nullopt;
}

std::optional<std::string> URL::origin() const {
    const auto url = parts(text_);
    if (!url.has_scheme() || !url.has_authority() || url.host().empty()) return std::nullopt;
    const auto port = portOf(url);
    const auto place = std::string(url.scheme()) + "://" + url.host();
    return lowerASCII(place) + (port.empty() ? "" : ":" + port);
}

std::string percentEncoded(std::string_view text) {
    return urls::encode({text.data(), text.size()}, urls::unreserved_chars);
}

std::optional<std::string> percentDecoded(std::string_view text) {
    const auto encoded = urls::make_pct_string_view({text.data(), text.size()});
    if (!encoded) return std::nullopt;
    std::string decoded;
    encoded->decode({}, urls::string_token::assign_to(decoded));
    return decoded;
}

}  // namespace vorlinden::platform
