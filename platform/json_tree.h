// The parsed form of a JSON document: all values in one array, in the order of the text. Internal to the JSON
// reader, which keeps no more of a document than this: Boost.JSON's own values would silently drop the first
// of two equal keys.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace vorlinden::platform {

struct JSONNode {
    enum class Kind : std::uint8_t { null, boolean, integer, hugeInteger, fraction, text, list, object };

    std::string_view key;  // in its object; empty elsewhere
    union {
        std::string_view text{};
        std::int64_t integer;
        double fraction;
        bool boolean;
    };
    std::uint32_t parent;  // the index of the list or object it stands in; its own index at the root
    std::uint32_t end;     // one past the last value inside it: where the next of its siblings stands
    Kind kind;
};

// A value; `nodes` is never empty once parsed. Strings point into the source or into `unescaped`.
struct JSONTree {
    std::vector<JSONNode> nodes;
    std::deque<std::string> unescaped;
};

// Throws JSONError.
JSONTree parseJSON(std::string_view bytes);
// Where a value stands: "entries[3].at"; empty for the root.
std::string jsonPath(const JSONTree& tree, std::uint32_t index);

}  // namespace vorlinden::platform
