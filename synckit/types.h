// Names of the platform layer that the whole library uses as its own.
#pragma once

#include "platform/data.h"
#include "platform/failure.h"
#include "platform/task.h"
#include "platform/timestamp.h"
#include "platform/url.h"
#include "platform/uuid.h"

namespace vorlinden {

using platform::CancelledError;
using platform::Data;
using platform::Failure;
using platform::FileError;
using platform::Task;
using platform::Timestamp;
using platform::URL;
using platform::URLError;
using platform::UUID;

}  // namespace vorlinden
