// Paths that are taken, for whoever looks for a free one.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <unordered_set>

namespace vorlinden {

// A value: a set of strings in which canonically equivalent Unicode strings are one, as they are to a person
// who reads them and to some file systems.
class CanonicalPathSet {
 public:
    CanonicalPathSet() = default;
    CanonicalPathSet(std::initializer_list<std::string_view> paths);

    void insert(std::string_view path);
    bool contains(std::string_view path) const;
    std::size_t size() const { return composed_.size(); }

 private:
    std::unordered_set<std::string> composed_;
};

}  // namespace vorlinden
