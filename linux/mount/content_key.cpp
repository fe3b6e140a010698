#include "linux/mount/content_key.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include <openssl/evp.h>

namespace vorlinden::mount {

namespace {

constexpr std::string_view digits = "0123456789abcdef";
constexpr std::size_t nameLength = 2 * (sizeof(ItemDigest) + sizeof(std::uint64_t));

std::array<std::uint8_t, 32> sha256(std::string_view text) {
    std::array<std::uint8_t, 32> digest{};
    EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
    return digest;
}

// Every part of an item that its content could change with, none able to run into the next.
std::string versionText(const platform::fileprovider::Item& item) {
    std::string text(item.itemVersion.contentVersion.view());
    text += '\0';
    if (item.contentModificationDate) text += platform::formatTimestamp(*item.contentModificationDate);
    text += '\0';
    if (item.documentSize) text += std::to_string(*item.documentSize);
    return text;
}

std::uint64_t bigEndian(const std::uint8_t* bytes) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < sizeof number; ++i)
        number = number << 8 | bytes[i];
    return number;
}

}  // namespace

ItemDigest itemDigest(const platform::fileprovider::ItemIdentifier& identifier) {
    const auto whole = sha256(identifier);
    ItemDigest digest;
    std::copy_n(whole.begin(), digest.size(), digest.begin());
    return digest;
}

ContentKey ContentKey::of(const platform::fileprovider::Item& item) {
    return {itemDigest(item.itemIdentifier), bigEndian(sha256(versionText(item)).data())};
}

std::string ContentKey::fileName() const {
    std::string name;
    name.reserve(nameLength);
    for (const std::uint8_t byte : item) {
        name += digits[byte >> 4];
        name += digits[byte & 15];
    }
    for (int shift = 60; shift >= 0; shift -= 4)
        name += digits[version >> shift & 15];
    return name;
}

std::optional<ContentKey> ContentKey::fromFileName(std::string_view name) {
    if (name.size() != nameLength || name.find_first_not_of(digits) != name.npos) return {};
    const auto number = [&](std::size_t position, std::size_t length, auto& value) {
        std::from_chars(name.data() + position, name.data() + position + length, value, 16);
    };
    ContentKey key;
    for (std::size_t i = 0; i < key.item.size(); ++i)
        number(2 * i, 2, key.item[i]);
    number(2 * key.item.size(), 16, key.version);
    return key;
}

}  // namespace vorlinden::mount
