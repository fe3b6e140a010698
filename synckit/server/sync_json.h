// The JSON of the sync server: strict decoding and sorted-key encoding of the wire model.
//
// Pure functions, any thread. decode() throws platform::JSONError and gives no partial result: one entry that
// doesn't read fails the whole response. It holds the parsed document only until it returns.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/json.h"
#include "synckit/server/wire_model.h"
#include "synckit/types.h"

namespace vorlinden::SyncJSON {

// YYYY-MM-DDThh:mm:ss.sssZ and no other form.
std::string string(Timestamp from);
std::optional<Timestamp> date(std::string_view from);

// For Brain, Device, Author, Op, FeedEntry, SnapshotNode, ChangesResponse, NodeRef, WriteResult,
// DeleteResult, BlobReceipt and the four envelopes.
template <class T>
T decode(std::string_view json);
template <class T>
T decode(const Data& json) {
    return decode<T>(json.view());
}

// For Brain, Device, Author, Op, FeedEntry, SnapshotNode, NodeRef, WriteResult, DeleteResult and BlobReceipt:
// compact, keys sorted, absent values left out. Throws JSONError for text that isn't UTF-8.
template <class T>
platform::JSONText encode(const T& value);

}  // namespace vorlinden::SyncJSON
