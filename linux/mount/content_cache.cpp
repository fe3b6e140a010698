#include "linux/mount/content_cache.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/descriptor.h"
#include "platform/files.h"

namespace vorlinden::mount {

using platform::Descriptor;
using platform::Timestamp;

namespace {

// A file's age on disk only orders what the next run finds, so it need not be exact.
constexpr std::chrono::seconds touchInterval{60};

Timestamp modificationTime(const struct stat& status) {
    return Timestamp(std::chrono::milliseconds(std::int64_t{status.st_mtim.tv_sec} * 1000 +
                                               status.st_mtim.tv_nsec / 1'000'000));
}

void setModificationTime(int descriptor, Timestamp time) {
    const std::int64_t milliseconds = time.time_since_epoch().count();
    const timespec both{.tv_sec = milliseconds / 1000, .tv_nsec = milliseconds % 1000 * 1'000'000};
    const timespec times[2] = {both, both};
    ::futimens(descriptor, times);  // an age that stays as it was is none the worse
}

// 0, or the errno of the failure.
int renameFile(const std::filesystem::path& from, const std::filesystem::path& to) {
    return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

std::uint64_t sizeOf(const Descriptor& file, const std::filesystem::path& path) {
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) throw platform::errnoFailure(path);
    return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace

// One descriptor for all who read the same content. Gone with the last of them, outside the cache's lock.
class ContentCache::OpenFile {
 public:
    OpenFile(std::shared_ptr<ContentCache> cache, Descriptor file, std::uint64_t bytes)
        : cache_(std::move(cache)), file_(std::move(file)), bytes_(bytes) {}
    ~OpenFile() { cache_->released(); }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    int descriptor() const { return file_.get(); }
    std::uint64_t size() const { return bytes_; }

 private:
    const std::shared_ptr<ContentCache> cache_;
    const Descriptor file_;
    const std::uint64_t bytes_;
};

// What one asker gets: the shared file, and the item as the asker knows it.
class ContentCache::CachedContent final : public Content {
 public:
    CachedContent(std::shared_ptr<OpenFile> file, Item item)
        : file_(std::move(file)), item_(std::move(item)) {}
    int descriptor() const override { return file_->descriptor(); }
    std::uint64_t size() const override { return file_->size(); }
    const Item& item() const override { return item_; }

 private:
    const std::shared_ptr<OpenFile> file_;
    const Item item_;
};

std::shared_ptr<ContentCache> ContentCache::open(const std::filesystem::path& folder,
                                                 std::uint64_t maximumBytes,
                                                 std::shared_ptr<platform::Clock> clock) {
    platform::posixFileSystem()->createDirectories(folder / "contents");
    std::shared_ptr<ContentCache> cache(new ContentCache(folder, maximumBytes, std::move(clock)));
    std::lock_guard hold(cache->mutex_);
    cache->load();
    cache->evict(maximumBytes);
    return cache;
}

ContentCache::ContentCache(std::filesystem::path folder, std::uint64_t maximumBytes,
                           std::shared_ptr<platform::Clock> clock)
    : contents_(folder / "contents"),
      maximumBytes_(maximumBytes),
      clock_(std::move(clock)),
      sizes_(folder / "sizes") {}

// What can't be vouched for goes: a name of another form, a size other than the remembered one.
void ContentCache::load() {
    struct Found {
        ContentKey key;
        std::uint64_t bytes;
        Timestamp touched;
    };
    std::vector<Found> found;
    for (const std::string& name : platform::posixFileSystem()->list(contents_)) {
        const auto key = ContentKey::fromFileName(name);
        struct stat status {};
        const bool isFile = ::lstat((contents_ / name).c_str(), &status) == 0 && S_ISREG(status.st_mode);
        const auto bytes = static_cast<std::uint64_t>(status.st_size);
        if (key && isFile && sizes_.find(*key) == bytes) {
            found.push_back({*key, bytes, modificationTime(status)});
        } else {
            std::error_code ignored;
            std::filesystem::remove_all(contents_ / name, ignored);
        }
    }
    std::ranges::sort(found, {}, &Found::touched);
    for (const Found& file : found)
        enter(file.key, file.bytes, file.touched);
}

std::shared_ptr<const Content> ContentCache::find(const Item& item) {
    const ContentKey key = ContentKey::of(item);
    std::shared_ptr<OpenFile> file;
    {
        std::lock_guard hold(mutex_);
        const auto entry = entries_.find(key);
        if (entry == entries_.end()) return nullptr;
        file = openFile(entry);
    }
    return file ? std::make_shared<CachedContent>(std::move(file), item) : nullptr;
}

// Null if the file has gone, or isn't what was put there; its entry goes too.
std::shared_ptr<ContentCache::OpenFile> ContentCache::openFile(Entries::iterator entry) {
    ages_.splice(ages_.end(), ages_, entry->second.age);
    auto file = entry->second.open.lock();
    if (!file) {
        Descriptor opened(::open(pathOf(entry->first).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
        struct stat status {};
        const bool good = opened && ::fstat(opened.get(), &status) == 0 &&
                          static_cast<std::uint64_t>(status.st_size) == entry->second.bytes;
        if (!good) {
            erase(entry);
            return nullptr;
        }
        file = std::make_shared<OpenFile>(shared_from_this(), std::move(opened), entry->second.bytes);
        entry->second.open = file;
    }
    touch(entry->second, *file);
    return file;
}

void ContentCache::touch(Entry& entry, const OpenFile& file) {
    const Timestamp now = clock_->now();
    if (now - entry.touched < touchInterval) return;
    entry.touched = now;
    setModificationTime(file.descriptor(), now);
}

bool ContentCache::contains(const Item& item) {
    const ContentKey key = ContentKey::of(item);
    std::lock_guard hold(mutex_);
    return entries_.contains(key);
}

std::optional<std::uint64_t> ContentCache::knownSize(const Item& item) {
    const ContentKey key = ContentKey::of(item);
    std::lock_guard hold(mutex_);
    return sizes_.find(key);
}

std::shared_ptr<const Content> ContentCache::adopt(const std::filesystem::path& file, const Item& item) {
    const ContentKey key = ContentKey::of(item);
    Descriptor opened = Descriptor::open(file, O_RDONLY | O_NOFOLLOW);
    const std::uint64_t bytes = sizeOf(opened, file);
    const Timestamp now = clock_->now();
    setModificationTime(opened.get(), now);
    auto open = std::make_shared<OpenFile>(shared_from_this(), std::move(opened), bytes);
    {
        std::lock_guard hold(mutex_);
        sizes_.remember(key, bytes);
        if (moveHere(file, key)) {
            enter(key, bytes, now);
            entries_.at(key).open = open;
            evict(maximumBytes_);
        }
    }
    return std::make_shared<CachedContent>(std::move(open), item);
}

// False if it couldn't be done; the file then has no name any more.
bool ContentCache::moveHere(const std::filesystem::path& file, const ContentKey& key) {
    const auto target = pathOf(key);
    const auto files = platform::posixFileSystem();
    try {
        int code = renameFile(file, target);
        if (code == ENOENT) {  // somebody deleted the whole folder
            files->createDirectories(contents_);
            code = renameFile(file, target);
        }
        if (code == 0) return true;
        if (code == EXDEV) {
            files->writeUnflushed(files->read(file), target);
            files->remove(file);
            return true;
        }
    } catch (const platform::FileError&) {
        // Not kept, then.
    }
    ::unlink(file.c_str());
    return false;
}

void ContentCache::enter(const ContentKey& key, std::uint64_t bytes, Timestamp touched) {
    if (const auto old = entries_.find(key); old != entries_.end()) {
        totalBytes_ -= old->second.bytes;
        ages_.erase(old->second.age);
        entries_.erase(old);
    }
    ages_.push_back(key);
    entries_.emplace(key, Entry{bytes, touched, std::prev(ages_.end()), {}});
    totalBytes_ += bytes;
}

ContentCache::Entries::iterator ContentCache::erase(Entries::iterator entry) {
    ::unlink(pathOf(entry->first).c_str());
    totalBytes_ -= entry->second.bytes;
    ages_.erase(entry->second.age);
    return entries_.erase(entry);
}

// What is open stays, and is looked at again when it is closed.
void ContentCache::evict(std::uint64_t downTo) {
    for (auto oldest = ages_.begin(); totalBytes_ > downTo && oldest != ages_.end();) {
        const auto entry = entries_.find(*oldest++);
        if (entry->second.open.expired()) erase(entry);
    }
}

void ContentCache::released() {
    std::lock_guard hold(mutex_);
    evict(maximumBytes_);
}

bool ContentCache::dropOtherVersions(const Item& item) {
    const ContentKey current = ContentKey::of(item);
    bool dropped = false;
    std::lock_guard hold(mutex_);
    auto entry = entries_.lower_bound({current.item, 0});
    while (entry != entries_.end() && entry->first.item == current.item) {
        if (entry->first == current) {
            ++entry;
        } else {
            entry = erase(entry);
            dropped = true;
        }
    }
    return dropped;
}

void ContentCache::dropItem(const ItemIdentifier& identifier) {
    const ItemDigest item = itemDigest(identifier);
    std::lock_guard hold(mutex_);
    auto entry = entries_.lower_bound({item, 0});
    while (entry != entries_.end() && entry->first.item == item)
        entry = erase(entry);
    sizes_.forget(item);
}

void ContentCache::dropOldest(std::uint64_t bytes) {
    std::lock_guard hold(mutex_);
    if (bytes <= totalBytes_) evict(totalBytes_ - bytes);
}

}  // namespace vorlinden::mount
