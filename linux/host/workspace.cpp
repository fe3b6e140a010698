#include "linux/host/workspace.h"

#include "platform/json.h"
#include "synckit/container/app_group.h"

namespace vorlinden::host {
namespace {

std::shared_ptr<MetadataStore> openStore(const std::filesystem::path& file) {
    try {
        return MetadataStore::open(file);
    } catch (const SQLiteError& error) {
        throw CatalogueUnusable(file.string(), error);
    }
}

}  // namespace

platform::fileprovider::Domain productDomain() {
    return {"vorlinden", "Vorlinden"};
}

std::shared_ptr<const Workspace> Workspace::open(const platform::System& system,
                                                 const platform::Folders& folders) {
    const URL baseURL = AppGroup::baseURL(system);
    auto store = openStore(AppGroup::syncDatabaseURL(system));
    auto transport = std::make_shared<WatchedTransport>(URLSessionTransport::ephemeral(system));
    auto tokenStore = std::make_shared<KeychainTokenStore>(system.secrets, KeychainTokenStore::defaultService,
                                                           AppGroup::keychainAccessGroup);
    auto tokens = std::make_shared<TokenManager>(system.executor, baseURL, transport, tokenStore, store);
    auto client = std::make_shared<SyncAPIClient>(baseURL, transport, tokens);
    return std::make_shared<const Workspace>(
        Workspace{system, folders, baseURL, AppGroup::syncExecutionLockURL(system), std::move(store),
                  std::move(transport), std::move(tokenStore), std::move(tokens), std::move(client),
                  std::make_shared<Recovery>(system)});
}

void Workspace::requireSession() const {
    try {
        if (!tokenStore->load()) throw TokenManagerError::signedOut();
    } catch (const platform::JSONError& error) {
        throw StoredSignInUnreadable(error.what());
    } catch (const KeychainTokenStoreError& error) {
        throw StoredSignInUnreadable(error.what());
    }
}

std::string Workspace::deviceId() const {
    const auto id = store->meta(MetaKey::deviceId);
    if (!id) throw DeviceMissing();
    return *id;
}

void Workspace::signalWorkingSet() const {
    namespace fp = platform::fileprovider;
    if (const auto manager = system.managerForDomain(productDomain())) {
        manager->signalEnumerator(fp::workingSetContainerItemIdentifier,
                                  [](const std::optional<fp::Error>&) {});
    }
}

}  // namespace vorlinden::host
