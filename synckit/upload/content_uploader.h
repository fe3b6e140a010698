// Carries a content plan to the server.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "synckit/server/wire_model.h"
#include "synckit/types.h"
#include "synckit/upload/upload_planner.h"

namespace vorlinden {

class SyncAPIClient;
class TokenManager;

// What the server stored.
struct UploadedContent {
    WriteResult result;
    NodeKind kind = NodeKind::text;
    std::optional<std::string> blobHash;   // of a blob: as the server's receipt says
    std::optional<std::int64_t> blobSize;  // of a blob: bytes, as planned
    bool operator==(const UploadedContent&) const = default;
};

namespace ContentUploader {

// One call for text, two for a blob (bytes, then the file that refers to them), each repeated once after a
// refreshed sign-in. Leaves no trace here: journal and spool are the caller's. Throws
// UploadPlanError::tooLarge before anything is sent, SyncAPIError, TokenManagerError::signedOut, URLError,
// CancelledError.
Task<UploadedContent> send(ContentUploadPlan plan, UUID brainId, std::string path, std::string deviceId,
                           std::shared_ptr<SyncAPIClient> api, std::shared_ptr<TokenManager> tokenManager);

}  // namespace ContentUploader

}  // namespace vorlinden
