#include <fstream>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/fileprovider/domain_registry.h"
#include "platform/fileprovider/manager.h"
#include "platform/fileprovider/progress.h"
#include "tests/support/hooked_files.h"
#include "tests/support/recording_notification_center.h"
#include "tests/support/temporary_folder.h"

namespace vorlinden::platform::fileprovider {
namespace {

class DomainTest : public testing::Test {
 protected:
    tests::TemporaryFolder folder;
    const std::shared_ptr<FileSystem> files = posixFileSystem();
    const DomainRegistry registry{folder / "state", files};
    const Domain domain{"ai.vorlinden/team \u00fc", "Team"};
};

TEST_F(DomainTest, WhatIsRegisteredIsFoundByEveryoneUntilItIsRemoved) {
    EXPECT_TRUE(registry.domains().empty());
    registry.registerDomain(domain);
    registry.registerDomain({"b", "Before"});
    registry.registerDomain({"b", "Bee"});
    const DomainRegistry other(folder / "state", files);
    EXPECT_EQ(other.domains(), (std::vector<Domain>{domain, {"b", "Bee"}}));
    EXPECT_TRUE(other.isRegistered(domain.identifier));
    other.removeDomain(domain.identifier);
    other.removeDomain(domain.identifier);
    EXPECT_FALSE(registry.isRegistered(domain.identifier));
    EXPECT_EQ(registry.domains(), (std::vector<Domain>{{"b", "Bee"}}));
}

TEST_F(DomainTest, ARecordThatDoesntReadIsNoRegistration) {
    registry.registerDomain(domain);
    for (const char* garbage :
         {"", "{", "[]", R"({"identifier":1,"displayName":"x"})", R"({"identifier":"x"})"}) {
        for (const auto& entry : std::filesystem::directory_iterator(folder / "state"))
            std::ofstream(entry.path()) << garbage;
        EXPECT_FALSE(registry.isRegistered(domain.identifier)) << garbage;
        EXPECT_TRUE(registry.domains().empty()) << garbage;
    }
}

TEST_F(DomainTest, NamesOfFilesHoldAnyIdentifierAndNeverMeet) {
    const std::string longId(500, 'a');
    const std::vector<std::string> texts = {"a",  "A", "",    "a/b",  "a%2Fb",
                                            "..", ".", "a.b", longId, longId + "a"};
    std::set<std::string> names;
    for (const std::string& text : texts) {
        const std::string name = fileNameComponent(text);
        EXPECT_EQ(name.find_first_of("/."), std::string::npos) << name;
        EXPECT_LE(name.size(), 80u);
        names.insert(name);
    }
    EXPECT_EQ(names.size(), texts.size());
    EXPECT_NE(enumeratorSignalName("a.b", "c"), enumeratorSignalName("a", "b.c"));
    EXPECT_LT(enumeratorSignalName(longId, longId).size(), 255u);
}

TEST_F(DomainTest, AManagerSignalsByNameAndHasAPrivateFolder) {
    const auto wakeUps = std::make_shared<tests::RecordingNotificationCenter>();
    const auto managerFor = managerSource(registry, wakeUps, files, folder / "cache");
    EXPECT_EQ(managerFor(domain), nullptr);
    registry.registerDomain(domain);
    const auto manager = managerFor(domain);
    ASSERT_NE(manager, nullptr);

    int heard = 0;
    const auto listening = wakeUps->listen(
        enumeratorSignalName(domain.identifier, workingSetContainerItemIdentifier), [&] { ++heard; });
    std::optional<Error> answer = Error("none", 1);
    manager->signalEnumerator("another", [](auto) {});
    manager->signalEnumerator(workingSetContainerItemIdentifier,
                              [&](auto error) { answer = std::move(error); });
    EXPECT_EQ(heard, 1);
    EXPECT_EQ(answer, std::nullopt);

    const auto temporary = manager->temporaryDirectory();
    EXPECT_EQ(temporary.parent_path(), domainCacheFolder(folder / "cache", domain.identifier));
    struct stat status {};
    ASSERT_EQ(::stat(temporary.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
}

TEST_F(DomainTest, ARegistryThatCantBeReadKnowsNobody) {
    registry.registerDomain(domain);
    const auto broken = std::make_shared<tests::HookedFiles>(files);
    broken->failOn(tests::FileOperation::read, EACCES);
    const auto wakeUps = std::make_shared<tests::RecordingNotificationCenter>();
    EXPECT_EQ(
        managerSource(DomainRegistry(folder / "state", broken), wakeUps, broken, folder / "cache")(domain),
        nullptr);
}

TEST(Progress, RunsItsCancellationHandlerOnce) {
    int runs = 0;
    Progress progress(7);
    progress.setCancellationHandler([&] { ++runs; });
    progress.cancel();
    progress.cancel();
    EXPECT_EQ(runs, 1);
    EXPECT_TRUE(progress.isCancelled());
    progress.setCancellationHandler([&] { runs += 10; });  // set too late: at once
    EXPECT_EQ(runs, 11);
    progress.setCompletedUnitCount(3);
    EXPECT_EQ(progress.completedUnitCount(), 3);
    EXPECT_EQ(progress.totalUnitCount(), 7);
}

}  // namespace
}  // namespace vorlinden::platform::fileprovider
