#include "linux/server/storage.h"

#include <sys/stat.h>

#include "linux/server/schema.h"
#include "platform/uuid.h"

namespace vorlinden::server {

namespace {

std::filesystem::path prepared(const std::filesystem::path& folder) {
    const auto files = platform::posixFileSystem();
    files->createDirectories(folder);
    files->createDirectories(folder / "contents");
    files->createDirectories(folder / "incoming");
    return std::filesystem::canonical(folder);
}

std::unique_ptr<platform::LockFile> locked(const std::filesystem::path& folder) {
    auto lock = platform::posixFileSystem()->openLockFile(folder / "lock");
    if (lock->tryLock() != 0) throw DataFolderInUse(folder);
    return lock;
}

// SQLite gives its side files the mode of the database, which holds what members wrote.
std::filesystem::path privateFile(std::filesystem::path file) {
    platform::posixFileSystem()->openLockFile(file);
    return file;
}

}  // namespace

Storage::Storage(const std::filesystem::path& folder, std::shared_ptr<platform::Clock> clock,
                 std::shared_ptr<platform::Random> random)
    : folder_(prepared(folder)),
      clock_(std::move(clock)),
      random_(std::move(random)),
      lock_(locked(folder_)),
      writer_(privateFile(folder_ / "server.sqlite"), Database::Mode::readWrite) {
    bringUpToDate();
}

void Storage::bringUpToDate() {
    writer_.script(
        "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA foreign_keys = ON;"
        "PRAGMA journal_size_limit = 67108864; PRAGMA cache_size = -65536");
    auto query = writer_.query("PRAGMA user_version");
    query.next();
    const auto version = query.integer(0);
    if (version > schemaVersion) throw NewerDataFolder(folder_);
    if (version == schemaVersion) return;
    writer_.script("BEGIN IMMEDIATE; " + std::string(schema) + "INSERT INTO settings VALUES ('team_id', '" +
                   platform::UUID::random(*random_).lowerText() +
                   "'); PRAGMA user_version = " + std::to_string(schemaVersion) + "; COMMIT");
}

std::unique_ptr<Database> Storage::takeReader() {
    {
        const std::lock_guard guard(readersMutex_);
        if (!idleReaders_.empty()) {
            auto reader = std::move(idleReaders_.back());
            idleReaders_.pop_back();
            return reader;
        }
    }
    return std::make_unique<Database>(folder_ / "server.sqlite", Database::Mode::readOnly);
}

void Storage::giveBack(std::unique_ptr<Database> reader) {
    const std::lock_guard guard(readersMutex_);
    idleReaders_.push_back(std::move(reader));
}

ReadTransaction::ReadTransaction(Storage& storage) : storage_(storage), reader_(storage.takeReader()) {
    reader_->run("BEGIN");
}

ReadTransaction::~ReadTransaction() {
    // A connection that can't end its transaction isn't used again.
    try {
        reader_->run("COMMIT");
        storage_.giveBack(std::move(reader_));
    } catch (const DatabaseError&) {
    }
}

WriteTransaction::WriteTransaction(Storage& storage) : storage_(storage), writing_(storage.writing_) {
    database().run("BEGIN IMMEDIATE");
}

WriteTransaction::~WriteTransaction() {
    if (!open_) return;
    try {
        database().run("ROLLBACK");
    } catch (const DatabaseError&) {
        // SQLite has rolled back by itself.
    }
}

void WriteTransaction::commit() {
    database().run("COMMIT");  // a failed one is rolled back by the destructor
    open_ = false;
    for (const auto& action : afterCommit_)
        action();
}

}  // namespace vorlinden::server
