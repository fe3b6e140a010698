#include "linux/host/base_url.h"

#include <charconv>
#include <cstdint>
#include <utility>

#include "platform/failure.h"
#include "platform/text.h"
#include "platform/url.h"
#include "synckit/auth/keychain_token_store.h"
#include "synckit/container/app_group.h"

namespace vorlinden::host {
namespace {

// The digits behind the last ":" of "scheme://host:port", absent without a port.
bool hasPossiblePort(const platform::URL& url) {
    const auto origin = url.origin();
    if (!origin) return false;
    const auto digits = std::string_view(*origin).substr(origin->rfind(':') + 1);
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
    return error == std::errc{} && end == digits.data() + digits.size() && port != 0;
}

bool holdsUserInfo(const platform::URL& url) {
    const std::string_view text = url.absoluteString();
    const auto authority = text.substr(text.find("//") + 2);
    return authority.substr(0, authority.find('/')).find('@') != std::string_view::npos;
}

bool isSignedIn(const platform::System& system) {
    try {
        return KeychainTokenStore(system.secrets, KeychainTokenStore::defaultService,
                                  AppGroup::keychainAccessGroup)
            .load()
            .has_value();
    } catch (const platform::Failure&) {
        return false;  // what can't be read can't be sent to anybody either
    }
}

}  // namespace

SignedInElsewhere::SignedInElsewhere(const std::string& server)
    : Failure("You are signed in to " + server +
              ", and that sign-in must not be shown to another server. Sign out first with `vorlinden "
              "logout`.") {}

BaseURLSetting baseURLSetting(const platform::System& system) {
    const auto defaults = AppGroup::defaults(system);
    BaseURLSetting setting;
    if (defaults) setting.override = defaults->string(AppGroup::baseURLOverrideKey);
    const auto url = AppGroup::baseURL(setting.override);
    setting.inUse = url.absoluteString();
    setting.isDefault = url == AppGroup::defaultBaseURL();
    return setting;
}

std::optional<std::string> objectionToBaseURL(std::string_view text) {
    const auto trimmed = platform::trimmed(text);
    if (trimmed.empty()) return "it is empty";
    const auto url = platform::URL::parse(trimmed);
    if (!url) return "it is not a URL; write it like https://sync.example.com";
    const auto scheme = platform::lowerCased(url->scheme().value_or(""));
    if (scheme != "http" && scheme != "https") return "it has to begin with https:// or http://";
    if (url->host().value_or("").empty()) return "it names no host";
    if (holdsUserInfo(*url)) return "it holds a name or password; `vorlinden login` asks for them";
    if (!hasPossiblePort(*url)) return "its port is not a number from 1 to 65535";
    if (url->encodedQuery() || trimmed.find('#') != std::string::npos) {
        return "what follows \"?\" or \"#\" would be left out";
    }
    if (AppGroup::baseURL(std::string(text)) != *url) return "the program could not use it";
    return std::nullopt;
}

bool isReadableOnTheWay(std::string_view text) {
    const auto url = platform::URL::parse(platform::trimmed(text));
    if (!url || platform::lowerCased(url->scheme().value_or("")) != "http") return false;
    const auto host = url->host().value_or("");
    return host != "localhost" && !host.starts_with("127.") && host != "[::1]" && host != "::1";
}

void setBaseURL(const platform::System& system, std::optional<std::string> text) {
    const auto defaults = AppGroup::defaults(system);
    if (!defaults) throw platform::FileError::noSuchFile();
    if (text) text = platform::trimmed(*text);
    const URL now = AppGroup::baseURL(defaults->string(AppGroup::baseURLOverrideKey));
    if (AppGroup::baseURL(text).origin() != now.origin() && isSignedIn(system))
        throw SignedInElsewhere(now.absoluteString());
    defaults->set(AppGroup::baseURLOverrideKey, std::move(text));
}

}  // namespace vorlinden::host
