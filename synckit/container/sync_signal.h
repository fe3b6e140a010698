// The wake-up between the processes of the product.
#pragma once

#include <string>

namespace vorlinden::SyncSignal {

// Posted by whoever wrote something that wants to go to the server; the host listens. It carries nothing and
// may be lost: what is to be done stands in the journal.
inline const std::string syncNowName = "ai.vorlinden.desktop.sync-now";

}  // namespace vorlinden::SyncSignal
