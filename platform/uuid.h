// UUIDs (RFC 9562): parsing of the canonical 36-character form only, and random ones.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vorlinden::platform {

class Random;

// A value. Ordered by its bytes, which is also the order of its text.
struct UUID {
    std::array<std::uint8_t, 16> bytes{};

    // Accepts 8-4-4-4-12 hexadecimal digits in either case and nothing else.
    static std::optional<UUID> parse(std::string_view text);
    // Version 4, from the given source.
    static UUID random(Random& random);

    std::string upperText() const;  // the form of the catalogue and of item identifiers
    std::string lowerText() const;  // the form of the wire

    auto operator<=>(const UUID&) const = default;
};

}  // namespace vorlinden::platform

template <>
struct std::hash<vorlinden::platform::UUID> {
    std::size_t operator()(const vorlinden::platform::UUID& id) const noexcept;
};
