// The pure decisions of the write side: text or blob, may it go up, where does it lie. They touch no store,
// no network and no disk, never throw for what they judge, and may be called from any thread. A refusal is a
// value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "synckit/catalogue/item_identifier.h"
#include "synckit/catalogue/records.h"
#include "synckit/types.h"

namespace vorlinden {

// Why a local change can't be taken. Part of a plan, and thrown by whoever has to fail with it; what() is the
// sentence for the user.
struct UploadPlanError : Failure {
    struct InvalidPath {
        std::string path;
        bool operator==(const InvalidPath&) const = default;
    };
    struct JunkDestination {
        std::string name;
        bool operator==(const JunkDestination&) const = default;
    };
    struct TooLarge {
        std::int64_t size = 0;  // bytes
        bool operator==(const TooLarge&) const = default;
    };
    struct NoInboxBrain {
        bool operator==(const NoInboxBrain&) const = default;
    };
    struct MoveIntoSelf {
        bool operator==(const MoveIntoSelf&) const = default;
    };
    using Reason = std::variant<InvalidPath, JunkDestination, TooLarge, NoInboxBrain, MoveIntoSelf>;

    explicit UploadPlanError(Reason reason);
    static UploadPlanError invalidPath(std::string path) {
        return UploadPlanError(InvalidPath{std::move(path)});
    }
    static UploadPlanError junkDestination(std::string name) {
        return UploadPlanError(JunkDestination{std::move(name)});
    }
    static UploadPlanError tooLarge(std::int64_t size) { return UploadPlanError(TooLarge{size}); }
    static UploadPlanError noInboxBrain() { return UploadPlanError(NoInboxBrain{}); }
    static UploadPlanError moveIntoSelf() { return UploadPlanError(MoveIntoSelf{}); }

    std::string errorDescription() const { return what(); }

    Reason reason;
    bool operator==(const UploadPlanError&) const = default;
};

struct ContentClassification {
    struct Text {
        std::string text;
        bool operator==(const Text&) const = default;
    };
    struct Blob {
        Data data;  // the very bytes that were judged
        bool operator==(const Blob&) const = default;
    };
    std::variant<Text, Blob> value;
    bool operator==(const ContentClassification&) const = default;
};

struct ContentUploadPlan {
    struct Text {
        std::string text;
        bool operator==(const Text&) const = default;
    };
    struct Blob {
        Data data;
        std::string sha256;     // lower-case hexadecimal
        std::int64_t size = 0;  // bytes
        bool operator==(const Blob&) const = default;
    };
    struct TooLarge {
        std::int64_t size = 0;  // bytes
        bool operator==(const TooLarge&) const = default;
    };
    std::variant<Text, Blob, TooLarge> value;
    bool operator==(const ContentUploadPlan&) const = default;
};

struct CreatePlan {
    struct Upload {
        UUID brainId;
        std::string path;
        bool operator==(const Upload&) const = default;
    };
    // A junk name: it stays on this machine.
    struct LocalOnly {
        UUID brainId;
        std::string path;
        bool operator==(const LocalOnly&) const = default;
    };
    // A folder: a row in the catalogue, and nothing for the server, which makes folders with their files.
    struct LocalDirectoryOnly {
        UUID brainId;
        std::string path;
        bool operator==(const LocalDirectoryOnly&) const = default;
    };
    struct Rejected {
        UploadPlanError error;
        bool operator==(const Rejected&) const = default;
    };
    std::variant<Upload, LocalOnly, LocalDirectoryOnly, Rejected> value;
    bool operator==(const CreatePlan&) const = default;
};

struct MovePlan {
    struct Move {
        UUID brainId;
        std::string fromPath;
        std::string toPath;
        bool operator==(const Move&) const = default;
    };
    // The record is local-only: the catalogue alone changes.
    struct LocalOnly {
        UUID brainId;
        std::string fromPath;
        std::string toPath;
        bool operator==(const LocalOnly&) const = default;
    };
    struct Rejected {
        UploadPlanError error;
        bool operator==(const Rejected&) const = default;
    };
    struct NoChange {
        bool operator==(const NoChange&) const = default;
    };
    struct CrossBrainUnsupported {
        bool operator==(const CrossBrainUnsupported&) const = default;
    };
    std::variant<Move, LocalOnly, Rejected, NoChange, CrossBrainUnsupported> value;
    bool operator==(const MovePlan&) const = default;
};

namespace ContentClassifier {

inline constexpr std::size_t maxTextLength = 1024 * 1024;  // UTF-16 code units

// Text is valid UTF-8 without a byte-order mark or a NUL and not longer than maxTextLength; all else is a
// blob.
ContentClassification classify(const Data& data);
// SHA-256 in lower-case hexadecimal.
std::string blobHash(const Data& data);

}  // namespace ContentClassifier

namespace UploadPlanner {

inline constexpr std::int64_t maxUploadBytes = 100 * 1024 * 1024;
inline constexpr std::string_view crossBrainMessage =
    "Moving items between brains isn't supported. Copy the item instead.";

// How the content goes up. A blob plan shares the memory of `data`.
ContentUploadPlan planContentUpload(const Data& data);

// `parentPath` is the path of a `node` parent, absent if that node isn't known.
CreatePlan planCreate(const SyncItemIdentifier& parent, const std::optional<std::string>& parentPath,
                      const std::string& filename, bool isDirectory, const std::optional<UUID>& inboxBrainId);

// An absent name or parent stays as it is.
MovePlan planMove(const NodeRecord& record, const std::optional<std::string>& newName,
                  const std::optional<SyncItemIdentifier>& newParent,
                  const std::optional<std::string>& newParentPath, const std::optional<UUID>& inboxBrainId);
MovePlan planRename(const NodeRecord& record, const std::string& newName);
MovePlan planReparent(const NodeRecord& record, const SyncItemIdentifier& newParent,
                      const std::optional<std::string>& newParentPath,
                      const std::optional<UUID>& inboxBrainId);

// The brain that takes items made at the root: the preferred one if it exists, else the one with the slug
// "inbox", else the first by name. Absent only without brains.
std::optional<UUID> resolveInboxBrain(const std::vector<BrainRecord>& brains,
                                      const std::optional<UUID>& preferredId);

// The file's name without its extension.
std::string defaultTitle(std::string_view forPath);

}  // namespace UploadPlanner

}  // namespace vorlinden
