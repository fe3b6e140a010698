// A server's state on disk: one database, one folder of large contents, one lock against a second server.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "linux/server/database.h"
#include "platform/files.h"
#include "platform/seams.h"

namespace vorlinden::server {

// Another server runs on the folder.
struct DataFolderInUse : platform::Failure {
    explicit DataFolderInUse(const std::filesystem::path& folder)
        : Failure("Another server is running on " + folder.string() + ". Stop it, or use another folder.") {}
};

// The folder holds the state of a newer server.
struct NewerDataFolder : platform::Failure {
    explicit NewerDataFolder(const std::filesystem::path& folder)
        : Failure(folder.string() + " was written by a newer server. Use that one, or another folder.") {}
};

// Thread-safe. Any number of readers run beside one writer; a reader sees the state as its transaction found
// it. What was committed is on disk (WAL, flushed at each commit).
class Storage {
 public:
    // Makes the folder (0700) and its files when they aren't there. Throws the two failures above.
    Storage(const std::filesystem::path& folder, std::shared_ptr<platform::Clock> clock,
            std::shared_ptr<platform::Random> random);

    const std::filesystem::path& folder() const { return folder_; }
    platform::Clock& clock() const { return *clock_; }
    platform::Random& random() const { return *random_; }

 private:
    friend class ReadTransaction;
    friend class WriteTransaction;
    std::unique_ptr<Database> takeReader();
    void giveBack(std::unique_ptr<Database> reader);
    void bringUpToDate();

    const std::filesystem::path folder_;
    const std::shared_ptr<platform::Clock> clock_;
    const std::shared_ptr<platform::Random> random_;
    std::unique_ptr<platform::LockFile> lock_;

    std::mutex writing_;  // held for a whole write transaction and what follows its commit; taken first
    Database writer_;     // guarded by writing_

    std::mutex readersMutex_;
    std::vector<std::unique_ptr<Database>> idleReaders_;  // guarded by readersMutex_
};

// The state at one moment.
class ReadTransaction {
 public:
    explicit ReadTransaction(Storage& storage);
    ~ReadTransaction();
    ReadTransaction(const ReadTransaction&) = delete;
    ReadTransaction& operator=(const ReadTransaction&) = delete;
    Database& database() { return *reader_; }

 private:
    Storage& storage_;
    std::unique_ptr<Database> reader_;
};

// Alone in changing the state; rolls back unless committed.
class WriteTransaction {
 public:
    explicit WriteTransaction(Storage& storage);
    ~WriteTransaction();
    WriteTransaction(const WriteTransaction&) = delete;
    WriteTransaction& operator=(const WriteTransaction&) = delete;

    Storage& storage() { return storage_; }
    Database& database() { return storage_.writer_; }
    // Runs after the commit, before another writer can begin; must not throw.
    void afterCommit(std::function<void()> action) { afterCommit_.push_back(std::move(action)); }
    void commit();

 private:
    Storage& storage_;
    std::unique_lock<std::mutex> writing_;
    std::vector<std::function<void()>> afterCommit_;
    bool open_ = true;
};

}  // namespace vorlinden::server
