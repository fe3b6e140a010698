// The one gate to the catalogue: every read and write of the shared SQLite file, and the only SQL of the
// system.
//
// An object of identity, held by std::shared_ptr by all users in a process; several stores, in one process or
// many, may be open on one file. Every operation may be called from any thread: it takes the store's
// recursive lock for its whole duration and never suspends. Throws SQLiteError (code 5 after five seconds of
// a busy database) and MetadataStoreError::corruptRow; one corrupt row fails the whole read it is part of.
//
// Writes are single, literal statements: the store journals nothing by itself, keeps no paths of children in
// step and appends to `changes_log` only where told. Whoever changes the catalogue composes a unit with
// inTransaction().
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "synckit/catalogue/item_identifier.h"
#include "synckit/catalogue/records.h"
#include "synckit/catalogue/sqlite_database.h"
#include "synckit/catalogue/taken_paths.h"

namespace vorlinden::platform {
struct System;
}

namespace vorlinden {

// One catalogue item. The root has none.
struct SyncItem {
    std::variant<BrainRecord, NodeRecord> value;
    SyncItemIdentifier identifier() const;
    bool operator==(const SyncItem&) const = default;
};

// What happened since an anchor, each item once.
struct ChangeSet {
    std::vector<SyncItem> changed;
    std::vector<SyncItemIdentifier> deleted;
    std::int64_t anchor = 0;
    bool operator==(const ChangeSet&) const = default;
};

struct MetadataStoreError : Failure {
    struct UnknownBrain {
        UUID brainId;
        bool operator==(const UnknownBrain&) const = default;
    };
    struct ContainerUnavailable {
        std::string group;
        bool operator==(const ContainerUnavailable&) const = default;
    };
    struct CorruptRow {
        std::string text;
        bool operator==(const CorruptRow&) const = default;
    };
    using Reason = std::variant<UnknownBrain, ContainerUnavailable, CorruptRow>;

    explicit MetadataStoreError(Reason reason);
    static MetadataStoreError unknownBrain(UUID brainId) { return MetadataStoreError(UnknownBrain{brainId}); }
    static MetadataStoreError containerUnavailable(std::string group) {
        return MetadataStoreError(ContainerUnavailable{std::move(group)});
    }
    static MetadataStoreError corruptRow(std::string text) {
        return MetadataStoreError(CorruptRow{std::move(text)});
    }

    Reason reason;
    bool operator==(const MetadataStoreError&) const = default;
};

class MetadataStore {
 public:
    // Opens and migrates the file; its folder must exist.
    explicit MetadataStore(const std::string& path);
    // Creates the file's folder first, private to the user. Throws FileError when it can't.
    static std::shared_ptr<MetadataStore> open(const std::filesystem::path& file);
    // The catalogue of the group's shared container. Throws containerUnavailable when there is none.
    static std::shared_ptr<MetadataStore> openInAppGroup(const platform::System& system,
                                                         const std::string& identifier);
    // Where the catalogue lies in a container; does no I/O.
    static std::filesystem::path databaseURL(const std::filesystem::path& container);

    MetadataStore(const MetadataStore&) = delete;
    MetadataStore& operator=(const MetadataStore&) = delete;

    // Reads.
    std::vector<BrainRecord> brains();
    std::optional<BrainRecord> brain(const UUID& id);
    std::optional<std::string> cursor(const UUID& brainId);
    std::optional<NodeRecord> nodeById(const UUID& brainId, std::string_view nodeId);
    std::optional<NodeRecord> nodeByPath(const UUID& brainId, std::string_view path);
    std::vector<NodeRecord> allNodes(const UUID& brainId);
    std::vector<NodeRecord> children(const UUID& brainId, std::string_view parentPath);
    std::vector<NodeRecord> descendants(const UUID& brainId, std::string_view path);
    std::vector<NodeRecord> subtree(const UUID& brainId, std::string_view path);
    std::vector<SyncItem> enumerate(const SyncItemIdentifier& parent);
    std::optional<SyncItem> record(const SyncItemIdentifier& identifier);
    SyncItemIdentifier parentIdentifier(const NodeRecord& node);
    ChangeSet changes(std::int64_t since);
    std::int64_t currentAnchor();
    std::vector<PendingChange> pendingChanges(std::optional<UUID> brainId);
    std::optional<PendingChange> pendingChange(std::int64_t id);
    std::int64_t uploadErrorCount(const UUID& brainId);
    std::int64_t ownWriteCount(const UUID& brainId, std::string_view path);
    std::optional<std::string> meta(std::string_view key);

