// How the URL of a request is made from the server's base URL.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "synckit/types.h"

namespace vorlinden {

using QueryItem = std::pair<std::string, std::string>;

// name=value joined by "&" in the given order; names and values percent-encoded, "/" and blank included.
std::string encodedQuery(const std::vector<QueryItem>& items);

// `base` with the components, each percent-encoded, appended to its path (less trailing slashes), and with
// the items as its query: no items, no query. Throws SyncClientError::invalidURL.
URL requestURL(const URL& base, const std::vector<std::string>& components,
               const std::vector<QueryItem>& query = {});

}  // namespace vorlinden
