#include "fileprovider/extension_core.h"
#include "fileprovider/node_lookup.h"
#include "tests/fileprovider/extension_fixture.h"

namespace vorlinden::tests {
namespace {

const Error notAuthenticated = providerError(protocol::notAuthenticated);
const Error cannotSynchronize = providerError(protocol::cannotSynchronize);
const Error noSuchItem = providerError(protocol::noSuchItem);

class ExtensionTest : public ExtensionFixture {
 protected:
    std::optional<Error> enumeratorError(const ItemIdentifier& container) {
        try {
            EXPECT_NE(extension().enumeratorForContainer(container, {}), nullptr);
            return {};
        } catch (const Error& error) {
            return error;
        }
    }
    void breakCatalogue() {
        const auto file = AppGroup::syncDatabaseURL(machine->system());
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << std::string(8192, 'x');
    }
};

TEST_F(ExtensionTest, LooksUpTheRootBrainsAndNodes) {
    addBrain();
    const ItemIdentifier file = add(fileNode(brain, "Plan.md"));
    const auto root = lookUp(protocol::rootContainerItemIdentifier);
    EXPECT_EQ(root->item, Item(fileprovider::RootItem()));
    EXPECT_EQ(root->calls, 1);
    EXPECT_EQ(root->progress->totalUnitCount(), 1);
    EXPECT_EQ(root->progress->completedUnitCount(), 1);
    EXPECT_EQ(lookUp(file)->item->filename, "Plan.md");
    EXPECT_EQ(lookUp(SyncItemIdentifier::brain(brain).rawValue())->item->filename, "team");

    const auto unknown = SyncItemIdentifier::node(brain, "unknown").rawValue();
    for (const ItemIdentifier& identifier :
         {protocol::workingSetContainerItemIdentifier, protocol::trashContainerItemIdentifier,
          ItemIdentifier("nonsense"), unknown}) {
        const auto heard = lookUp(identifier);
        EXPECT_EQ(heard->error, noSuchItem) << identifier;
        EXPECT_EQ(heard->item, std::nullopt);
        EXPECT_EQ(heard->calls, 1);
    }
}

TEST_F(ExtensionTest, GivesAnEnumeratorForAnyContainerButTheTrash) {
    EXPECT_EQ(enumeratorError(protocol::rootContainerItemIdentifier), std::nullopt);
    EXPECT_EQ(enumeratorError(protocol::workingSetContainerItemIdentifier), std::nullopt);
    EXPECT_EQ(enumeratorError("nonsense"), std::nullopt);
    EXPECT_EQ(enumeratorError(protocol::trashContainerItemIdentifier), noSuchItem);
}

TEST_F(ExtensionTest, ACatalogueThatDoesntOpenIsReportedByEveryOperationAndNeverTriedAgain) {
    breakCatalogue();
    EXPECT_NE(extension().openFailure(), nullptr);
    std::filesystem::remove(AppGroup::syncDatabaseURL(machine->system()));
    const ItemIdentifier file = SyncItemIdentifier::node(brain, "n").rawValue();
    EXPECT_EQ(lookUp(protocol::rootContainerItemIdentifier)->error, cannotSynchronize);
    EXPECT_EQ(lookUp("nonsense")->error, cannotSynchronize);
    EXPECT_EQ(enumeratorError(protocol::trashContainerItemIdentifier), cannotSynchronize);
    EXPECT_EQ(fetch(file)->error, cannotSynchronize);

    machine->secrets->failAlways(platform::SecretStore::internalError);  // the session is looked at first
    EXPECT_EQ(lookUp("nonsense")->error, notAuthenticated);
    EXPECT_EQ(enumeratorError(protocol::trashContainerItemIdentifier), notAuthenticated);
    EXPECT_EQ(fetch(file)->error, notAuthenticated);
}

TEST_F(ExtensionTest, AMachineWithoutContainerOrNetworkStillGetsAnObject) {
    machine->container.reset();
    EXPECT_EQ(lookUp(protocol::rootContainerItemIdentifier)->error, cannotSynchronize);

    auto system = machine->system();
    system.urlSession = []() -> std::shared_ptr<platform::URLSession> {
        throw URLError(URLError::Code::other);
    };
    fileprovider::FileProviderExtension mute(domain, system);
    EXPECT_NE(mute.openFailure(), nullptr);
    EXPECT_THROW(mute.enumeratorForContainer(protocol::rootContainerItemIdentifier, {}), Error);
}

TEST_F(ExtensionTest, WithoutAReadableSessionNothingIsServed) {
    const platform::SecretName entry{KeychainTokenStore::defaultService, KeychainTokenStore::account,
                                     AppGroup::keychainAccessGroup};
    machine->secrets->plant(entry, Data::copyOf("{\"accessToken\":"));
    EXPECT_EQ(lookUp(protocol::rootContainerItemIdentifier)->error, notAuthenticated);
    machine->secrets->remove(entry);
    EXPECT_EQ(lookUp(protocol::rootContainerItemIdentifier)->error, notAuthenticated);
    signIn();
    EXPECT_EQ(lookUp(protocol::rootContainerItemIdentifier)->error, std::nullopt);
}

TEST_F(ExtensionTest, LookupFailuresOfTheCatalogueAreMapped) {
    addBrain();
    const ItemIdentifier file = add(fileNode(brain, "a"));
    extension();
    SQLiteDatabase(AppGroup::syncDatabaseURL(machine->system()).string()).execute("DROP TABLE nodes");
    EXPECT_EQ(lookUp(file)->error, providerError(protocol::serverUnreachable));
}

class CoreTest : public ExtensionFixture {
 protected:
    std::shared_ptr<fileprovider::ExtensionCore> core() {
        return std::make_shared<fileprovider::ExtensionCore>(domain, machine->system());
    }
};

TEST_F(CoreTest, SignalsEachContainerOnceAndAlwaysTheWorkingSet) {
    machine->manager->answer = cannotSynchronize;  // what the daemon says is of no interest
    machine->loop.run([core = core()] { return core->signalContainers({}); });
    machine->loop.run([core = core()] { return core->signalContainers({"b", "a", "b"}); });
    EXPECT_EQ(machine->manager->signalled(),
              (std::vector<ItemIdentifier>{protocol::workingSetContainerItemIdentifier,
                                           protocol::workingSetContainerItemIdentifier, "a", "b"}));
}

TEST_F(CoreTest, SignalsAreSkippedWithoutAManager) {
    auto system = machine->system();
    system.managerForDomain = [](const auto&) { return nullptr; };
    const auto deaf = std::make_shared<fileprovider::ExtensionCore>(domain, system);
    machine->loop.run([deaf] { return deaf->signalContainers({"a"}); });
    EXPECT_TRUE(machine->manager->signalled().empty());
}

TEST_F(CoreTest, ATrackedOperationIsForgottenWhenItEndsAndCompletesItsProgress) {
    const auto shared = core();
    platform::Signal go;
    const auto progress = shared->track([go] { return go.wait(); });
    machine->loop.runUntilIdle();
    EXPECT_EQ(shared->tasksInFlight(), 1u);
    EXPECT_EQ(progress->completedUnitCount(), 0);
    go.set();
    machine->loop.runUntilIdle();
    EXPECT_EQ(shared->tasksInFlight(), 0u);
    EXPECT_EQ(progress->completedUnitCount(), 1);
}

TEST_F(CoreTest, TheParentOfANodeIsWhereTheCatalogueHasItNow) {
    addBrain();
    const ItemIdentifier folder = add(folderNode(brain, "Notes"));
    const ItemIdentifier file = add(fileNode(brain, "Notes/a"));
    const ItemIdentifier brainItem = SyncItemIdentifier::brain(brain).rawValue();
    EXPECT_EQ(fileprovider::existingParent(file, catalogue()), folder);
    EXPECT_EQ(fileprovider::existingParent(folder, catalogue()), brainItem);
    EXPECT_EQ(fileprovider::existingParent(brainItem, catalogue()), std::nullopt);
    EXPECT_EQ(fileprovider::existingParent(SyncItemIdentifier::node(brain, "x").rawValue(), catalogue()),
              std::nullopt);
    EXPECT_EQ(fileprovider::existingParent("nonsense", catalogue()), std::nullopt);
}

}  // namespace
}  // namespace vorlinden::tests
