// File content on disk: one file per content, complete or absent, bounded, oldest out first.
#pragma once

#include <cstdint>
#include <filesystem>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "linux/mount/content_key.h"
#include "linux/mount/content_sizes.h"
#include "linux/mount/content_store.h"
#include "platform/seams.h"

namespace vorlinden::mount {

// Held by std::shared_ptr by the store and by every open content. Thread-safe; does short operations on the
// local disk under its lock, which is inner to the store's. Files are 0600 in a folder of 0700; `sizes`
// beside them remembers what each must measure, so that one damaged by a power cut is dropped when found.
// Only adopt() fails; everything else that goes wrong on disk counts as content that isn't here.
class ContentCache : public std::enable_shared_from_this<ContentCache> {
 public:
    // Makes the folder and takes up what an earlier run left there. Throws platform::FileError.
    static std::shared_ptr<ContentCache> open(const std::filesystem::path& folder, std::uint64_t maximumBytes,
                                              std::shared_ptr<platform::Clock> clock);

    // The content of the item's version, made the youngest; null if it isn't here.
    std::shared_ptr<const Content> find(const Item& item);
    bool contains(const Item& item);
    // Takes the file over as the content of `item`. Where the folder can't take it, the content is served all
    // the same, from a file without a name. Throws platform::FileError if the file can't be opened.
    std::shared_ptr<const Content> adopt(const std::filesystem::path& file, const Item& item);

    std::optional<std::uint64_t> knownSize(const Item& item);

    // Drops what is here of the item at other versions; whether there was any. Those who hold it keep it.
    bool dropOtherVersions(const Item& item);
    void dropItem(const ItemIdentifier& identifier);
    // Gives so many bytes back to a disk that is full; nothing, if that many aren't here.
    void dropOldest(std::uint64_t bytes);

 private:
    class OpenFile;
    class CachedContent;
    using Ages = std::list<ContentKey>;  // oldest first
    struct Entry {
        std::uint64_t bytes = 0;
        platform::Timestamp touched;  // the file's modification time
        Ages::iterator age;
        std::weak_ptr<OpenFile> open;
    };
    using Entries = std::map<ContentKey, Entry>;

    ContentCache(std::filesystem::path folder, std::uint64_t maximumBytes,
                 std::shared_ptr<platform::Clock> clock);

    // All under mutex_.
    void load();
    std::shared_ptr<OpenFile> openFile(Entries::iterator entry);
    void enter(const ContentKey& key, std::uint64_t bytes, platform::Timestamp touched);
    void touch(Entry& entry, const OpenFile& file);
    bool moveHere(const std::filesystem::path& file, const ContentKey& key);
    Entries::iterator erase(Entries::iterator entry);
    void evict(std::uint64_t downTo);
    std::filesystem::path pathOf(const ContentKey& key) const { return contents_ / key.fileName(); }

    void released();

    const std::filesystem::path contents_;
    const std::uint64_t maximumBytes_;
    const std::shared_ptr<platform::Clock> clock_;

    std::mutex mutex_;  // guards the fields below; no OpenFile dies under it
    ContentSizes sizes_;
    Entries entries_;
    Ages ages_;
    std::uint64_t totalBytes_ = 0;
};

}  // namespace vorlinden::mount
