// JSON from outside, read strictly, and JSON text for outside.
//
// Reading: UTF-8 is checked, nesting is at most 64 levels deep, and a key that an object holds twice is an
// error (which of the two the sender meant can't be known). Keys that nobody asks for are ignored. A JSON
// null counts as absent, and as a missing key where it is required. Every failure is
// a JSONError that says where in the document it arose.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/failure.h"

namespace vorlinden::platform {

struct JSONError : Failure {
    enum class Kind { malformed, missingKey, wrongType, corrupted, notEncodable };
    JSONError(Kind kind, std::string path, std::string text);

    Kind kind;
    std::string path;  // such as "entries[3].ops[0].kind"; empty for the document itself
    std::string text;  // names keys and types, and a value only where a reader's own rule put it there
    bool operator==(const JSONError&) const = default;
};

struct JSONTree;

// One value of a JSONDocument: a view, as cheap to copy as a pointer and valid as long as its document.
// Getters of keys throw when this value is no object.
class JSONValue {
 public:
    bool isNull() const;
    // This value as that type. An integer may be written with a fraction or exponent if it is whole and no
    // larger than 2^53; beyond 64 bits it is an error.
    std::string_view text() const;
    bool boolean() const;
    std::int64_t integer() const;
    std::vector<JSONValue> list() const;

    JSONValue required(std::string_view key) const;
    std::optional<JSONValue> optional(std::string_view key) const;

    std::string requiredString(std::string_view key) const;
    std::optional<std::string> optionalString(std::string_view key) const;
    // A string that becomes part of a path, a name or an identifier: no NUL in it.
    std::string requiredName(std::string_view key) const;
    bool requiredBool(std::string_view key) const;
    std::int64_t requiredInteger(std::string_view key) const;
    std::optional<std::int64_t> optionalInteger(std::string_view key) const;
    std::vector<std::string> requiredStrings(std::string_view key) const;
    std::optional<std::vector<std::string>> optionalStrings(std::string_view key) const;

    // For rules beyond types: a JSONError of kind `corrupted` at this value.
    JSONError corrupted(std::string text) const;

 private:
    friend class JSONDocument;
    JSONValue(const JSONTree* tree, std::uint32_t index) : tree_(tree), index_(index) {}
    JSONError wrongType(std::string_view expected) const;
    std::string path() const;

    const JSONTree* tree_;
    std::uint32_t index_;
};

// A parsed document. It borrows the bytes it was parsed from, so that strings without escapes are never
// copied: they must live as long as it does.
class JSONDocument {
 public:
    explicit JSONDocument(std::string_view bytes);  // throws JSONError
    ~JSONDocument();
    JSONDocument(const JSONDocument&) = delete;
    JSONDocument& operator=(const JSONDocument&) = delete;
    JSONValue root() const;

 private:
    std::unique_ptr<JSONTree> tree_;
};

// JSON text that is already complete, to be nested in another.
struct JSONText {
    std::string text;
};

// One value as compact JSON text. Throws JSONError (notEncodable) for a string that isn't UTF-8.
JSONText toJSON(std::string_view text);
inline JSONText toJSON(const std::string& text) {
    return toJSON(std::string_view(text));
}
inline JSONText toJSON(const char* text) {
    return toJSON(std::string_view(text));
}
JSONText toJSON(std::int64_t number);
JSONText toJSON(std::same_as<bool> auto value) {
    return {value ? "true" : "false"};
}
inline JSONText toJSON(JSONText text) {
    return text;
}
JSONText toJSON(const std::vector<JSONText>& list);
JSONText toJSON(const std::vector<std::string>& list);

// Builds one object; an absent value leaves its key out. Keys must be plain ASCII and distinct.
class JSONObjectBuilder {
 public:
    template <class T>
    JSONObjectBuilder& add(std::string_view key, const T& value) {
        members_.emplace_back(key, toJSON(value));
        return *this;
    }
    template <class T>
    JSONObjectBuilder& add(std::string_view key, const std::optional<T>& value) {
        return value ? add(key, *value) : *this;
    }
    JSONText text() const;        // keys in the order of add()
    JSONText sortedText() const;  // keys in the order of their bytes

 private:
    std::vector<std::pair<std::string, JSONText>> members_;
};

}  // namespace vorlinden::platform
