// What the two processes of the product, host and extension, agree on without talking to each other: the
// names of what they share, where each shared file lies, and which server they speak to. Free functions; any
// thread. Those that ask for the group's container throw MetadataStoreError::containerUnavailable if there is
// none.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "platform/system.h"
#include "synckit/types.h"

namespace vorlinden::AppGroup {

inline const std::string identifier = "Q4TRW71B6N.ai.vorlinden.desktop";
inline const std::string keychainAccessGroup = "Q4TRW71B6N.ai.vorlinden.desktop.shared";
inline const std::string baseURLOverrideKey = "VRBaseURLOverride";

// Where requests go unless the user chose a server. Under a reserved domain, so that neither a fresh
// installation nor a mistyped override can send anything to a stranger.
const URL& defaultBaseURL();

std::filesystem::path containerURL(const platform::System& system);
std::filesystem::path syncDatabaseURL(const platform::System& system);
// The lock file of SyncExecutionOwner, in the catalogue's folder.
std::filesystem::path syncExecutionLockURL(const platform::System& system);

std::filesystem::path spoolDirectory(const std::filesystem::path& container);
std::filesystem::path spoolDirectory(const platform::System& system);
// Removes from the spool the temporary files of writers that died. To be called while the execution lock is
// held. Does nothing where there is no spool yet; throws FileError.
void sweepSpool(const platform::System& system);

// The settings that the processes share; null if the machine gives none.
std::shared_ptr<platform::SharedDefaults> defaults(const platform::System& system);

// The server's address: the user's override where it is a usable one, else the default. Never fails, since a
// process without a server address could not even show what it has.
URL baseURL(const platform::System& system);
// The rule alone: an http or https URL with a host, blanks around it ignored, or else the default.
URL baseURL(const std::optional<std::string>& override);

}  // namespace vorlinden::AppGroup
