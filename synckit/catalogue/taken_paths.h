// The paths of a brain that a new file may not take.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "synckit/catalogue/records.h"

namespace vorlinden {

// Those of its rows, and those that its waiting changes name, which may become rows. Canonically equivalent
// Unicode strings are one path. Collected once, then kept current write by write, since looking for one free
// name among 100,000 rows must not mean reading them. Belongs to a transaction of MetadataStore and shares
// its lock.
class TakenPaths {
 public:
    TakenPaths(const std::vector<NodeRecord>& rows, const std::vector<PendingChange>& journal);
    TakenPaths(TakenPaths&&) = default;

    bool contains(std::string_view path) const;

    void nodeWritten(const std::string& nodeId, std::string_view path);
    void nodeDeleted(const std::string& nodeId);
    void changeWritten(std::int64_t id, std::string_view path, const std::optional<std::string>& fromPath);
    void changeRedirected(std::int64_t id, std::string_view path);
    void changeRemoved(std::int64_t id);

 private:
    // A claim on a path, held in `claims_`; two rows never claim one path, but a row and a change may.
    using Claim = std::unordered_map<std::string, int>::value_type*;
    struct ChangeClaims {
        Claim path;
        Claim fromPath;  // null if there is none
    };

    Claim claim(std::string_view path);
    void release(Claim claim);

    std::unordered_map<std::string, int> claims_;  // how many, by composed path
    std::unordered_map<std::string, Claim> nodes_;
    std::unordered_map<std::int64_t, ChangeClaims> changes_;
};

}  // namespace vorlinden
