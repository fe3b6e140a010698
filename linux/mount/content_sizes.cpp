#include "linux/mount/content_sizes.h"

#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/crc.hpp>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files.h"

namespace vorlinden::mount {

namespace {

// Item, version, size, checksum of these; numbers as this machine has them, since the file never leaves it.
constexpr std::size_t checkedBytes = sizeof(ItemDigest) + 2 * sizeof(std::uint64_t);
constexpr std::size_t recordBytes = checkedBytes + sizeof(std::uint32_t);
constexpr std::uint64_t forgotten = std::numeric_limits<std::uint64_t>::max();
// Superseded records that a file may carry along before it is written anew.
constexpr std::size_t toleratedRecords = 4096;

std::uint32_t checksum(std::string_view bytes) {
    boost::crc_32_type crc;
    crc.process_bytes(bytes.data(), bytes.size());
    return crc.checksum();
}

std::string encoded(const ContentKey& key, std::uint64_t size) {
    std::string record(recordBytes, '\0');
    std::memcpy(record.data(), key.item.data(), sizeof key.item);
    std::memcpy(record.data() + sizeof key.item, &key.version, sizeof key.version);
    std::memcpy(record.data() + sizeof key.item + sizeof key.version, &size, sizeof size);
    const std::uint32_t check = checksum(std::string_view(record).substr(0, checkedBytes));
    std::memcpy(record.data() + checkedBytes, &check, sizeof check);
    return record;
}

bool decode(std::string_view record, ContentKey& key, std::uint64_t& size) {
    std::uint32_t check = 0;
    std::memcpy(&check, record.data() + checkedBytes, sizeof check);
    std::memcpy(key.item.data(), record.data(), sizeof key.item);
    std::memcpy(&key.version, record.data() + sizeof key.item, sizeof key.version);
    std::memcpy(&size, record.data() + sizeof key.item + sizeof key.version, sizeof size);
    return check == checksum(record.substr(0, checkedBytes));
}

}  // namespace

// The digest's bytes are as good as any hash of them.
std::size_t ContentSizes::DigestHash::operator()(const ItemDigest& digest) const noexcept {
    std::size_t hash = 0;
    std::memcpy(&hash, digest.data(), sizeof hash);
    return hash;
}

ContentSizes::ContentSizes(std::filesystem::path file) : path_(std::move(file)) {
    if (!load()) rewrite();
    file_ = platform::Descriptor(
        ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
}

// False if the file is worth writing anew.
bool ContentSizes::load() {
    platform::Data bytes;
    try {
        bytes = platform::posixFileSystem()->read(path_);
    } catch (const platform::FileError& failure) {
        return failure.code == ENOENT;
    }
    bool whole = bytes.size() % recordBytes == 0;
    const std::size_t records = bytes.size() / recordBytes;
    for (std::size_t i = 0; i < records; ++i) {
        ContentKey key;
        std::uint64_t size = 0;
        if (!decode(bytes.view().substr(i * recordBytes, recordBytes), key, size)) {
            whole = false;
        } else if (size == forgotten) {
            sizes_.erase(key.item);
        } else {
            sizes_[key.item] = {key.version, size};
        }
    }
    return whole && records <= 2 * sizes_.size() + toleratedRecords;
}

void ContentSizes::rewrite() {
    std::string records;
    records.reserve(sizes_.size() * recordBytes);
    for (const auto& [item, size] : sizes_)
        records += encoded({item, size.version}, size.bytes);
    try {
        platform::posixFileSystem()->writeUnflushed(platform::Data(std::move(records)), path_);
    } catch (const platform::FileError&) {
        ::unlink(path_.c_str());  // what can't be mended is begun anew
    }
}

std::optional<std::uint64_t> ContentSizes::find(const ContentKey& key) const {
    const auto known = sizes_.find(key.item);
    if (known == sizes_.end() || known->second.version != key.version) return {};
    return known->second.bytes;
}

void ContentSizes::remember(const ContentKey& key, std::uint64_t size) {
    if (find(key) == size) return;
    sizes_[key.item] = {key.version, size};
    append(key, size);
}

void ContentSizes::forget(const ItemDigest& item) {
    if (sizes_.erase(item) > 0) append({item, 0}, forgotten);
}

void ContentSizes::append(const ContentKey& key, std::uint64_t size) {
    if (!file_) return;
    struct stat status {};
    if (::fstat(file_.get(), &status) != 0) return;
    const std::string record = encoded(key, size);
    const ssize_t written = ::write(file_.get(), record.data(), record.size());
    if (written == static_cast<ssize_t>(record.size())) return;
    // A part of a record would put every later one out of step.
    if (::ftruncate(file_.get(), status.st_size) != 0) file_.close();
}

}  // namespace vorlinden::mount
