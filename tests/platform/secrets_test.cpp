#include "platform/secrets.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/files.h"
#include "tests/support/memory_secret_store.h"
#include "tests/support/temporary_folder.h"

namespace vorlinden::platform {
namespace {

namespace fs = std::filesystem;

// One suite for the real store and for the one that tests use in its place.
class SecretStores : public ::testing::TestWithParam<bool> {
 protected:
    tests::TemporaryFolder folder;
    const std::shared_ptr<SecretStore> store =
        GetParam() ? fileSecretStore(folder / "Secrets") : std::make_shared<tests::MemorySecretStore>();
    const SecretName name{"ai.service", "tokens", "GROUP.shared"};

    std::optional<std::string> read(const SecretName& of) {
        std::optional<Data> secret;
        const std::int32_t status = store->copyMatching(of, secret);
        EXPECT_EQ(status, secret ? SecretStore::success : SecretStore::itemNotFound);
        return secret ? std::optional(std::string(secret->view())) : std::nullopt;
    }
};

INSTANTIATE_TEST_SUITE_P(, SecretStores, ::testing::Values(true, false),
                         [](const auto& kind) { return kind.param ? "Files" : "Memory"; });

TEST_P(SecretStores, EntryIsAddedUpdatedAndRemovedAndSaysWhenItIsNotThere) {
    EXPECT_EQ(read(name), std::nullopt);
    EXPECT_EQ(store->update(name, Data::copyOf("early")), SecretStore::itemNotFound);
    EXPECT_EQ(store->remove(name), SecretStore::itemNotFound);
    EXPECT_EQ(store->add(name, Data::copyOf("one")), SecretStore::success);
    EXPECT_EQ(store->add(name, Data::copyOf("again")), SecretStore::duplicateItem);
    EXPECT_EQ(read(name), "one");
    EXPECT_EQ(store->update(name, Data::copyOf("two")), SecretStore::success);
    EXPECT_EQ(read(name), "two");
    EXPECT_EQ(store->remove(name), SecretStore::success);
    EXPECT_EQ(read(name), std::nullopt);
    EXPECT_FALSE(store->statusText(SecretStore::notPrivate).value_or("").empty());
    EXPECT_EQ(store->statusText(-1), std::nullopt);
}

TEST_P(SecretStores, NamesThatDifferAnywhereAreDifferentEntries) {
    const std::vector<SecretName> names = {{"a", "b", "c"},  {"a", "c", "b"},      {"a,b", "", "c"},
                                           {"a", "b,", "c"}, {"../a", "b/c", "."}, {"A", "b", "c"}};
    for (const SecretName& each : names)
        EXPECT_EQ(store->add(each, Data::copyOf(each.service + "|" + each.account)), SecretStore::success);
    for (const SecretName& each : names)
        EXPECT_EQ(read(each), each.service + "|" + each.account);
}

class SecretFiles : public ::testing::Test {
 protected:
    tests::TemporaryFolder folder;
    const std::shared_ptr<SecretStore> store = fileSecretStore(folder / "Secrets");
    const SecretName name{"service", "tokens", "group"};

    SecretFiles() { EXPECT_EQ(store->add(name, Data::copyOf("secret")), SecretStore::success); }
    fs::path file() { return fs::directory_iterator(folder / "Secrets")->path(); }
    std::vector<std::int32_t> statuses() {
        std::optional<Data> secret;
        const std::int32_t read = store->copyMatching(name, secret);
        EXPECT_EQ(secret.has_value(), read == SecretStore::success);
        return {read, store->update(name, Data::copyOf("secret"))};
    }
    const std::vector<std::int32_t> fine{SecretStore::success, SecretStore::success};
    const std::vector<std::int32_t> refused{SecretStore::notPrivate, SecretStore::notPrivate};
    const std::vector<std::int32_t> mended{SecretStore::notPrivate, SecretStore::success};  // by the writing
};

TEST_F(SecretFiles, ArePrivateAndRefusedAsSoonAsOthersHaveAccess) {
    EXPECT_EQ(fs::status(folder / "Secrets").permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(file()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(statuses(), fine);
    for (const mode_t mode : {0640, 0604, 0620, 0602}) {
        ::chmod(file().c_str(), mode);
        EXPECT_EQ(statuses(), mended) << std::oct << mode;
        EXPECT_EQ(statuses(), fine) << std::oct << mode;
    }
    for (const mode_t mode : {0750, 0705, 0770}) {
        ::chmod((folder / "Secrets").c_str(), mode);
        EXPECT_EQ(statuses(), refused) << std::oct << mode;
        EXPECT_EQ(store->add({"other", "", ""}, Data()), SecretStore::notPrivate);
    }
    ::chmod((folder / "Secrets").c_str(), 0700);
    const fs::path leftover = folder / "Secrets" / ".vorlinden-0123456789abcdef0123456789abcdef.tmp";
    std::ofstream(leftover) << "half a secret";
    EXPECT_EQ(statuses(), fine);
    EXPECT_FALSE(fs::exists(leftover)) << "what a crash left behind goes with the next write";
    EXPECT_NE(store->statusText(SecretStore::notPrivate)->find((folder / "Secrets").string()),
              std::string::npos);
}

TEST_F(SecretFiles, LinksAndFoldersInTheirPlaceAreNotFollowed) {
    const fs::path entry = file();
    fs::remove(entry);
    fs::create_symlink(folder / "elsewhere", entry);
    std::ofstream(folder / "elsewhere") << "another's";
    EXPECT_EQ(statuses(), mended);
    EXPECT_FALSE(fs::is_symlink(entry));
    EXPECT_EQ(fs::file_size(folder / "elsewhere"), 9U);
    fs::remove(entry);
    fs::create_directory(entry);
    std::optional<Data> secret;
    EXPECT_NE(store->copyMatching(name, secret), SecretStore::success);
}

}  // namespace
}  // namespace vorlinden::platform
