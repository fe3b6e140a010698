#include "synckit/server/request_url.h"

#include "synckit/server/sync_errors.h"

namespace vorlinden {
namespace {

std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const auto& part : parts)
        text += (&part == &parts.front() ? "" : "/") + part;
    return text;
}

}  // namespace

std::string encodedQuery(const std::vector<QueryItem>& items) {
    std::string query;
    for (const auto& [name, value] : items) {
        if (!query.empty()) query += '&';
        query += platform::percentEncoded(name) + '=' + platform::percentEncoded(value);
    }
    return query;
}

URL requestURL(const URL& base, const std::vector<std::string>& components,
               const std::vector<QueryItem>& query) {
    auto path = base.encodedPath();
    while (path.ends_with('/'))
        path.pop_back();
    for (const auto& component : components)
        path += '/' + platform::percentEncoded(component);
    const auto encoded = query.empty() ? std::nullopt : std::optional(encodedQuery(query));
    if (auto url = base.with(path, encoded)) return *url;
    throw SyncClientError::invalidURL(joined(components));
}

}  // namespace vorlinden
