// How an identifier is stored in JSON.
#include "platform/json.h"
#include "synckit/catalogue/item_identifier.h"

namespace vorlinden {

SyncItemIdentifier SyncItemIdentifier::fromJSON(const platform::JSONValue& json) {
    const std::string_view raw = json.text();
    auto identifier = fromRawValue(raw);
    if (!identifier) throw json.corrupted(std::string("Invalid item identifier: ").append(raw));
    return *std::move(identifier);
}

platform::JSONText toJSON(const SyncItemIdentifier& identifier) {
    return platform::toJSON(identifier.rawValue());
}

}  // namespace vorlinden
