// The one form of an item's name between the catalogue and the platform.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "synckit/types.h"

namespace vorlinden::platform {
class JSONValue;
struct JSONText;
}  // namespace vorlinden::platform

namespace vorlinden {

// "brain:" + UUID, "node:" + UUID + ":" + node id, or "root". A value.
struct SyncItemIdentifier {
    struct Brain {
        UUID brainId;
        bool operator==(const Brain&) const = default;
    };
    struct Node {
        UUID brainId;
        std::string nodeId;
        bool operator==(const Node&) const = default;
    };
    struct Root {
        bool operator==(const Root&) const = default;
    };
    std::variant<Brain, Node, Root> value = Root{};

    static SyncItemIdentifier brain(UUID brainId) { return {Brain{brainId}}; }
    static SyncItemIdentifier node(UUID brainId, std::string nodeId) {
        return {Node{brainId, std::move(nodeId)}};
    }
    static SyncItemIdentifier root() { return {Root{}}; }

    // Accepts a UUID in either case; absent for anything else than the three forms.
    static std::optional<SyncItemIdentifier> fromRawValue(std::string_view raw);
    std::string rawValue() const;
    // The UUID of a brain or node; absent for the root.
    std::optional<UUID> brainId() const;

    // A JSON string that holds `rawValue`. Throws JSONError (corrupted) for text that isn't an identifier.
    static SyncItemIdentifier fromJSON(const platform::JSONValue& json);

    bool operator==(const SyncItemIdentifier&) const = default;
};

platform::JSONText toJSON(const SyncItemIdentifier& identifier);

}  // namespace vorlinden

template <>
struct std::hash<vorlinden::SyncItemIdentifier> {
    std::size_t operator()(const vorlinden::SyncItemIdentifier& id) const;
};
