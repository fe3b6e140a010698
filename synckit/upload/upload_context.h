// What sending a journal row takes. Internal to the uploaders.
#pragma once

#include <memory>
#include <string>

#include "platform/system.h"
#include "synckit/conflicts/conflict_spool.h"

namespace vorlinden {

class ConflictResolver;
class MetadataStore;
class SyncAPIClient;
class TokenManager;

// A value over shared objects. It lies in the frame of the uploader's outermost coroutine, and the ones that
// it awaits borrow it.
struct UploadContext {
    platform::System system;
    std::shared_ptr<ConflictResolver> resolver;
    std::shared_ptr<MetadataStore> store;
    ConflictSpool spool;
    std::string deviceId;
    std::shared_ptr<SyncAPIClient> api;
    std::shared_ptr<TokenManager> tokenManager;
};

}  // namespace vorlinden
