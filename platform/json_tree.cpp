#include "platform/json_tree.h"

#include <algorithm>
#include <optional>

#include <boost/json/basic_parser_impl.hpp>

#include "platform/json.h"

namespace vorlinden::platform {
namespace {

namespace json = boost::json;
using Kind = JSONNode::Kind;

constexpr std::size_t maximumDepth = 64;
constexpr std::size_t maximumValues = std::size_t{1} << 24;  // less than a gigabyte of nodes

// Two equal keys among the members of the object at `object`, or nothing. Objects of the wire are small, so
// that comparing each with each beats sorting; a large one is sorted, so that it can't be made slow.
std::optional<std::string_view> duplicateKey(const std::vector<JSONNode>& nodes, std::uint32_t object,
                                             std::size_t size) {
    constexpr std::size_t small = 16;
    if (size <= small) {
        std::string_view keys[small];
        std::size_t count = 0;
        for (std::uint32_t i = object + 1; i < nodes.size(); i = nodes[i].end) {
            if (std::find(keys, keys + count, nodes[i].key) != keys + count) return nodes[i].key;
            keys[count++] = nodes[i].key;
        }
        return std::nullopt;
    }
    std::vector<std::string_view> keys;
    keys.reserve(size);
    for (std::uint32_t i = object + 1; i < nodes.size(); i = nodes[i].end)
        keys.push_back(nodes[i].key);
    std::sort(keys.begin(), keys.end());
    const auto twice = std::adjacent_find(keys.begin(), keys.end());
    return twice == keys.end() ? std::nullopt : std::optional(*twice);
}

// Boost.JSON's parser tells this handler what it meets. A handler that returns false ends the parse.
class TreeHandler {
 public:
    static constexpr std::size_t max_object_size = SIZE_MAX;
    static constexpr std::size_t max_array_size = SIZE_MAX;
    static constexpr std::size_t max_key_size = SIZE_MAX;
    static constexpr std::size_t max_string_size = SIZE_MAX;

    explicit TreeHandler(std::string_view source) : source_(source) {
        constexpr std::size_t bytesPerValue = 32;  // about so many in a snapshot; a guess that saves copying
        tree_.nodes.reserve(source.size() / bytesPerValue + 1);
    }
    JSONTree takeTree() { return std::move(tree_); }
    const std::optional<JSONError>& failure() const { return failure_; }

    bool on_document_begin(json::error_code&) { return true; }
    bool on_document_end(json::error_code&) { return true; }
    bool on_array_begin(json::error_code& error) { return open(Kind::list, error); }
    bool on_array_end(std::size_t, json::error_code&) { return close(); }
    bool on_object_begin(json::error_code& error) { return open(Kind::object, error); }
    bool on_object_end(std::size_t size, json::error_code& error) {
        if (const auto key = duplicateKey(tree_.nodes, open_.back(), size))
            return fail("The key \"" + std::string(*key) + "\" appears twice.", error);
        return close();
    }
    bool on_key_part(json::string_view part, std::size_t, json::error_code&) { return append(part); }
    bool on_key(json::string_view last, std::size_t, json::error_code&) {
        key_ = finished(last);
        return true;
    }
    bool on_string_part(json::string_view part, std::size_t, json::error_code&) { return append(part); }
    bool on_string(json::string_view last, std::size_t, json::error_code& error) {
        const auto text = finished(last);
        const auto node = add(Kind::text, error);
        if (node) node->text = text;
        return node;
    }
    bool on_number_part(json::string_view, json::error_code&) { return true; }
    bool on_int64(std::int64_t number, json::string_view, json::error_code& error) {
        const auto node = add(Kind::integer, error);
        if (node) node->integer = number;
        return node;
    }
    bool on_uint64(std::uint64_t, json::string_view, json::error_code& error) {
        return add(Kind::hugeInteger, error);
    }
    bool on_double(double number, json::string_view, json::error_code& error) {
        const auto node = add(Kind::fraction, error);
        if (node) node->fraction = number;
        return node;
    }
    bool on_bool(bool value, json::error_code& error) {
        const auto node = add(Kind::boolean, error);
        if (node) node->boolean = value;
        return node;
    }
    bool on_null(json::error_code& error) { return add(Kind::null, error); }
    bool on_comment_part(json::string_view, json::error_code&) { return true; }
    bool on_comment(json::string_view, json::error_code&) { return true; }

