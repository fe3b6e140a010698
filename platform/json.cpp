#include "platform/json.h"

#include <algorithm>
#include <cmath>

#include <boost/json/serialize.hpp>

#include "platform/json_tree.h"
#include "platform/text.h"

namespace vorlinden::platform {
namespace {

using Kind = JSONNode::Kind;

std::string describe(const std::string& path, const std::string& text) {
    return path.empty() ? text : text + " (at " + path + ")";
}

std::optional<std::int64_t> wholeNumber(const JSONNode& node) {
    constexpr double exactLimit = 9007199254740992.0;  // 2^53: below it a double holds every whole number
    if (node.kind == Kind::integer) return node.integer;
    if (node.kind != Kind::fraction || !(std::abs(node.fraction) <= exactLimit)) return std::nullopt;
    if (node.fraction != std::trunc(node.fraction)) return std::nullopt;
    return static_cast<std::int64_t>(node.fraction);
}

std::vector<std::string> strings(JSONValue list) {
    std::vector<std::string> result;
    for (const auto& element : list.list())
        result.emplace_back(element.text());
    return result;
}

}  // namespace

JSONError::JSONError(Kind errorKind, std::string errorPath, std::string errorText)
    : Failure(describe(errorPath, errorText)),
      kind(errorKind),
      path(std::move(errorPath)),
      text(std::move(errorText)) {}

JSONDocument::JSONDocument(std::string_view bytes) : tree_(std::make_unique<JSONTree>(parseJSON(bytes))) {}
JSONDocument::~JSONDocument() = default;
JSONValue JSONDocument::root() const {
    return {tree_.get(), 0};
}

std::string JSONValue::path() const {
    return jsonPath(*tree_, index_);
}

JSONError JSONValue::wrongType(std::string_view expected) const {
    return {JSONError::Kind::wrongType, path(), "Expected " + std::string(expected) + "."};
}

JSONError JSONValue::corrupted(std::string text) const {
    return {JSONError::Kind::corrupted, path(), std::move(text)};
}

bool JSONValue::isNull() const {
    return tree_->nodes[index_].kind == Kind::null;
}

std::string_view JSONValue::text() const {
    const auto& node = tree_->nodes[index_];
    if (node.kind != Kind::text) throw wrongType("a string");
    return node.text;
}

bool JSONValue::boolean() const {
    const auto& node = tree_->nodes[index_];
    if (node.kind != Kind::boolean) throw wrongType("true or false");
    return node.boolean;
}

std::int64_t JSONValue::integer() const {
    const auto number = wholeNumber(tree_->nodes[index_]);
    if (!number) throw wrongType("a whole number of 64 bits");
    return *number;
}

std::vector<JSONValue> JSONValue::list() const {
    const auto& node = tree_->nodes[index_];
    if (node.kind != Kind::list) throw wrongType("a list");
    std::vector<JSONValue> elements;
    for (auto i = index_ + 1; i < node.end; i = tree_->nodes[i].end)
        elements.push_back({tree_, i});
    return elements;
}

std::optional<JSONValue> JSONValue::optional(std::string_view key) const {
    const auto& node = tree_->nodes[index_];
    if (node.kind != Kind::object) throw wrongType("an object");
    for (auto i = index_ + 1; i < node.end; i = tree_->nodes[i].end) {
        const auto& member = tree_->nodes[i];
        if (member.key != key) continue;
        return member.kind == Kind::null ? std::nullopt : std::optional(JSONValue(tree_, i));
    }
    return std::nullopt;
}

JSONValue JSONValue::required(std::string_view key) const {
    if (const auto value = optional(key)) return *value;
    throw JSONError(JSONError::Kind::missingKey, path(),
                    "The key \"" + std::string(key) + "\" has no value.");
}

std::string JSONValue::requiredString(std::string_view key) const {
    return std::string(required(key).text());
}

std::optional<std::string> JSONValue::optionalString(std::string_view key) const {
    const auto value = optional(key);
    return value ? std::optional(std::string(value->text())) : std::nullopt;
}

std::string JSONValue::requiredName(std::string_view key) const {
    const auto value = required(key);
    const auto text = value.text();
    if (text.find('\0') != std::string_view::npos)
        throw value.corrupted("A name can't hold a NUL character.");
    return std::string(text);
}

bool JSONValue::requiredBool(std::string_view key) const {
    return required(key).boolean();
}

std::int64_t JSONValue::requiredInteger(std::string_view key) const {
    return required(key).integer();
}

std::optional<std::int64_t> JSONValue::optionalInteger(std::string_view key) const {
    const auto value = optional(key);
    return value ? std::optional(value->integer()) : std::nullopt;
}

std::vector<std::string> JSONValue::requiredStrings(std::string_view key) const {
    return strings(required(key));
}

std::optional<std::vector<std::string>> JSONValue::optionalStrings(std::string_view key) const {
    const auto value = optional(key);
    return value ? std::optional(strings(*value)) : std::nullopt;
}

JSONText toJSON(std::string_view text) {
    if (!isValidUTF8(text))
        throw JSONError(JSONError::Kind::notEncodable, {}, "The text is not valid UTF-8.");
    return {boost::json::serialize(boost::json::string_view(text.data(), text.size()))};
}

JSONText toJSON(std::int64_t number) {
    return {std::to_string(number)};
}

JSONText toJSON(const std::vector<JSONText>& list) {
    std::string joined = "[";
    for (const auto& element : list) {
        if (joined.size() > 1) joined += ',';
        joined += element.text;
    }
    return {joined + "]"};
}

JSONText toJSON(const std::vector<std::string>& list) {
    std::vector<JSONText> elements;
    for (const auto& text : list)
        elements.push_back(toJSON(text));
    return toJSON(elements);
}

JSONText JSONObjectBuilder::text() const {
    std::string joined = "{";
    for (const auto& [key, value] : members_) {
        if (joined.size() > 1) joined += ',';
        joined += '"' + key + "\":" + value.text;
    }
    return {joined + "}"};
}

JSONText JSONObjectBuilder::sortedText() const {
    auto sorted = *this;
    std::ranges::sort(sorted.members_, {},
                      [](const auto& member) -> const std::string& { return member.first; });
    return sorted.text();
}

}  // namespace vorlinden::platform
