#include "linux/host/redirect.h"

#include <algorithm>
#include <map>
#include <optional>

#include "linux/host/failures.h"
#include "platform/text.h"
#include "platform/url.h"
#include "synckit/auth/oauth_client.h"

namespace vorlinden::host {
namespace {

using Reason = SignInError::Reason;
using Parameters = std::map<std::string, std::string>;

std::string decoded(std::string text) {
    std::replace(text.begin(), text.end(), '+', ' ');  // a form's blank; codes and states hold none
    const auto plain = platform::percentDecoded(text);
    if (!plain) throw SignInError(Reason::notARedirect, "it holds a broken escape");
    return *plain;
}

Parameters parametersOf(std::string_view query) {
    Parameters parameters;
    while (!query.empty()) {
        const auto item = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(query.size(), item.size() + 1));
        if (item.empty()) continue;
        const auto equals = std::min(item.find('='), item.size());
        const auto name = decoded(std::string(item.substr(0, equals)));
        const auto value = equals < item.size() ? item.substr(equals + 1) : std::string_view();
        if (!parameters.emplace(name, decoded(std::string(value))).second) {
            throw SignInError(Reason::notARedirect, "it holds \"" + name + "\" twice");
        }
    }
    return parameters;
}

std::optional<std::string> find(const Parameters& parameters, const std::string& name) {
    const auto found = parameters.find(name);
    if (found == parameters.end()) return std::nullopt;
    return found->second;
}

[[noreturn]] void refuse(const std::string& error, const Parameters& parameters) {
    if (error == "invalid_client" || error == "unauthorized_client")
        throw SignInError(Reason::unknownClient, error);
    throw SignInError(Reason::refused, find(parameters, "error_description").value_or(error));
}

}  // namespace

std::string authorizationCode(std::string_view redirectedURL, std::string_view expectedState) {
    const auto text = platform::trimmed(redirectedURL);
    const auto url = platform::URL::parse(text);
    const std::string address = OAuthClient::defaultRedirectURI;
    if (!url || text.substr(0, text.find_first_of("?#")) != address) {
        throw SignInError(Reason::notARedirect, "it has to begin with " + address);
    }
    const auto parameters = parametersOf(url->encodedQuery().value_or(""));
    if (find(parameters, "state") != std::string(expectedState)) throw SignInError(Reason::wrongState);
    if (const auto error = find(parameters, "error")) refuse(*error, parameters);
    const auto code = find(parameters, "code");
    if (!code || code->empty()) throw SignInError(Reason::notARedirect, "it holds no code");
    return *code;
}

}  // namespace vorlinden::host
