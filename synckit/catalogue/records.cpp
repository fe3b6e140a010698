#include "synckit/catalogue/records.h"

#include <array>
#include <cstddef>

namespace vorlinden {

namespace {

constexpr std::string_view derivedDirectoryPrefix = "dir:";

// Raw values in the order of their enumerators.
constexpr std::array<std::string_view, 2> nodeKinds = {"text", "blob"};
constexpr std::array<std::string_view, 5> pendingChangeKinds = {"create", "update", "move", "delete",
                                                                "mkdir"};

template <class Enumeration, std::size_t size>
std::optional<Enumeration> parse(const std::array<std::string_view, size>& rawValues, std::string_view raw) {
    for (std::size_t index = 0; index < size; ++index) {
        if (rawValues[index] == raw) return static_cast<Enumeration>(index);
    }
    return std::nullopt;
}

}  // namespace

std::string_view rawValue(NodeKind kind) {
    return nodeKinds[static_cast<std::size_t>(kind)];
}

std::optional<NodeKind> nodeKindFromRawValue(std::string_view raw) {
    return parse<NodeKind>(nodeKinds, raw);
}

std::string_view rawValue(PendingChangeKind kind) {
    return pendingChangeKinds[static_cast<std::size_t>(kind)];
}

std::optional<PendingChangeKind> pendingChangeKindFromRawValue(std::string_view raw) {
    return parse<PendingChangeKind>(pendingChangeKinds, raw);
}

SyncItemIdentifier NodeRecord::identifier() const {
    return SyncItemIdentifier::node(brainId, nodeId);
}

std::string NodeRecord::filename() const {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string NodeRecord::parentPath() const {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

bool NodeRecord::isDerivedDirectory() const {
    return nodeId.starts_with(derivedDirectoryPrefix);
}

std::string NodeRecord::derivedDirectoryId(std::string_view path) {
    return std::string(derivedDirectoryPrefix).append(path);
}

}  // namespace vorlinden
