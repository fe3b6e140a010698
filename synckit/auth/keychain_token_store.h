// The stored pair of tokens: one entry of the secret store, shared by the programs of one user.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/secrets.h"
#include "synckit/types.h"

namespace vorlinden {

struct TokenSet {
    std::string accessToken;
    std::string refreshToken;
    bool operator==(const TokenSet&) const = default;
};

// Where TokenManager keeps its tokens. Synchronous, may block, thread-safe. save() creates or replaces;
// delete of what isn't there succeeds.
class TokenPersisting {
 public:
    virtual ~TokenPersisting() = default;
    virtual std::optional<TokenSet> load() = 0;
    virtual void save(const TokenSet& tokens) = 0;
    virtual void remove() = 0;
};

// The secret store answered with a status that means neither success nor "no entry".
struct KeychainTokenStoreError : Failure {
    KeychainTokenStoreError(std::int32_t status, const std::optional<std::string>& statusText);
    std::int32_t unexpectedStatus;
    std::string errorDescription() const { return what(); }
    bool operator==(const KeychainTokenStoreError&) const = default;
};

// Holds no tokens itself: each call goes to the secret store, and of two processes that write at once the
// last wins. load() throws platform::JSONError on an entry that doesn't read, and leaves it alone.
class KeychainTokenStore : public TokenPersisting {
 public:
    static constexpr const char* defaultService = "ai.vorlinden.desktop.tokens";
    static constexpr const char* account = "tokens";

    KeychainTokenStore(std::shared_ptr<platform::SecretStore> secrets, std::string service,
                       std::string accessGroup);

    std::optional<TokenSet> load() override;
    void save(const TokenSet& tokens) override;
    void remove() override;

 private:
    void check(std::int32_t status) const;  // throws unless it is success

    std::shared_ptr<platform::SecretStore> secrets_;
    platform::SecretName name_;
};

}  // namespace vorlinden
