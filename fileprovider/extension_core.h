// What one extension object and its running operations share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "fileprovider/types.h"
#include "platform/system.h"
#include "platform/task.h"
#include "synckit/auth/keychain_token_store.h"
#include "synckit/auth/token_manager.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/server/sync_api_client.h"

namespace vorlinden::fileprovider {

// The one attempt to open the catalogue: the store, or why there is none.
struct StoreResult {
    std::shared_ptr<MetadataStore> store;
    std::exception_ptr failure;
};

// Wired once, at construction, and immutable from then on but for the set of running tasks, which has a lock
// of its own. Held by std::shared_ptr by the extension and by each of its tasks, so that a task never
// outlives what it uses. Any thread.
class ExtensionCore : public std::enable_shared_from_this<ExtensionCore> {
 public:
    using Operation = std::function<Task<>()>;

    // Never throws: what fails on the way to a whole object becomes the failure of the catalogue.
    ExtensionCore(Domain domain, platform::System system) noexcept;

    const Domain& domain() const { return domain_; }
    const platform::System& system() const { return system_; }
    std::exception_ptr openFailure() const { return storeResult_.failure; }

    // That a session exists, not that it is valid. Throws notAuthenticated.
    void requireSession();
    // Throws cannotSynchronize where the catalogue didn't open.
    const std::shared_ptr<MetadataStore>& store() const;
    // Both are there when store() doesn't throw.
    const std::shared_ptr<TokenManager>& tokenManager() const { return tokenManager_; }
    const std::shared_ptr<SyncAPIClient>& api() const { return api_; }

    // Runs `operation` as a task that the returned progress (of 1 unit) and cancelAll() can cancel. It
    // reports to its own handler and throws nothing.
    std::shared_ptr<Progress> track(Operation operation);
    // The same under a progress of the caller's, which the operation itself completes.
    void track(const std::shared_ptr<Progress>& progress, Operation operation);
    void cancelAll();
    std::size_t tasksInFlight() const;

    // Asks the daemon to look into the containers and, always, the working set. Never fails.
    Task<> signalContainers(std::vector<ItemIdentifier> containers);

 private:
    void connect();

    const Domain domain_;
    const platform::System system_;
    StoreResult storeResult_;
    std::optional<KeychainTokenStore> tokenStore_;
    std::shared_ptr<TokenManager> tokenManager_;
    std::shared_ptr<SyncAPIClient> api_;

    mutable std::mutex lock_;  // guards tasks_ and nothing else; held across no wait
    std::map<UUID, platform::TaskHandle> tasks_;
};

// The progress of an operation that has ended already.
std::shared_ptr<Progress> finishedProgress();

}  // namespace vorlinden::fileprovider
