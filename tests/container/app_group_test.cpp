#include "synckit/container/app_group.h"

#include <gtest/gtest.h>

#include "synckit/catalogue/metadata_store.h"
#include "tests/support/fake_system.h"

namespace vorlinden {
namespace {

using tests::FakeSystem;

TEST(AppGroup, FilesLieAtTheirAgreedPlacesOrFailByTheGroupsName) {
    FakeSystem fake;
    const std::filesystem::path library = *fake.container / "Library/Application Support/Vorlinden";
    EXPECT_EQ(AppGroup::containerURL(fake.system()), *fake.container);
    EXPECT_EQ(AppGroup::syncDatabaseURL(fake.system()), library / "sync.sqlite");
    EXPECT_EQ(AppGroup::syncExecutionLockURL(fake.system()), library / "sync-execution.lock");
    EXPECT_EQ(AppGroup::spoolDirectory(fake.system()), library / "Spool");
    fake.container.reset();
    try {
        AppGroup::syncDatabaseURL(fake.system());
        ADD_FAILURE() << "a place without a container";
    } catch (const MetadataStoreError& error) {
        EXPECT_EQ(error, MetadataStoreError::containerUnavailable("Q4TRW71B6N.ai.vorlinden.desktop"));
    }
}

TEST(AppGroup, BaseURLTakesAnOverrideOnlyIfItIsAUsableServerAddress) {
    const auto taken = [](const std::optional<std::string>& override) {
        const auto url = AppGroup::baseURL(override);
        return url == AppGroup::defaultBaseURL() ? "default" : url.absoluteString();
    };
    EXPECT_EQ(taken(std::nullopt), "default");
    for (const auto* unusable : {"", " \t\n", "ftp://files.example/", "files.example/path", "//files.example",
                                 "https:", "https:///path", "https://:8443/", "http://bad host/"})
        EXPECT_EQ(taken(unusable), "default") << unusable;
    EXPECT_EQ(taken("  https://knowledge.example/store/v2 \n"), "https://knowledge.example/store/v2");
    EXPECT_EQ(taken("\u00A0http://127.0.0.1:8080\u2003"), "http://127.0.0.1:8080");
    for (const auto* usable : {"HTTPS://Knowledge.Example/Store", "http://[::1]:9/"})
        EXPECT_EQ(taken(usable), usable);
    const URL& url = AppGroup::defaultBaseURL();
    EXPECT_EQ(url.scheme(), "https");
    EXPECT_TRUE(url.host().value_or("").ends_with(".example")) << "it belongs to nobody";
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
