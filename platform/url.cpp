#include "platform/url.h"

#include <boost/asio/ip/address.hpp>
#include <boost/url/encode.hpp>
#include <boost/url/parse.hpp>
#include <boost/url/pct_string_view.hpp>
#include <boost/url/rfc/unreserved_chars.hpp>
#include <boost/url/url.hpp>

namespace vorlinden::platform {
namespace {

namespace urls = boost::urls;

// Where the host begins in a text with an authority, else npos.
std::size_t hostStart(std::string_view text) {
    const auto slashes = text.find_first_of("/?#");
    if (slashes == text.npos || !text.substr(slashes).starts_with("//")) return text.npos;
    const auto start = slashes + 2;
    const auto authority = text.substr(start, text.substr(start).find_first_of("/?#"));
    const auto at = authority.rfind('@');
    return start + (at == text.npos ? 0 : at + 1);
}

// A text as Boost.URL is to read it. It would take the host of "http://10.0.0.1.example/" for an address and
// the rest for a path; with its first digit escaped it is the same host, read as the name that it is.
struct Readable {
    std::string text;
    std::size_t escapedDigit = std::string::npos;

    explicit Readable(std::string_view original) : text(original) {
        const auto host = hostStart(original);
        if (host >= original.size() || original[host] < '0' || original[host] > '9') return;
        text.insert(host, "%3");
        escapedDigit = host;
    }
    // Undoes the escape in a text with the same beginning.
    std::string original(std::string changed) const {
        if (escapedDigit != std::string::npos) changed.erase(escapedDigit, 2);
        return changed;
    }
};

// The parts of a text that parse() has let through, valid as long as `readable`.
urls::url_view parts(const Readable& readable) {
    return urls::parse_uri_reference(readable.text).value();
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
    const Readable readable(text);
    const auto url = urls::parse_uri_reference(readable.text);
    if (text.empty() || !url) return std::nullopt;
    // Boost.URL lets through what follows a port or an address without a slash.
    const auto path = url->encoded_path();
    if (url->has_authority() && !path.empty() && path.front() != '/') return std::nullopt;
    return URL(std::string(text));
}

std::optional<std::string> URL::scheme() const {
    const Readable readable(text_);
    const auto url = parts(readable);
    return url.has_scheme() ? std::optional<std::string>(url.scheme()) : std::nullopt;
}

std::optional<std::string> URL::host() const {
    const Readable readable(text_);
    const auto url = parts(readable);
    return url.has_authority() ? std::optional<std::string>(url.host_address()) : std::nullopt;
}

std::string URL::encodedPath() const {
    const Readable readable(text_);
    return std::string(parts(readable).encoded_path());
}

std::optional<std::string> URL::encodedQuery() const {
    const Readable readable(text_);
    const auto url = parts(readable);
    return url.has_query() ? std::optional<std::string>(url.encoded_query()) : std::nullopt;
}

std::optional<URL> URL::with(std::string_view path, std::optional<std::string_view> query) const {
    const Readable readable(text_);
    urls::url url(parts(readable));
    try {
        url.set_encoded_path({path.data(), path.size()});
        url.remove_query();
        if (query) url.set_encoded_query({query->data(), query->size()});
    } catch (const boost::system::system_error&) {
        return std::nullopt;
    }
    // Boost.URL repairs what isn't properly encoded; here the text is taken as it is, or not at all.
    const bool unchanged = url.encoded_path() == path && url.has_query() == query.has_value() &&
                           (!query || url.encoded_query() == *query);
    return unchanged ? parse(readable.original({url.data(), url.size()})) : std::nullopt;
}

std::optional<std::string> URL::origin() const {
    const Readable readable(text_);
    const auto url = parts(readable);
    if (!url.has_scheme() || !url.has_authority() || url.host().empty()) return std::nullopt;
    const auto port = portOf(url);
    const auto place = std::string(url.scheme()) + "://" + url.host();
    return lowerASCII(place) + (port.empty() ? "" : ":" + port);
}

bool URL::isLoopback() const {
    const auto name = lowerASCII(host().value_or(""));
    boost::system::error_code notAnAddress;
    const auto address = boost::asio::ip::make_address(name, notAnAddress);
    return notAnAddress ? name == "localhost" : address.is_loopback();
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
