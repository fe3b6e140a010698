// The sizes of contents that were ever here, kept in a small file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <unordered_map>

#include "linux/mount/content_key.h"
#include "platform/descriptor.h"

namespace vorlinden::mount {

// One size per item, that of the content which came last. Held in memory (about 60 bytes an item) and
// appended to a file of fixed, checked records, whose last one of an item counts. Nothing of it is ever an
// error: a record that is broken, or couldn't be written, costs one fetch. Not thread-safe.
class ContentSizes {
 public:
    explicit ContentSizes(std::filesystem::path file);

    std::optional<std::uint64_t> find(const ContentKey& key) const;
    void remember(const ContentKey& key, std::uint64_t size);
    void forget(const ItemDigest& item);

 private:
    struct Size {
        std::uint64_t version;
        std::uint64_t bytes;
    };
    struct DigestHash {
        std::size_t operator()(const ItemDigest& digest) const noexcept;
    };

    bool load();
    void rewrite();
    void append(const ContentKey& key, std::uint64_t size);

    const std::filesystem::path path_;
    platform::Descriptor file_;  // for appending; empty while the file can't be written
    std::unordered_map<ItemDigest, Size, DigestHash> sizes_;
};

}  // namespace vorlinden::mount
