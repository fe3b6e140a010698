#include "synckit/auth/keychain_token_store.h"

#include "platform/json.h"

namespace vorlinden {

using platform::SecretStore;

KeychainTokenStoreError::KeychainTokenStoreError(std::int32_t status,
                                                 const std::optional<std::string>& statusText)
    : Failure("Keychain error " + std::to_string(status) + ": " + statusText.value_or("unknown error")),
      unexpectedStatus(status) {}

KeychainTokenStore::KeychainTokenStore(std::shared_ptr<SecretStore> secrets, std::string service,
                                       std::string accessGroup)
    : secrets_(std::move(secrets)), name_{std::move(service), account, std::move(accessGroup)} {}

std::optional<TokenSet> KeychainTokenStore::load() {
    std::optional<Data> secret;
    const auto status = secrets_->copyMatching(name_, secret);
    if (status == SecretStore::itemNotFound) return std::nullopt;
    check(status);
    if (!secret) check(SecretStore::internalError);
    const platform::JSONDocument document(secret->view());
    const auto tokens = document.root();
    return TokenSet{tokens.requiredString("accessToken"), tokens.requiredString("refreshToken")};
}

void KeychainTokenStore::save(const TokenSet& tokens) {
    platform::JSONObjectBuilder object;
    object.add("accessToken", tokens.accessToken).add("refreshToken", tokens.refreshToken);
    const Data secret(object.text().text);
    auto status = secrets_->update(name_, secret);
    if (status == SecretStore::itemNotFound) status = secrets_->add(name_, secret);
    if (status == SecretStore::duplicateItem)
        status = secrets_->update(name_, secret);  // the last write wins
    check(status);
}

void KeychainTokenStore::remove() {
    const auto status = secrets_->remove(name_);
    if (status != SecretStore::itemNotFound) check(status);
}

void KeychainTokenStore::check(std::int32_t status) const {
    if (status != SecretStore::success) throw KeychainTokenStoreError(status, secrets_->statusText(status));
}

}  // namespace vorlinden
