// The URL session over libcurl, with its limit open to tests.
#pragma once

#include <cstddef>
#include <memory>

#include "platform/http.h"

namespace vorlinden::platform {

std::shared_ptr<URLSession> curlSession(std::size_t maximumBody);  // bytes of one unpacked response

}  // namespace vorlinden::platform
