#include "linux/server/http_message.h"

#include <algorithm>

#include "linux/server/refusal.h"
#include "platform/url.h"

namespace vorlinden::server {

namespace {

Parameters::List pairsOf(std::string_view text) {
    Parameters::List pairs;
    while (!text.empty()) {
        const auto end = text.find('&');
        const auto item = text.substr(0, end);
        const auto equals = item.find('=');
        auto name = platform::percentDecoded(item.substr(0, equals));
        auto value =
            platform::percentDecoded(equals == std::string_view::npos ? "" : item.substr(equals + 1));
        if (name && value && !item.empty()) pairs.emplace_back(std::move(*name), std::move(*value));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return pairs;
}

}  // namespace

Parameters Parameters::ofQuery(std::string_view text) {
    Parameters parameters;
    parameters.pairs_ = pairsOf(text);
    return parameters;
}

Parameters Parameters::ofForm(std::string_view text) {
    std::string blanks(text);
    std::ranges::replace(blanks, '+', ' ');
    return ofQuery(blanks);
}

std::optional<std::string> Parameters::find(std::string_view name) const {
    const auto found = std::ranges::find(pairs_, name, &std::pair<std::string, std::string>::first);
    if (found == pairs_.end()) return std::nullopt;
    return found->second;
}

std::string Parameters::text(std::string_view name) const {
    return find(name).value_or("");
}

std::string Parameters::required(std::string_view name) const {
    auto value = find(name);
    if (!value) throw Refusal::badRequest("The request needs \"" + std::string(name) + "\".");
    return *std::move(value);
}

bool RequestHead::isAt(std::initializer_list<std::string_view> components) const {
    return std::ranges::equal(path, components);
}

std::string RequestHead::bearerToken() const {
    constexpr std::string_view scheme = "Bearer ";
    return authorization.starts_with(scheme) ? authorization.substr(scheme.size()) : std::string();
}

Response Response::json(std::string text, int status) {
    return {status, "application/json", platform::Data(std::move(text)), {}};
}

Response Response::octets(platform::Data bytes) {
    return {200, "application/octet-stream", std::move(bytes), {}};
}

Response Response::html(std::string text, int status) {
    return {status, "text/html; charset=utf-8", platform::Data(std::move(text)), {}};
}

}  // namespace vorlinden::server
