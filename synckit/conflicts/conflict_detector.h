// Whether a remote change touches what a pending local change touches. A pure function, any thread.
#pragma once

#include "synckit/catalogue/records.h"
#include "synckit/server/wire_model.h"

namespace vorlinden::ConflictDetector {

// Paths are compared as bytes. A move or a delete reaches into what lies below it, every other op touches its
// own path only. `entryFollowsBase` is false for a remote change that the local one already knew about, which
// is never a collision.
bool remoteChangeCollides(const Op& op, const PendingChange& pending, bool entryFollowsBase);

}  // namespace vorlinden::ConflictDetector
