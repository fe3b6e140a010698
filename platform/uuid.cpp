#include "platform/uuid.h"

#include <cstring>

#include "platform/seams.h"

namespace vorlinden::platform {

namespace {

// Boost's parser also takes braces and undashed digits, which would let two texts name one brain.
constexpr std::size_t textLength = 36;

constexpr bool isDash(std::size_t position) {
    return position == 8 || position == 13 || position == 18 || position == 23;
}

// By character; -1 for anything else. Lists of the catalogue parse an identifier per row.
constexpr auto digitValues = [] {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (int digit = 0; digit < 10; ++digit)
        values[static_cast<std::size_t>('0' + digit)] = static_cast<std::int8_t>(digit);
    for (int digit = 10; digit < 16; ++digit) {
        values[static_cast<std::size_t>('a' + digit - 10)] = static_cast<std::int8_t>(digit);
        values[static_cast<std::size_t>('A' + digit - 10)] = static_cast<std::int8_t>(digit);
    }
    return values;
}();

constexpr int digitValue(char c) {
    return digitValues[static_cast<unsigned char>(c)];
}

std::string textWith(const std::array<std::uint8_t, 16>& bytes, const char* digits) {
    std::string text;
    text.reserve(textLength);
    for (const std::uint8_t byte : bytes) {
        if (isDash(text.size())) text += '-';
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

}  // namespace

std::optional<UUID> UUID::parse(std::string_view text) {
    if (text.size() != textLength) return std::nullopt;
    UUID id;
    std::size_t nibble = 0;
    for (std::size_t i = 0; i < textLength; ++i) {
        if (isDash(i)) {
            if (text[i] != '-') return std::nullopt;
            continue;
        }
        const int value = digitValue(text[i]);
        if (value < 0) return std::nullopt;
        std::uint8_t& byte = id.bytes[nibble++ / 2];
        byte = static_cast<std::uint8_t>(byte << 4 | value);
    }
    return id;
}

UUID UUID::random(Random& random) {
    UUID id;
    random.fill(id.bytes);
    id.bytes[6] = static_cast<std::uint8_t>((id.bytes[6] & 0x0F) | 0x40);  // version 4
    id.bytes[8] = static_cast<std::uint8_t>((id.bytes[8] & 0x3F) | 0x80);  // the variant of RFC 9562
    return id;
}

std::string UUID::upperText() const {
    return textWith(bytes, "0123456789ABCDEF");
}

std::string UUID::lowerText() const {
    return textWith(bytes, "0123456789abcdef");
}

}  // namespace vorlinden::platform

std::size_t std::hash<vorlinden::platform::UUID>::operator()(
    const vorlinden::platform::UUID& id) const noexcept {
    std::uint64_t halves[2];
    std::memcpy(halves, id.bytes.data(), sizeof halves);
    return static_cast<std::size_t>(halves[0] ^ (halves[1] * 0x9E3779B97F4A7C15U));
}
