// Sends the journal rows that carry no content. Internal to the drain.
#pragma once

#include "synckit/catalogue/records.h"
#include "synckit/upload/pending_edit_uploader.h"
#include "synckit/upload/upload_context.h"

namespace vorlinden {

// Sends a stored `move` or `delete`, or makes the folder of a `mkdir`, of which the server is not told.
Task<PendingEditUploader::Result> replayStructuralChange(const UploadContext& context, PendingChange change);

}  // namespace vorlinden
