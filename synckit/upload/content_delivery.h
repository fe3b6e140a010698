// The part of an upload that an edit and a conflict copy have in common. Internal to the uploaders.
#pragma once

#include <optional>
#include <string>

#include "synckit/catalogue/records.h"
#include "synckit/upload/server_failure.h"
#include "synckit/upload/upload_context.h"
#include "synckit/upload/upload_planner.h"

namespace vorlinden {

// Sends the content of a waiting row; once the server has it, the catalogue follows, and row and spool entry
// go. Absent, or how the server failed, with nothing changed here. A task that is cancelled while the server
// acts keeps row and entry, and the same bytes go up again later.
Task<std::optional<ServerFailure>> deliverContent(const UploadContext& context, const PendingChange& change,
                                                  ContentUploadPlan plan, const std::string& spoolKey,
                                                  Timestamp now);

}  // namespace vorlinden
