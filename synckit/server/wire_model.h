// The values that the sync server sends and takes, named as its JSON keys are.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "synckit/catalogue/records.h"
#include "synckit/types.h"

namespace vorlinden {

struct Brain {
    std::string id;
    std::string teamId;
    std::string name;
    std::string slug;
    std::optional<std::string> headCursor;
    bool operator==(const Brain&) const = default;
};

struct Device {
    std::string id;
    std::string name;
    std::string platform;
    Timestamp createdAt{};
    std::optional<Timestamp> lastSeenAt;
    bool operator==(const Device&) const = default;
};

enum class AuthorKind { member, agent };

struct Author {
    AuthorKind kind = AuthorKind::member;
    std::string memberId;
    std::optional<std::string> harness;
    bool operator==(const Author&) const = default;
};

// One change in a brain's feed. Ops name paths, never node ids.
struct Op {
    struct Create {
        std::string path;
        std::string title;
        std::vector<std::string> tags;
        bool isDirectory = false;
        std::optional<NodeKind> nodeKind;
        bool operator==(const Create&) const = default;
    };
    struct Update {
        std::string path;
        std::optional<std::string> title;
        std::optional<std::vector<std::string>> tags;
        bool bodyChanged = false;
        std::optional<NodeKind> nodeKind;
        bool operator==(const Update&) const = default;
    };
    struct Move {
        std::string path;
        std::string newPath;
        bool operator==(const Move&) const = default;
    };
    struct Mkdir {
        std::string path;
        std::string title;
        bool operator==(const Mkdir&) const = default;
    };
    struct Delete {
        std::string path;
        bool operator==(const Delete&) const = default;
    };
    std::variant<Create, Update, Move, Mkdir, Delete> value;

    const std::string& path() const;
    // The kind of a created or updated node, text when it isn't told; absent for the others.
    std::optional<NodeKind> effectiveNodeKind() const;
    bool isBlob() const;
    bool operator==(const Op&) const = default;
};

struct FeedEntry {
    std::string cursor;
    Timestamp at{};
    Author author;
    std::vector<Op> ops;
    bool operator==(const FeedEntry&) const = default;
};

struct SnapshotNode {
    std::string nodeId;
    std::string path;
    std::string title;
    bool isDirectory = false;
    NodeKind kind = NodeKind::text;
    std::optional<std::string> blobHash;
    std::optional<std::int64_t> blobSize;  // bytes
    Timestamp updatedAt{};
    bool operator==(const SnapshotNode&) const = default;
};

struct ChangesResponse {
    struct Incremental {
        std::vector<FeedEntry> entries;
        std::optional<std::string> cursor;
        bool operator==(const Incremental&) const = default;
    };
    struct Reset {
        std::vector<SnapshotNode> snapshot;
        std::optional<std::string> cursor;
        bool operator==(const Reset&) const = default;
    };
    std::variant<Incremental, Reset> value;
    bool operator==(const ChangesResponse&) const = default;
};

struct NodeRef {
    std::string nodeId;
    std::string path;
    bool operator==(const NodeRef&) const = default;
};

struct WriteResult {
    NodeRef node;
    std::string cursor;
    bool operator==(const WriteResult&) const = default;
};

struct DeleteResult {
    bool deleted = false;
    std::optional<std::string> cursor;
    bool operator==(const DeleteResult&) const = default;
};

struct BlobReceipt {
    std::string hash;
    std::int64_t size = 0;  // bytes
    bool operator==(const BlobReceipt&) const = default;
};

// The content of a file as the server delivers it.
struct DownloadedFile {
    struct Text {
        std::string content;
        bool operator==(const Text&) const = default;
    };
    struct Blob {
        Data bytes;
        bool operator==(const Blob&) const = default;
    };
    std::variant<Text, Blob> value;
    bool operator==(const DownloadedFile&) const = default;
};

struct TextFileEnvelope {
    std::string path;
    std::string at;  // a cursor, not a timestamp
    std::string content;
};
struct BrainsEnvelope {
    std::vector<Brain> brains;
};
struct DevicesEnvelope {
    std::vector<Device> devices;
};
struct DeviceEnvelope {
    Device device;
};

}  // namespace vorlinden
