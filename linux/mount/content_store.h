// File content for the mount: fetched through the extension once per item and content version, whole, kept in
// a folder that may be deleted at any time, shared by all who read it.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/fileprovider/protocol.h"
#include "platform/system.h"

namespace vorlinden::mount {

using platform::fileprovider::Item;
using platform::fileprovider::ItemIdentifier;
using platform::fileprovider::ReplicatedExtension;

// The bytes of one item at one content version: a read-only descriptor, good for pread(2) from any thread.
// Whoever holds it keeps the file from eviction; the descriptor stays good even if the cache folder is
// deleted.
class Content {
 public:
    virtual ~Content() = default;
    virtual int descriptor() const = 0;
    virtual std::uint64_t size() const = 0;  // bytes
    // The item that the bytes belong to: its content version is theirs. It came with the bytes, so it may be
    // newer than the one that was asked for; the asker then knows that the item has moved on.
    virtual const Item& item() const = 0;
};

// Why content could not be had. A value; `sentence` is for a person, without a path.
struct ContentFailure {
    enum class Kind {
        unreachable,      // the server gave no answer, or is known to be out of reach
        timedOut,         // this reader's deadline passed; the fetch goes on for those who wait longer
        signedOut,        // nobody is signed in
        gone,             // the server or the catalogue has no such content now
        extensionFailed,  // the extension's catalogue did not open
        noSpace,          // the local disk is full
        localDisk,        // any other trouble with the cache folder
        cancelled,        // this reader gave up
    };
    Kind kind;
    std::string sentence;
    bool operator==(const ContentFailure&) const = default;
};

using ContentResult = std::variant<std::shared_ptr<const Content>, ContentFailure>;

// What is known of the road to the server, from the outcome of the latest fetches.
enum class Reachability { unknown, reachable, unreachable, signedOut };

// Thread-safe. Every handler and listener is called without any lock of the store held, on any thread.
class ContentStore {
 public:
    using Handler = std::function<void(ContentResult)>;

    // One reader's wait. Dropping it changes nothing.
    class Wait {
     public:
        virtual ~Wait() = default;
        // The handler is called with `cancelled`, before this returns, unless it was or is being called. The
        // fetch itself ends when nobody waits for it and it wasn't asked for ahead.
        virtual void cancel() = 0;
    };

    virtual ~ContentStore() = default;

    // The content of `item`'s version if it is here, without waiting for anything but the local disk; null
    // otherwise.
    virtual std::shared_ptr<const Content> openIfHere(const Item& item) = 0;

    // The content of `item`: what is here at that version, else fetched. One fetch serves all who ask for the
    // same item and version meanwhile. `handler` is called exactly once, possibly before open() returns;
    // after `deadline` at the latest, and at once while the server is known to be out of reach (the store
    // finds out by itself, with growing pauses, when that ends; a reader is never its probe twice within a
    // second).
    virtual std::shared_ptr<Wait> open(const Item& item, std::chrono::milliseconds deadline,
                                       Handler handler) = 0;

    // The size of that item's content at that version, if it was ever known on this machine: remembered
    // across restarts and evictions. Answers from memory.
    virtual std::optional<std::uint64_t> knownSize(const Item& item) = 0;

    // Fetches what isn't here, in the given order, after those who wait; several at a time. Folders, items
    // that are here or already asked for are passed over. Failures are dropped.
    virtual void fetchAhead(std::vector<Item> items) = 0;

    // These items now stand as given: other versions of their content are dropped once nobody holds them, and
    // text (no documentSize) that was here at another version is fetched ahead.
    virtual void itemsChanged(const std::vector<Item>& items) = 0;
    // These are gone: nothing of them is kept once nobody holds it.
    virtual void itemsDeleted(const std::vector<ItemIdentifier>& identifiers) = 0;

    virtual bool isFetching(const ItemIdentifier& identifier) = 0;
    virtual Reachability reachability() = 0;

    // Ends all fetches; every waiting handler hears `cancelled` before this returns, and later calls are
    // answered only from what is here. Called before the store is destroyed.
    virtual void shutDown() = 0;
};

struct ContentStoreOptions {
    std::filesystem::path folder;                          // the store's own; made with mode 0700 if missing
    std::uint64_t maximumBytes = std::uint64_t{10} << 30;  // held open content may exceed it for a while
    unsigned parallelFetches = 64;
};

// What the store leans on. `extension` gives the one to ask at this moment, or null while there is none (the
// answer is then `extensionFailed`). `failed` hears each fetch that failed for want of more than a cancel,
// `reachabilityChanged` each change of reachability(). All are called on threads of the store's choosing.
struct ContentStoreSurroundings {
    std::function<std::shared_ptr<ReplicatedExtension>()> extension;
    std::function<void(const Item&, const ContentFailure&)> failed;
    std::function<void(Reachability)> reachabilityChanged;
};

// Opens what an earlier run left in the folder; anything broken in it is dropped, never an error. Throws
// platform::FileError if the folder can't be made or written.
std::shared_ptr<ContentStore> openContentStore(platform::System system, ContentStoreOptions options,
                                               ContentStoreSurroundings surroundings);

}  // namespace vorlinden::mount
