#include "synckit/catalogue/item_identifier.h"

#include <functional>
#include <utility>

namespace vorlinden {

namespace {

constexpr std::string_view rootText = "root";
constexpr std::string_view brainPrefix = "brain:";
constexpr std::string_view nodePrefix = "node:";
constexpr std::size_t uuidLength = 36;

std::optional<SyncItemIdentifier> parseBrain(std::string_view rest) {
    const auto brainId = UUID::parse(rest);
    if (!brainId) return std::nullopt;
    return SyncItemIdentifier::brain(*brainId);
}

// The node id may itself hold colons: only the one behind the UUID separates.
std::optional<SyncItemIdentifier> parseNode(std::string_view rest) {
    if (rest.size() < uuidLength + 2 || rest[uuidLength] != ':') return std::nullopt;
    const auto brainId = UUID::parse(rest.substr(0, uuidLength));
    if (!brainId) return std::nullopt;
    return SyncItemIdentifier::node(*brainId, std::string(rest.substr(uuidLength + 1)));
}

struct RawValue {
    std::string operator()(const SyncItemIdentifier::Brain& brain) const {
        return std::string(brainPrefix) + brain.brainId.upperText();
    }
    std::string operator()(const SyncItemIdentifier::Node& node) const {
        std::string raw;
        raw.reserve(nodePrefix.size() + uuidLength + 1 + node.nodeId.size());
        return raw.append(nodePrefix).append(node.brainId.upperText()).append(":").append(node.nodeId);
    }
    std::string operator()(SyncItemIdentifier::Root) const { return std::string(rootText); }
};

struct BrainId {
    std::optional<UUID> operator()(const SyncItemIdentifier::Brain& brain) const { return brain.brainId; }
    std::optional<UUID> operator()(const SyncItemIdentifier::Node& node) const { return node.brainId; }
    std::optional<UUID> operator()(SyncItemIdentifier::Root) const { return std::nullopt; }
};

}  // namespace

std::optional<SyncItemIdentifier> SyncItemIdentifier::fromRawValue(std::string_view raw) {
    if (raw == rootText) return root();
    if (raw.starts_with(brainPrefix)) return parseBrain(raw.substr(brainPrefix.size()));
    if (raw.starts_with(nodePrefix)) return parseNode(raw.substr(nodePrefix.size()));
    return std::nullopt;
}

std::string SyncItemIdentifier::rawValue() const {
    return std::visit(RawValue{}, value);
}

std::optional<UUID> SyncItemIdentifier::brainId() const {
    return std::visit(BrainId{}, value);
}

}  // namespace vorlinden

std::size_t std::hash<vorlinden::SyncItemIdentifier>::operator()(
    const vorlinden::SyncItemIdentifier& id) const {
    const auto brainId = id.brainId();
    const auto* node = std::get_if<vorlinden::SyncItemIdentifier::Node>(&id.value);
    std::size_t seed = id.value.index();
    if (brainId) seed = seed * 31 + std::hash<vorlinden::UUID>()(*brainId);
    if (node) seed = seed * 31 + std::hash<std::string>()(node->nodeId);
    return seed;
}
