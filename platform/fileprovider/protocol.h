// The file provider protocol: what a file provider daemon and an extension say to each other. The extension
// offers ReplicatedExtension and Enumerator; the daemon offers observers, handlers and Manager. Neither knows
// the other's insides.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/data.h"
#include "platform/failure.h"
#include "platform/file_types.h"
#include "platform/fileprovider/progress.h"
#include "platform/timestamp.h"

namespace vorlinden::platform::fileprovider {

// An opaque name for an item, unique in its domain, stored and handed back unchanged.
using ItemIdentifier = std::string;
inline const ItemIdentifier rootContainerItemIdentifier = "NSFileProviderRootContainerItemIdentifier";
inline const ItemIdentifier workingSetContainerItemIdentifier =
    "NSFileProviderWorkingSetContainerItemIdentifier";
inline const ItemIdentifier trashContainerItemIdentifier = "NSFileProviderTrashContainerItemIdentifier";

using SyncAnchor = Data;

// One error value: domain, code and, where a person is to read it, a text.
struct Error : Failure {
    Error(std::string domain, std::int64_t code, std::optional<std::string> text = {});
    std::string domain;
    std::int64_t code;
    std::optional<std::string> text;
    bool operator==(const Error&) const = default;
};

inline const std::string errorDomain = "NSFileProviderErrorDomain";
inline const std::string cocoaErrorDomain = "NSCocoaErrorDomain";

enum ErrorCode : std::int64_t {
    notAuthenticated = -1000,
    syncAnchorExpired = -1002,
    serverUnreachable = -1004,
    noSuchItem = -1005,
    cannotSynchronize = -2005,
};
inline constexpr std::int64_t userCancelled = 3072;  // in cocoaErrorDomain

struct ItemVersion {
    Data contentVersion;
    Data metadataVersion;
    bool operator==(const ItemVersion&) const = default;
};

enum Capability : std::uint32_t {
    allowsReading = 1,  // also enumerating a folder
    allowsWriting = 2,  // also adding to a folder
    allowsReparenting = 4,
    allowsRenaming = 8,
    allowsTrashing = 16,
    allowsDeleting = 32,
};

enum ItemField : std::uint32_t { contentsField = 1, filenameField = 2, parentItemIdentifierField = 4 };

// An item as it stood at one moment. A value.
struct Item {
    ItemIdentifier itemIdentifier;
    ItemIdentifier parentItemIdentifier;
    std::string filename;
    FileType contentType;
    ItemVersion itemVersion;
    std::uint32_t capabilities = 0;
    std::optional<std::int64_t> documentSize;  // bytes
    std::optional<Timestamp> contentModificationDate;
    std::optional<Timestamp> creationDate;
    std::optional<Error> uploadingError;
    bool operator==(const Item&) const = default;
};

// What createItem reads of the item to be made.
struct ItemTemplate {
    ItemIdentifier parentItemIdentifier;
    std::string filename;
    std::optional<FileType> contentType;
};

struct Domain {
    std::string identifier;
    std::string displayName;
    bool operator==(const Domain&) const = default;
};

struct Request {};  // who asks; no extension of ours looks at it
struct Page {};     // a position in a listing; never used, since listings come whole

// Receives one listing: items, then exactly one of the two ends.
class EnumerationObserver {
 public:
    virtual ~EnumerationObserver() = default;
    virtual void didEnumerateItems(std::vector<Item> items) = 0;
    virtual void finishEnumerating(std::optional<Page> nextPage) = 0;
    virtual void finishEnumeratingWithError(Error error) = 0;
};

// Receives one change set: updates, deletions, then exactly one of the two ends.
class ChangeObserver {
 public:
    virtual ~ChangeObserver() = default;
    virtual void didUpdateItems(std::vector<Item> items) = 0;
    virtual void didDeleteItems(std::vector<ItemIdentifier> identifiers) = 0;
    virtual void finishEnumeratingChanges(SyncAnchor anchor, bool moreComing) = 0;
    virtual void finishEnumeratingWithError(Error error) = 0;
};

// Calls reply on the calling thread before they return. May be called from any thread.
class Enumerator {
 public:
    virtual ~Enumerator() = default;
    virtual void enumerateItems(EnumerationObserver& observer, std::optional<Page> page) = 0;
    virtual void enumerateChanges(ChangeObserver& observer, const SyncAnchor& anchor) = 0;
    virtual void currentSyncAnchor(const std::function<void(std::optional<SyncAnchor>)>& handler) = 0;
    virtual void invalidate() = 0;
};

using ItemHandler = std::function<void(std::optional<Item>, std::optional<Error>)>;
// The file belongs to the daemon from then on.
using FetchHandler =
    std::function<void(std::optional<std::filesystem::path>, std::optional<Item>, std::optional<Error>)>;
// Item, remaining fields, whether the content must be fetched anew, error.
using WriteHandler = std::function<void(std::optional<Item>, std::uint32_t, bool, std::optional<Error>)>;
using DeleteHandler = std::function<void(std::optional<Error>)>;

// The content that goes with a create or an edit: a file that stays readable and unchanged until the handler
// was called. Best is a frozen one (see FileSystem::readOrMap()), which the extension maps; any other it
// reads into memory, once, before the operation returns, unless it is over the limit for uploads.
using Contents = std::optional<std::filesystem::path>;

// One object per domain. Operations may be called on any thread, at the same time; each handler is called
// exactly once, on any thread, possibly before the operation returns. Cancelling the progress ends the
// operation soon.
//
// A write that succeeds gives the item as it stands now, which is the truth for the daemon: identifier, name
// and parent may be others than were asked for (a name that was taken, a copy in place of a refused file),
// and an upload error may say why something stays here. After serverUnreachable, and after a cancellation, a
// change may wait in the journal and go up later without the daemon.
class ReplicatedExtension {
 public:
    virtual ~ReplicatedExtension() = default;
    virtual void invalidate() = 0;
    virtual std::shared_ptr<Progress> itemForIdentifier(const ItemIdentifier& identifier,
                                                        const Request& request, ItemHandler handler) = 0;
    // Throws Error.
    virtual std::shared_ptr<Enumerator> enumeratorForContainer(const ItemIdentifier& container,
                                                               const Request& request) = 0;
    virtual std::shared_ptr<Progress> fetchContents(const ItemIdentifier& identifier,
                                                    const std::optional<ItemVersion>& version,
                                                    const Request& request, FetchHandler handler) = 0;
    virtual std::shared_ptr<Progress> createItem(const ItemTemplate& item, std::uint32_t fields,
                                                 const Contents& contents, std::uint32_t options,
                                                 const Request& request, WriteHandler handler) = 0;
    virtual std::shared_ptr<Progress> modifyItem(const Item& item, const ItemVersion& baseVersion,
                                                 std::uint32_t changedFields, const Contents& contents,
                                                 std::uint32_t options, const Request& request,
                                                 WriteHandler handler) = 0;
    virtual std::shared_ptr<Progress> deleteItem(const ItemIdentifier& identifier,
                                                 const ItemVersion& baseVersion, std::uint32_t options,
                                                 const Request& request, DeleteHandler handler) = 0;
};

// What the daemon offers to a domain's extension and host. Thread-safe.
class Manager {
 public:
    virtual ~Manager() = default;
    // The daemon will soon ask the container for its changes. The handler hears a failure, or nothing.
    virtual void signalEnumerator(const ItemIdentifier& container,
                                  std::function<void(std::optional<Error>)> handler) = 0;
    // A writable folder whose files the daemon takes over. Throws FileError.
    virtual std::filesystem::path temporaryDirectory() = 0;
};

}  // namespace vorlinden::platform::fileprovider
