// What the host's operations work on: the machine, the shared container with its catalogue, the stored
// session and the server, wired as the extension wires its own.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "linux/host/failures.h"
#include "linux/host/recovery.h"
#include "linux/host/watched_transport.h"
#include "platform/fileprovider/protocol.h"
#include "platform/system.h"
#include "synckit/auth/token_manager.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/container/sync_execution_owner.h"
#include "synckit/server/sync_api_client.h"

namespace vorlinden::host {

// The one domain of the product: what the host registers, and the daemon shows as a folder.
platform::fileprovider::Domain productDomain();

// Shared by an operation and its tasks, constant after open(), every member thread-safe unless it says else.
struct Workspace {
    const platform::System system;
    const platform::Folders folders;
    const URL baseURL;
    const std::filesystem::path lockFile;
    const std::shared_ptr<MetadataStore> store;
    const std::shared_ptr<WatchedTransport> transport;
    const std::shared_ptr<TokenPersisting> tokenStore;
    const std::shared_ptr<TokenManager> tokens;
    const std::shared_ptr<SyncAPIClient> client;
    const std::shared_ptr<Recovery> recovery;  // used while the execution lock is held only

    // Opens the catalogue, making it if it is not there. Throws CatalogueUnusable and what the platform
    // throws.
    static std::shared_ptr<const Workspace> open(const platform::System& system,
                                                 const platform::Folders& folders);

    OAuthClient oauth() const { return OAuthClient(baseURL, transport); }

    // Throws TokenManagerError::signedOut() without stored tokens, StoredSignInUnreadable with unreadable
    // ones.
    void requireSession() const;
    // The id under which the server knows this device. Throws DeviceMissing.
    std::string deviceId() const;

    // Runs `body` while this process holds the execution lock; every change of the store happens in one.
    template <class Body>
    std::invoke_result_t<Body&> locked(Body body) const {
        return SyncExecutionOwner(lockFile).withOwnership(system, std::move(body));
    }

    // Tells the daemon, if there is one, that the tree has changed. Called outside the lock.
    void signalWorkingSet() const;
};

using WorkspaceRef = std::shared_ptr<const Workspace>;

}  // namespace vorlinden::host
