#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "synckit/catalogue/records.h"
#include "synckit/types.h"

namespace vorlinden {

// Content that a batch or a reset made necessary to fetch. A value.
struct DownloadRequest {
    UUID brainId;
    std::string nodeId;
    std::string path;
    NodeKind kind = NodeKind::text;
    std::int64_t contentVersion = 0;    // the catalogue's own counter
    std::optional<std::string> cursor;  // the feed position to download at
    bool operator==(const DownloadRequest&) const = default;
};

}  // namespace vorlinden