    // Writes.
    void upsertBrain(const BrainRecord& brain);
    void deleteBrain(const UUID& id);
    void setCursor(const std::optional<std::string>& cursor, const UUID& brainId);
    void upsert(const NodeRecord& node);
    bool deleteNode(const UUID& brainId, std::string_view nodeId);
    void updatePath(const UUID& brainId, std::string_view nodeId, std::string_view newPath);
    bool touchContent(const UUID& brainId, std::string_view nodeId);
    std::int64_t appendChange(const SyncItemIdentifier& identifier, bool deleted);
    std::int64_t enqueue(const PendingChange& change);
    void removePending(std::int64_t id);
    void rebasePending(std::int64_t id, const std::optional<std::string>& baseCursor);
    void redirectPendingMove(std::int64_t id, std::string_view path);
    void recordOwnWrite(const UUID& brainId, std::string_view path);
    bool consumeOwnWrite(const UUID& brainId, std::string_view path);
    void clearOwnWrites(const UUID& brainId);
    void setMeta(const std::optional<std::string>& value, std::string_view key);

    // Runs `body` (synchronous, no arguments) under the lock in one immediate transaction, or joins the one
    // that is open, and gives its value; a throw rolls all of it back. This is also how an operation holds
    // the lock for the whole of a call.
    template <class Body>
    auto inTransaction(Body&& body) -> std::invoke_result_t<Body> {
        std::lock_guard hold(lock_);
        if (database_.transactionDepth() > 0) return database_.transaction(true, std::forward<Body>(body));
        const TransactionScope scope(*this);
        return database_.transaction(true, [&]() -> std::invoke_result_t<Body> {
            if constexpr (std::is_void_v<std::invoke_result_t<Body>>) {
                std::forward<Body>(body)();
                runBeforeCommit();
            } else {
                std::invoke_result_t<Body> value = std::forward<Body>(body)();
                runBeforeCommit();
                return value;
            }
        });
    }

    // Only inside inTransaction(): `action` runs when the outermost body has ended well, just before the
    // commit, which its throw turns into a rollback. For what can be done once for many steps. Dropped after
    // a rollback.
    void beforeCommit(std::function<void()> action);
    // The paths that a new file of the brain may not take, as the running transaction sees them. Only inside
    // inTransaction(), at whose end the reference dies.
    const TakenPaths& takenPaths(const UUID& brainId);

 private:
    // Drops what belongs to the transaction when it has ended, whatever its end was.
    class TransactionScope {
     public:
        explicit TransactionScope(MetadataStore& store) : store_(store) {}
        ~TransactionScope() {
            store_.takenPaths_.clear();
            store_.beforeCommit_.clear();
        }
        TransactionScope(const TransactionScope&) = delete;
        TransactionScope& operator=(const TransactionScope&) = delete;

     private:
        MetadataStore& store_;
    };

    void runBeforeCommit();
    void requireTransaction(const char* operation) const;  // throws std::logic_error outside one

    // Taken after the execution lock and before SQLite's own; guards every use of database_.
    std::recursive_mutex lock_;
    SQLiteDatabase database_;
    // Of the running transaction: kept current by its writes, and run before its commit.
    std::unordered_map<UUID, TakenPaths> takenPaths_;
    std::vector<std::function<void()>> beforeCommit_;
};

}  // namespace vorlinden
