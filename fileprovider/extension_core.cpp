#include "fileprovider/extension_core.h"

#include <set>
#include <string>
#include <utility>

#include "fileprovider/error_mapping.h"
#include "synckit/container/app_group.h"

namespace vorlinden::fileprovider {

namespace protocol = platform::fileprovider;

namespace {

// Whatever stands in the way of the catalogue is kept as a value.
StoreResult openStore(const platform::System& system) {
    try {
        return {MetadataStore::openInAppGroup(system, AppGroup::identifier), nullptr};
    } catch (...) {
        return {nullptr, std::current_exception()};
    }
}

// Whatever the daemon says is of no interest. A write that was given up still signals every container; it
// only stops waiting for the answers.
Task<> signal(std::shared_ptr<Manager> manager, ItemIdentifier container) {
    platform::Signal answered;
    try {
        manager->signalEnumerator(container, [answered](std::optional<Error>) mutable { answered.set(); });
        co_await answered.wait();
    } catch (...) {
    }
}

// The client id that the host stored at sign-in, read anew at each refresh.
std::function<std::string()> clientIdSource(std::shared_ptr<MetadataStore> store) {
    return [store = std::move(store)]() -> std::string {
        auto clientId = store ? store->meta(MetaKey::clientId) : std::nullopt;
        if (!clientId) throw TokenManagerError::signedOut();
        return *std::move(clientId);
    };
}

}  // namespace

ExtensionCore::ExtensionCore(Domain domain, platform::System system) noexcept
    : domain_(std::move(domain)), system_(std::move(system)) {
    try {
        connect();
    } catch (...) {
        storeResult_ = {nullptr, std::current_exception()};
    }
}

void ExtensionCore::connect() {
    tokenStore_.emplace(system_.secrets, KeychainTokenStore::defaultService, AppGroup::keychainAccessGroup);
    const URL baseURL = AppGroup::baseURL(system_);
    const auto transport = URLSessionTransport::ephemeral(system_);
    storeResult_ = openStore(system_);
    tokenManager_ = std::make_shared<TokenManager>(system_.executor, baseURL, transport,
                                                   std::make_shared<KeychainTokenStore>(*tokenStore_),
                                                   clientIdSource(storeResult_.store));
    api_ = std::make_shared<SyncAPIClient>(baseURL, transport, tokenManager_);
}

void ExtensionCore::requireSession() {
    try {
        if (tokenStore_ && tokenStore_->load()) return;
    } catch (...) {
        // A secret that can't be read is as good as none: the user has to sign in.
    }
    throw providerError(protocol::notAuthenticated);
}

const std::shared_ptr<MetadataStore>& ExtensionCore::store() const {
    if (!storeResult_.store) throw providerError(protocol::cannotSynchronize);
    return storeResult_.store;
}

std::shared_ptr<Progress> ExtensionCore::track(Operation operation) {
    auto progress = std::make_shared<Progress>(1);
    track(progress, [operation = std::move(operation), progress]() -> Task<> {
        co_await operation();
        progress->setCompletedUnitCount(progress->totalUnitCount());
    });
    return progress;
}

void ExtensionCore::track(const std::shared_ptr<Progress>& progress, Operation operation) {
    const UUID id = UUID::random(*system_.random);
    auto forget = [core = shared_from_this(), id](std::exception_ptr) {
        std::lock_guard hold(core->lock_);
        core->tasks_.erase(id);
    };
    platform::TaskHandle task;
    {
        // Under the lock, so that a task that ends at once is entered before it is forgotten.
        std::lock_guard hold(lock_);
        task = platform::spawn(system_.executor, std::move(operation), std::move(forget));
        tasks_.emplace(id, task);
    }
    progress->setCancellationHandler([task] { task.cancel(); });
}

void ExtensionCore::cancelAll() {
    std::map<UUID, platform::TaskHandle> tasks;
    {
        std::lock_guard hold(lock_);
        tasks.swap(tasks_);
    }
    for (const auto& [id, task] : tasks)
        task.cancel();
}

std::size_t ExtensionCore::tasksInFlight() const {
    std::lock_guard hold(lock_);
    return tasks_.size();
}

Task<> ExtensionCore::signalContainers(std::vector<ItemIdentifier> containers) {
    std::set<ItemIdentifier> each(containers.begin(), containers.end());
    each.insert(workingSetContainerItemIdentifier);
    try {
        const auto manager = system_.managerForDomain(domain_);
        if (!manager) co_return;
        for (const ItemIdentifier& container : each)
            co_await signal(manager, container);
    } catch (...) {
        // Without a manager nobody listens.
    }
}

std::shared_ptr<Progress> finishedProgress() {
    auto progress = std::make_shared<Progress>(1);
    progress->setCompletedUnitCount(1);
    return progress;
}

}  // namespace vorlinden::fileprovider
