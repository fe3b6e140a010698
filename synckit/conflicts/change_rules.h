// What conflict handling asks of a waiting change and of a remote op. Pure functions, any thread.
#pragma once

#include "synckit/catalogue/records.h"
#include "synckit/server/wire_model.h"

namespace vorlinden {

// Whether bytes wait with the change, which must not be lost with it.
inline bool carriesContent(const PendingChange& change) {
    return change.changeKind == PendingChangeKind::create || change.changeKind == PendingChangeKind::update;
}

// Whether the op touches a file's title only, so that an edit of it still stands.
inline bool leavesContentAlone(const Op& op) {
    const auto* update = std::get_if<Op::Update>(&op.value);
    return update && !update->bodyChanged;
}

}  // namespace vorlinden