 private:
    bool fail(std::string text, json::error_code& error) {
        const auto where = open_.empty() ? std::string() : jsonPath(tree_, open_.back());
        failure_.emplace(JSONError::Kind::malformed, where, std::move(text));
        error = json::error::syntax;
        return false;
    }
    // The new node, or null when there are too many.
    JSONNode* add(Kind kind, json::error_code& error) {
        auto& nodes = tree_.nodes;
        if (nodes.size() == maximumValues) {
            fail("The document holds too many values.", error);
            return nullptr;
        }
        const auto index = static_cast<std::uint32_t>(nodes.size());
        auto& node = nodes.emplace_back();
        node.key = key_;
        node.parent = open_.empty() ? index : open_.back();
        node.end = index + 1;
        node.kind = kind;
        key_ = {};
        return &node;
    }
    bool open(Kind kind, json::error_code& error) {
        const auto index = static_cast<std::uint32_t>(tree_.nodes.size());
        if (!add(kind, error)) return false;
        open_.push_back(index);
        return true;
    }
    bool close() {
        tree_.nodes[open_.back()].end = static_cast<std::uint32_t>(tree_.nodes.size());
        open_.pop_back();
        return true;
    }
    bool append(json::string_view part) {
        pending_.append(part.data(), part.size());
        return true;
    }
    // A whole string: a view of the source where it stands there as it is, else of a copy without escapes.
    std::string_view finished(json::string_view last) {
        const bool inSource = last.data() >= source_.data() && last.data() < source_.data() + source_.size();
        if (pending_.empty() && inSource) return {last.data(), last.size()};
        append(last);
        return tree_.unescaped.emplace_back(std::exchange(pending_, {}));
    }

    const std::string_view source_;
    JSONTree tree_;
    std::vector<std::uint32_t> open_;  // the lists and objects we are inside of
    std::string_view key_;
    std::string pending_;
    std::optional<JSONError> failure_;
};

std::size_t indexInList(const JSONTree& tree, std::uint32_t index) {
    std::size_t position = 0;
    for (auto i = tree.nodes[index].parent + 1; i != index; i = tree.nodes[i].end)
        ++position;
    return position;
}

}  // namespace

JSONTree parseJSON(std::string_view bytes) {
    json::parse_options options;
    options.max_depth = maximumDepth;
    json::basic_parser<TreeHandler> parser(options, bytes);
    json::error_code error;
    const auto read = parser.write_some(false, bytes.data(), bytes.size(), error);
    if (parser.handler().failure()) throw *parser.handler().failure();
    if (!error && read < bytes.size()) error = json::error::extra_data;
    if (error)
        throw JSONError(JSONError::Kind::malformed, {},
                        "No valid JSON: " + error.message() + " after " + std::to_string(read) + " bytes.");
    return parser.handler().takeTree();
}

std::string jsonPath(const JSONTree& tree, std::uint32_t index) {
    std::string path;
    for (auto at = index; tree.nodes[at].parent != at; at = tree.nodes[at].parent) {
        const auto& node = tree.nodes[at];
        const bool inList = tree.nodes[node.parent].kind == Kind::list;
        const auto step =
            inList ? "[" + std::to_string(indexInList(tree, at)) + "]" : "." + std::string(node.key);
        path.insert(0, step);
    }
    if (path.starts_with('.')) path.erase(0, 1);
    return path;
}

}  // namespace vorlinden::platform
