// The edge at which every failure becomes an error of the file provider protocol.
#pragma once

#include <exception>
#include <optional>
#include <string>

#include "fileprovider/types.h"

namespace vorlinden::fileprovider {

// An error of the protocol's own domain; `text` only where a person is to read it.
Error providerError(platform::fileprovider::ErrorCode code, std::optional<std::string> text = {});
// The user, or the daemon, gave the operation up.
Error userCancelledError();

// For lookups and content. What isn't understood counts as a server out of reach, so that the daemon tries
// again. Pure; `failure` isn't null.
Error mapError(const std::exception_ptr& failure);

// For writes. What isn't understood is the fault of this side, which trying again would not mend. Pure;
// `failure` isn't null.
Error mapWriteError(const std::exception_ptr& failure);

}  // namespace vorlinden::fileprovider
