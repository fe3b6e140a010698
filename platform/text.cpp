#include "platform/text.h"

#include <cstdint>
#include <cstring>
#include <stdexcept>

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

namespace vorlinden::platform {

namespace {

// Index of the first byte at or after `start` that is not ASCII. Content is checked by the hundred megabytes,
// nearly all of it ASCII, hence eight bytes at a time.
std::size_t endOfASCII(std::string_view text, std::size_t start) {
    constexpr std::uint64_t highBits = 0x8080808080808080U;
    std::size_t i = start;
    for (; i + sizeof(std::uint64_t) <= text.size(); i += sizeof(std::uint64_t)) {
        std::uint64_t word;
        std::memcpy(&word, text.data() + i, sizeof word);
        if ((word & highBits) != 0) break;
    }
    while (i < text.size() && static_cast<unsigned char>(text[i]) < 0x80)
        ++i;
    return i;
}

bool isASCII(std::string_view text) {
    return endOfASCII(text, 0) == text.size();
}

// ICU fails here only when memory is out or its data are missing; neither leaves a sensible text to go on
// with.
void require(UErrorCode status) {
    if (U_FAILURE(status)) throw std::runtime_error(std::string("ICU: ") + u_errorName(status));
}

icu::StringPiece piece(std::string_view text) {
    return {text.data(), static_cast<std::int32_t>(text.size())};
}

template <class Operation>
std::string transformed(std::string_view text, Operation operation) {
    const std::string repaired = repairedUTF8(text);
    std::string result;
    icu::StringByteSink<std::string> sink(&result, static_cast<std::int32_t>(repaired.size()));
    UErrorCode status = U_ZERO_ERROR;
    operation(piece(repaired), sink, status);
    require(status);
    return result;
}

std::string lowerASCII(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
    return result;
}

// Moves `i` behind the sequence that begins there; false if it is none. The macro's own arithmetic narrows.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
bool skipSequence(std::string_view bytes, std::size_t& i) {
    const char* const text = bytes.data();
    const std::size_t length = bytes.size();
    UChar32 c = 0;
    U8_NEXT(text, i, length, c);
    return c >= 0;
}
#pragma GCC diagnostic pop

}  // namespace

bool isValidUTF8(std::string_view bytes) {
    for (std::size_t i = endOfASCII(bytes, 0); i < bytes.size(); i = endOfASCII(bytes, i)) {
        if (!skipSequence(bytes, i)) return false;
    }
    return true;
}

std::string repairedUTF8(std::string_view bytes) {
    if (isValidUTF8(bytes)) return std::string(bytes);
    std::string result;
    icu::UnicodeString::fromUTF8(piece(bytes)).toUTF8String(result);
    return result;
}

std::size_t utf16Length(std::string_view text) {
    std::size_t units = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool continuation = (byte & 0xC0) == 0x80;
        units += continuation ? 0U : (byte >= 0xF0 ? 2U : 1U);
    }
    return units;
}

std::string composed(std::string_view text) {
    if (isASCII(text)) return std::string(text);
    return transformed(text, [](icu::StringPiece source, icu::ByteSink& sink, UErrorCode& status) {
        const icu::Normalizer2* form = icu::Normalizer2::getNFCInstance(status);
        if (U_SUCCESS(status)) form->normalizeUTF8(0, source, sink, nullptr, status);
    });
}

std::string lowerCased(std::string_view text) {
    if (isASCII(text)) return lowerASCII(text);
    return transformed(text, [](icu::StringPiece source, icu::ByteSink& sink, UErrorCode& status) {
        icu::CaseMap::utf8ToLower("", 0, source, sink, nullptr, status);
    });
}

std::string caseFolded(std::string_view text) {
    if (isASCII(text)) return lowerASCII(text);
    return transformed(text, [](icu::StringPiece source, icu::ByteSink& sink, UErrorCode& status) {
        icu::CaseMap::utf8Fold(0, source, sink, nullptr, status);
    });
}

std::string trimmed(std::string_view text) {
    const icu::UnicodeString units = icu::UnicodeString::fromUTF8(piece(text));
    std::int32_t begin = 0;
    std::int32_t end = units.length();
    // Every White_Space character is a single UTF-16 unit.
    while (begin < end && u_isUWhiteSpace(units[begin]))
        ++begin;
    while (begin < end && u_isUWhiteSpace(units[end - 1]))
        --end;
    std::string result;
    units.tempSubStringBetween(begin, end).toUTF8String(result);
    return result;
}

}  // namespace vorlinden::platform
