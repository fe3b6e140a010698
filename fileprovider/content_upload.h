// The road of content to the server, the same for a new file and for an edit: journal and spool first, then
// the network, then the catalogue.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "fileprovider/refusals.h"
#include "fileprovider/write_frame.h"
#include "synckit/upload/content_uploader.h"

namespace vorlinden::fileprovider {

// The file whose content goes up.
struct UploadTarget {
    UUID brainId;
    std::string path;
    std::optional<std::string> nodeId;  // absent for a new file
    bool operator==(const UploadTarget&) const = default;
};

// Writes the intent, row and bytes together or neither, and gives the row's id.
std::int64_t journalContent(const ExtensionCore& core, const WriteContext& context,
                            const UploadTarget& target, const Data& data);

// Once the journalled content of `target` was refused for good and is kept here, an older save of the same
// file that still waits must not go up after it. Its bytes are left to the sweep of the spool. In a
// transaction.
void withdrawOlderContent(const WriteContext& context, const UploadTarget& target, std::int64_t journalId);

// What the server stored. Throws as ContentUploader::send() does.
Task<UploadedContent> sendContent(CorePtr core, ContentUploadPlan plan, UUID brainId, std::string path,
                                  const WriteContext& context);

// Sends a journalled change. Either the server has it, and then so has the catalogue, and row and bytes are
// gone; or it was refused, and all stands as it was. So it does when a failure is thrown that passes.
Task<std::variant<NodeRecord, Refusal>> sendJournalled(CorePtr core, const WriteContext& context,
                                                       const UploadTarget& target, ContentUploadPlan plan,
                                                       std::int64_t journalId);

// Sends a conflict copy that was just made. Whatever comes of it, the copy is safe, and a drain goes on with
// it.
Task<> tryToSendCopy(CorePtr core, const WriteContext& context, const ConflictCopy& copy);

}  // namespace vorlinden::fileprovider
