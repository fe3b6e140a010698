#include "synckit/auth/keychain_token_store.h"

#include <gtest/gtest.h>

#include "platform/json.h"
#include "tests/support/memory_secret_store.h"

namespace vorlinden::tests {
namespace {

class KeychainTokenStoreTest : public testing::Test {
 protected:
    template <class Operation>
    std::int32_t statusOf(Operation operation) {
        try {
            operation();
            return 0;
        } catch (const KeychainTokenStoreError& error) {
            return error.unexpectedStatus;
        }
    }

    const platform::SecretName name_{KeychainTokenStore::defaultService, "tokens", "group"};
    std::shared_ptr<MemorySecretStore> secrets_ = std::make_shared<MemorySecretStore>();
    KeychainTokenStore store_{secrets_, name_.service, name_.accessGroup};
};

TEST_F(KeychainTokenStoreTest, KeepsOnePairUnderOneName) {
    EXPECT_EQ(store_.load(), std::nullopt);
    store_.save({"a\"1", "r1"});
    EXPECT_EQ(secrets_->secret()->view(), R"({"accessToken":"a\"1","refreshToken":"r1"})");
    store_.save({"a2", "r2"});
    EXPECT_EQ(secrets_->count(), 1U);
    EXPECT_EQ(store_.load(), (TokenSet{"a2", "r2"}));
    EXPECT_EQ(KeychainTokenStore(secrets_, name_.service, name_.accessGroup).load(), (TokenSet{"a2", "r2"}));
    EXPECT_EQ(KeychainTokenStore(secrets_, name_.service, "another group").load(), std::nullopt);
    store_.remove();
    store_.remove();
    EXPECT_EQ(store_.load(), std::nullopt);
}

TEST_F(KeychainTokenStoreTest, AnEntryThatDoesNotReadStays) {
    for (const auto* text :
         {"garbage", R"({"accessToken":"a"})", R"({"accessToken":"a","refreshToken":null})", "\xff"}) {
        secrets_->plant(name_, Data::copyOf(text));
        EXPECT_THROW(store_.load(), platform::JSONError) << text;
        EXPECT_EQ(secrets_->secret()->view(), text);
    }
    store_.save({"a", "r"});
    EXPECT_EQ(store_.load(), (TokenSet{"a", "r"}));
}

TEST_F(KeychainTokenStoreTest, OtherStatusesSurface) {
    secrets_->failAlways(-25299);
    EXPECT_EQ(statusOf([&] { store_.load(); }), -25299);
    EXPECT_EQ(statusOf([&] { store_.save({"a", "r"}); }), -25299);
    EXPECT_EQ(statusOf([&] { store_.remove(); }), -25299);
    secrets_->failAlways(0);
    secrets_->failNext(platform::SecretStore::itemNotFound);
    secrets_->failNext(-34018);  // the status of the add takes the place of that of the update
    EXPECT_EQ(statusOf([&] { store_.save({"a", "r"}); }), -34018);
    store_.save({"a", "r"});
    secrets_->loseNextSecret();
    EXPECT_EQ(statusOf([&] { store_.load(); }), -67671);
    EXPECT_EQ(KeychainTokenStoreError(-1, "Locked.").errorDescription(), "Keychain error -1: Locked.");
    EXPECT_EQ(KeychainTokenStoreError(7, std::nullopt).errorDescription(), "Keychain error 7: unknown error");
}

}  // namespace
}  // namespace vorlinden::tests
