// The bytes of files, by their SHA-256: small ones in the database, large ones in files of their own.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "linux/server/digest.h"
#include "linux/server/storage.h"
#include "platform/data.h"
#include "synckit/catalogue/records.h"

namespace vorlinden::server {

// What identifies a content.
struct ContentRef {
    std::string hash;       // 64 lower-case hexadecimal digits
    std::int64_t size = 0;  // bytes
};

// Bytes on their way in, taken piece by piece: in memory while they are few, then in a temporary file that
// goes with this object unless it is stored. One thread at a time. Throws platform::FileError.
class IncomingContent {
 public:
    explicit IncomingContent(Storage& storage);
    ~IncomingContent();
    IncomingContent(const IncomingContent&) = delete;
    IncomingContent& operator=(const IncomingContent&) = delete;

    void add(std::string_view bytes);
    // No more bytes come; what lies in a file is flushed. To be called once, outside of any transaction.
    void finish();

    std::int64_t size() const { return size_; }
    const ContentRef& ref() const { return ref_; }  // after finish()
    NodeKind kind() const { return kind_; }         // by the rule of text or blob; after finish()

 private:
    friend class Contents;
    class File;
    NodeKind judged() const;

    Storage& storage_;
    Sha256 digest_;
    std::int64_t size_ = 0;
    std::string memory_;
    std::unique_ptr<File> file_;
    ContentRef ref_;
    NodeKind kind_ = NodeKind::text;
};

// Whole files by their digest. A content stays while a node's row that is kept names it, and an uploaded one
// for a day more, so that it can be named.
class Contents {
 public:
    // Makes the content part of the state when the transaction commits.
    static void store(WriteTransaction& transaction, const IncomingContent& content);
    static std::optional<std::int64_t> sizeOf(Database& database, const std::string& hash);
    // Absent if it isn't there any more. A large content is mapped, not read.
    static std::optional<platform::Data> load(Storage& storage, Database& database, const std::string& hash);
    // Removes a content that no row names, once it is a day old.
    static void dropIfUnused(WriteTransaction& transaction, const std::string& hash);
    // Removes all such, and what a crash left behind in the folders. For the start, while nobody else is at
    // work.
    static void sweep(Storage& storage);
};

}  // namespace vorlinden::server
