#include "synckit/container/app_group.h"

#include <gtest/gtest.h>

#include "synckit/catalogue/metadata_store.h"
#include "tests/support/fake_system.h"

namespace vorlinden {
namespace {

using tests::FakeSystem;

TEST(AppGroup, FilesLieAtTheirAgreedPlacesInTheContainer) {
    FakeSystem fake;
    const std::filesystem::path library = *fake.container / "Library/Application Support/Vorlinden";
    EXPECT_EQ(AppGroup::containerURL(fake.system()), *fake.container);
    EXPECT_EQ(AppGroup::syncDatabaseURL(fake.system()), library / "sync.sqlite");
    EXPECT_EQ(AppGroup::syncExecutionLockURL(fake.system()), library / "sync-execution.lock");
    EXPECT_EQ(AppGroup::spoolDirectory(fake.system()), library / "Spool");
}

TEST(AppGroup, WithoutAContainerEveryPlaceFailsByTheGroupsName) {
    FakeSystem fake;
    fake.container.reset();
    const platform::System system = fake.system();
    const auto failureOf = [](auto place) -> std::optional<MetadataStoreError> {
        try {
            place();
            return std::nullopt;
        } catch (const MetadataStoreError& error) {
            return error;
        }
    };
    const auto expected = MetadataStoreError::containerUnavailable("Q4TRW71B6N.ai.vorlinden.desktop");
    EXPECT_EQ(failureOf([&] { AppGroup::containerURL(system); }), expected);
    EXPECT_EQ(failureOf([&] { AppGroup::syncDatabaseURL(system); }), expected);
    EXPECT_EQ(failureOf([&] { AppGroup::syncExecutionLockURL(system); }), expected);
    EXPECT_EQ(failureOf([&] { AppGroup::spoolDirectory(system); }), expected);
}

TEST(AppGroup, BaseURLTakesAnOverrideOnlyIfItIsAUsableServerAddress) {
    const struct {
        std::optional<std::string> override;
        std::optional<std::string> taken;  // absent: the default
    } cases[] = {
        {std::nullopt, std::nullopt},
        {"", std::nullopt},
        {" \t\n", std::nullopt},
        {"ftp://files.example/", std::nullopt},
        {"files.example/path", std::nullopt},
        {"//files.example", std::nullopt},
        {"https:", std::nullopt},
        {"https:///path", std::nullopt},
        {"https://:8443/", std::nullopt},
        {"http://bad host/", std::nullopt},
        {"  https://knowledge.example/store/v2 \n", "https://knowledge.example/store/v2"},
        {"\u00A0http://127.0.0.1:8080\u2003", "http://127.0.0.1:8080"},
        {"HTTPS://Knowledge.Example/Store", "HTTPS://Knowledge.Example/Store"},
        {"http://[::1]:9/", "http://[::1]:9/"},
    };
    for (const auto& [override, taken] : cases) {
        EXPECT_EQ(AppGroup::baseURL(override).absoluteString(),
                  taken.value_or(AppGroup::defaultBaseURL().absoluteString()))
            << override.value_or("(absent)");
    }
}

TEST(AppGroup, DefaultServerIsSecureAndBelongsToNobody) {
    const URL& url = AppGroup::defaultBaseURL();
    EXPECT_EQ(url.scheme(), "https");
    EXPECT_TRUE(url.host().value_or("").ends_with(".example"));
    EXPECT_EQ(url.encodedPath(), "");
}

TEST(AppGroup, BaseURLComesFromTheSharedSettings) {
    FakeSystem fake;
    EXPECT_EQ(AppGroup::baseURL(fake.system()), AppGroup::defaultBaseURL());
    fake.defaults->set("VRBaseURLOverride", "http://127.0.0.1:4711");
    EXPECT_EQ(AppGroup::baseURL(fake.system()).absoluteString(), "http://127.0.0.1:4711");
    fake.defaults = nullptr;
    EXPECT_EQ(AppGroup::baseURL(fake.system()), AppGroup::defaultBaseURL());
}

TEST(AppGroup, SweepTakesOnlyAbandonedTemporaries) {
    FakeSystem fake;
    const platform::System system = fake.system();
    AppGroup::sweepSpool(system);  // no spool yet

    const std::filesystem::path spool = AppGroup::spoolDirectory(system);
    system.files->createDirectories(spool);
    const std::string abandoned = ".vorlinden-0123456789abcdef0123456789abcdef.tmp";
    for (const std::string& name : {std::string("edit-1"), std::string(".vorlinden-notes.tmp"), abandoned})
        system.files->writeAtomically(Data::copyOf("bytes"), spool / name);
    AppGroup::sweepSpool(system);
    EXPECT_TRUE(system.files->exists(spool / "edit-1"));
    EXPECT_TRUE(system.files->exists(spool / ".vorlinden-notes.tmp"));
    EXPECT_FALSE(system.files->exists(spool / abandoned));
}

}  // namespace
}  // namespace vorlinden
