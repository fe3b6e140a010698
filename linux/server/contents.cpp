#include "linux/server/contents.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "linux/server/rules.h"
#include "platform/descriptor.h"

namespace vorlinden::server {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t mostInMemory = 128 * 1024;
constexpr std::int64_t hour = 3'600'000;  // in milliseconds, as the column is
constexpr std::int64_t unusedStays = 24 * hour;

void check(bool succeeded, const fs::path& path) {
    if (!succeeded) throw platform::errnoFailure(path);
}

fs::path fileOf(const Storage& storage, const std::string& hash) {
    return storage.folder() / "contents" / hash;
}

platform::Data mapped(const platform::Descriptor& file, std::int64_t size, const fs::path& path) {
    const auto length = static_cast<std::size_t>(size);
    void* bytes = ::mmap(nullptr, length, PROT_READ, MAP_SHARED, file.get(), 0);
    check(bytes != MAP_FAILED, path);
    const std::shared_ptr<const void> owner(bytes, [length](void* start) { ::munmap(start, length); });
    return platform::Data(owner, static_cast<const std::uint8_t*>(bytes), length);
}

void discard(const fs::path& path) noexcept {
    std::error_code ignored;  // what stays behind goes with the next sweep
    fs::remove(path, ignored);
}

std::int64_t now(const Storage& storage) {
    return storage.clock().now().time_since_epoch().count();
}

}  // namespace

class IncomingContent::File {
 public:
    explicit File(Storage& storage)
        : path_(storage.folder() / "incoming" / randomName(storage.random())),
          file_(platform::Descriptor::open(path_, O_WRONLY | O_CREAT | O_EXCL, 0600)) {}
    ~File() { discard(path_); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    const fs::path& path() const { return path_; }

    void write(std::string_view bytes) {
        while (!bytes.empty()) {
            const auto written =
                platform::uninterrupted([&] { return ::write(file_.get(), bytes.data(), bytes.size()); });
            check(written >= 0, path_);
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
    }
    void flush() { check(::fsync(file_.get()) == 0, path_); }

 private:
    fs::path path_;
    platform::Descriptor file_;
};

IncomingContent::IncomingContent(Storage& storage) : storage_(storage) {}
IncomingContent::~IncomingContent() = default;

void IncomingContent::add(std::string_view bytes) {
    digest_.add(bytes);
    size_ += static_cast<std::int64_t>(bytes.size());
    if (!file_ && memory_.size() + bytes.size() <= mostInMemory) {
        memory_.append(bytes);
        return;
    }
    if (!file_) {
        file_ = std::make_unique<File>(storage_);
        file_->write(memory_);
        memory_ = std::string();
    }
    file_->write(bytes);
}

void IncomingContent::finish() {
    if (file_) file_->flush();
    ref_ = {digest_.hex(), size_};
    kind_ = judged();
}

NodeKind IncomingContent::judged() const {
    if (!file_) return isText(memory_) ? NodeKind::text : NodeKind::blob;
    if (size_ > static_cast<std::int64_t>(maxTextBytes)) return NodeKind::blob;
    const auto bytes = mapped(platform::Descriptor::open(file_->path(), O_RDONLY), size_, file_->path());
    return isText(bytes.view()) ? NodeKind::text : NodeKind::blob;
}

void Contents::store(WriteTransaction& transaction, const IncomingContent& content) {
    auto& storage = transaction.storage();
    const auto& [hash, size] = content.ref();
    auto& database = transaction.database();
    if (sizeOf(database, hash)) {
        // Its day begins anew, noted by the hour so that a content put again and again isn't written each
        // time.
        database.run("UPDATE contents SET stored_at = ?2 WHERE hash = ?1 AND stored_at < ?2 - ?3", hash,
                     now(storage), hour);
        return;
    }
    std::optional<platform::Data> bytes;
    if (!content.file_) {
        bytes = platform::Data::copyOf(content.memory_);
    } else {
        // The file has its name before a row tells of it; without the row it goes with the next sweep.
        const auto file = fileOf(storage, hash);
        check(::rename(content.file_->path().c_str(), file.c_str()) == 0, file);
        platform::flushFolder(file.parent_path());
    }
    database.run("INSERT INTO contents (hash, size, stored_at, bytes) VALUES (?, ?, ?, ?)", hash, size,
                 now(storage), bytes);
}

std::optional<std::int64_t> Contents::sizeOf(Database& database, const std::string& hash) {
    auto query = database.query("SELECT size FROM contents WHERE hash = ?", hash);
    if (!query.next()) return std::nullopt;
    return query.integer(0);
}

std::optional<platform::Data> Contents::load(Storage& storage, Database& database, const std::string& hash) {
    auto query = database.query("SELECT size, bytes FROM contents WHERE hash = ?", hash);
    if (!query.next()) return std::nullopt;
    if (auto bytes = query.bytes(1)) return bytes;
    const auto path = fileOf(storage, hash);
    try {
        return mapped(platform::Descriptor::open(path, O_RDONLY), query.integer(0), path);
    } catch (const platform::FileError& failure) {
        if (failure.code == ENOENT) return std::nullopt;  // dropped since this reader began
        throw;
    }
}

void Contents::dropIfUnused(WriteTransaction& transaction, const std::string& hash) {
    auto& storage = transaction.storage();
    const auto dropped = transaction.database().run(
        "DELETE FROM contents WHERE hash = ?1 AND stored_at < ?2"
        " AND NOT EXISTS (SELECT 1 FROM nodes WHERE hash = ?1)",
        hash, now(storage) - unusedStays);
    if (dropped > 0) transaction.afterCommit([file = fileOf(storage, hash)] { discard(file); });
}

void Contents::sweep(Storage& storage) {
    WriteTransaction transaction(storage);
    auto& database = transaction.database();
    database.run(
        "DELETE FROM contents WHERE stored_at < ?"
        " AND NOT EXISTS (SELECT 1 FROM nodes WHERE nodes.hash = contents.hash)",
        now(storage) - unusedStays);
    transaction.commit();
    for (const auto& file : fs::directory_iterator(storage.folder() / "incoming"))
        discard(file.path());
    for (const auto& file : fs::directory_iterator(storage.folder() / "contents")) {
        if (!sizeOf(database, file.path().filename().string())) discard(file.path());
    }
}

}  // namespace vorlinden::server
