// Settings, folders and the machine as a whole.
#include "platform/system.h"

#include <cstdlib>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "platform/fileprovider/manager.h"
#include "platform/uuid.h"
#include "tests/support/temporary_folder.h"

namespace vorlinden::platform {
namespace {

namespace fs = std::filesystem;

class Settings : public ::testing::Test {
 protected:
    tests::TemporaryFolder folder;
    const fs::path file = folder / "config/group.json";
    const std::shared_ptr<SharedDefaults> defaults = fileSharedDefaults(file);

    void plant(const std::string& text) {
        fs::create_directories(file.parent_path());
        std::ofstream(file) << text;
    }
    std::string text() {
        std::ifstream stream(file);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
};

TEST_F(Settings, AreSeenByOthersAtOnceAndKeepThoseOfOthers) {
    plant(R"({"window": {"x": [1, 2.5]}, "key": "old", "flag": true})");
    defaults->set("key", "value \"quoted\" \u00E9");
    EXPECT_EQ(fileSharedDefaults(file)->string("key"), "value \"quoted\" \u00E9");
    EXPECT_EQ(defaults->string("flag"), std::nullopt);  // no string
    defaults->set("key", std::nullopt);
    EXPECT_EQ(defaults->string("key"), std::nullopt);
    EXPECT_EQ(text(), R"({"window":{"x":[1,2.5E0]},"flag":true})"
                      "\n");
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(Settings, GarbageIsNoSettingsToAReaderAndNotOverwrittenByAWriter) {
    for (const char* garbage : {"", "{", "[]", "\"text\"", "{\"key\": \"x\"} trailing", "\xFF\xFE"}) {
        plant(garbage);
        EXPECT_EQ(defaults->string("key"), std::nullopt) << garbage;
        EXPECT_THROW(defaults->set("key", "value"), SettingsError) << garbage;
        EXPECT_EQ(text(), garbage);
    }
}

TEST_F(Settings, ConcurrentWritersOfDifferentKeysLoseNothing) {
    std::vector<std::jthread> writers;
    for (int i = 0; i < 4; ++i) {
        writers.emplace_back([this, i] {
            for (int round = 0; round < 5; ++round)
                fileSharedDefaults(file)->set("key" + std::to_string(i), std::to_string(round));
        });
    }
    writers.clear();
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(defaults->string("key" + std::to_string(i)), "4");
}

TEST(UserFolders, FollowTheEnvironmentAndIgnoreRelativePaths) {
    const auto set = [](const char* name, const char* value) { ::setenv(name, value, 1); };
    set("HOME", "/home/somebody");
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_STATE_HOME"})
        set(name, "");
    set("XDG_DATA_HOME", "/data");
    set("XDG_CACHE_HOME", "relative/cache");
    const Folders folders = Folders::ofUser();
    EXPECT_EQ(folders.data, "/data/vorlinden");
    EXPECT_EQ(folders.config, "/home/somebody/.config/vorlinden");
    EXPECT_EQ(folders.state, "/home/somebody/.local/state/vorlinden");
    EXPECT_EQ(folders.cache, "/home/somebody/.cache/vorlinden");
    set("XDG_DATA_HOME", "");
    EXPECT_EQ(Folders::ofUser().data, "/home/somebody/.local/share/vorlinden");
}

TEST(LinuxSystem, KeepsEverythingInItsFoldersAndPrivate) {
    tests::TemporaryFolder home;
    const Folders folders{home / "data", home / "config", home / "state", home / "cache"};
    TaskPool pool(1);
    const System system = linuxSystem(pool.executor(), folders);
    EXPECT_TRUE(fs::is_empty(home.path()));  // nothing is made before it is needed

    const fs::path container = system.groupContainer("Q4.group").value();
    EXPECT_EQ(container, home / "data/Group Containers/Q4.group");
    EXPECT_EQ(fs::status(container).permissions(), fs::perms::owner_all);
    system.sharedDefaults("Q4.group")->set("key", "value");
    EXPECT_TRUE(fs::exists(home / "config/Q4.group.json"));
    EXPECT_EQ(system.secrets->add({"service", "account", "group"}, Data()), SecretStore::success);
    EXPECT_EQ(system.managerForDomain({"unregistered", "Nobody's"}), nullptr);
    EXPECT_FALSE(system.deviceName.empty());
    EXPECT_GT(system.clock->now(), Timestamp{std::chrono::sys_days{std::chrono::year{2024} / 1 / 1}});
    EXPECT_NE(UUID::random(*system.random), UUID::random(*system.random));
}

}  // namespace
}  // namespace vorlinden::platform
