// The rows of the catalogue as plain values, and the keys of its settings.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "synckit/catalogue/item_identifier.h"
#include "synckit/types.h"

namespace vorlinden {

// The form of a node's content. Folders carry one too.
enum class NodeKind { text, blob };
std::string_view rawValue(NodeKind kind);
std::optional<NodeKind> nodeKindFromRawValue(std::string_view raw);

// A top-level container that the user has been granted.
struct BrainRecord {
    UUID brainId;
    std::string slug;
    std::string name;
    std::optional<std::string> cursor;  // the feed position up to which the catalogue is applied
    bool operator==(const BrainRecord&) const = default;
};

// A file or folder of a brain.
struct NodeRecord {
    UUID brainId;
    std::string nodeId;  // the server's, "dir:" + path, or "local:" + UUID
    std::string path;    // inside the brain, components joined by "/", none at either end
    std::string title;
    bool isDirectory = false;
    NodeKind kind = NodeKind::text;
    std::optional<std::string> blobHash;
    std::optional<std::int64_t> blobSize;  // bytes
    Timestamp updatedAt{};
    std::int64_t contentVersion = 0;  // a local counter, raised by 1 each time the content changes
    bool localOnly = false;           // the server has no counterpart of this row that can be fetched
    std::optional<std::string> uploadError;
    bool operator==(const NodeRecord&) const = default;

    SyncItemIdentifier identifier() const;
    std::string filename() const;
    std::string parentPath() const;
    bool isDerivedDirectory() const;

    static std::string derivedDirectoryId(std::string_view path);
};

enum class PendingChangeKind { create, update, move, remove, mkdir };  // `remove` is stored as "delete"
std::string_view rawValue(PendingChangeKind kind);
std::optional<PendingChangeKind> pendingChangeKindFromRawValue(std::string_view raw);

// A row of the journal: a local change that waits for the server.
struct PendingChange {
    std::optional<std::int64_t> id;  // absent until stored
    UUID brainId;
    std::optional<std::string> nodeId;
    PendingChangeKind changeKind = PendingChangeKind::create;
    std::string path;  // for a move, the destination
    std::optional<std::string> fromPath;
    std::optional<std::string> baseCursor;
    Timestamp createdAt{};
    bool operator==(const PendingChange&) const = default;
};

namespace MetaKey {
inline constexpr std::string_view clientId = "client_id";
inline constexpr std::string_view deviceId = "device_id";
inline constexpr std::string_view deviceName = "device_name";
inline constexpr std::string_view inboxBrainId = "inbox_brain_id";
inline constexpr std::string_view conflictEvents = "conflict_events";
}  // namespace MetaKey

}  // namespace vorlinden
