// What tells one content of an item from another, as a name for memory and disk.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/fileprovider/protocol.h"

namespace vorlinden::mount {

// A digest of an item identifier, good for a file name and small in memory.
using ItemDigest = std::array<std::uint8_t, 16>;
ItemDigest itemDigest(const platform::fileprovider::ItemIdentifier& identifier);

// A value. Two items have equal keys when their bytes are the same by all that an item says: identifier,
// content version, modification date and size. The version alone would not do: it is a counter that begins
// anew for an item that was deleted and came back, or whose catalogue was made anew. Ordered by item first.
struct ContentKey {
    ItemDigest item{};
    std::uint64_t version = 0;

    static ContentKey of(const platform::fileprovider::Item& item);
    // The name of its file in the cache folder, and back; absent for a name of another form.
    std::string fileName() const;
    static std::optional<ContentKey> fromFileName(std::string_view name);

    auto operator<=>(const ContentKey&) const = default;
};

}  // namespace vorlinden::mount
