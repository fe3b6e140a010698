// Failures of content in words, and what an error of the extension means for a reader.
#pragma once

#include <cstdint>
#include <filesystem>

#include "linux/mount/content_store.h"

namespace vorlinden::mount {

// The room that the content of an item may take, in bytes: its size, or the most that a text takes.
std::uint64_t roomFor(const Item& item);

ContentFailure contentFailure(ContentFailure::Kind kind);
ContentFailure contentFailure(const platform::FileError& failure);

// `folder` is asked for its free room: the extension doesn't tell a full disk from a server out of reach.
ContentFailure contentFailure(const platform::fileprovider::Error& error, const Item& item,
                              const std::filesystem::path& folder);

}  // namespace vorlinden::mount
