// What the daemon hands over with a create or an edit.
#pragma once

#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <variant>

#include "platform/files.h"
#include "synckit/types.h"
#include "synckit/upload/upload_planner.h"

namespace vorlinden::fileprovider {

// A value of shared memory. Content that may go up is taken once, when the object is made, and from then on
// shared by everybody: plan, spool and request. A file over the limit is only measured; the few roads that
// keep such bytes here read them when they get there.
class HandedContent {
 public:
    HandedContent() = default;  // nothing was handed over, which reads as an empty file
    // Never throws: why the file can't be read is kept for requireReadable().
    HandedContent(std::shared_ptr<platform::FileSystem> files, std::filesystem::path file) noexcept;

    bool isPresent() const { return !std::holds_alternative<Nothing>(state_); }
    // Throws what went wrong when the file was to be read.
    void requireReadable() const;

    ContentUploadPlan plan() const;
    // Throws FileError for a file over the limit that can't be read any more.
    Data bytes() const;

 private:
    struct Nothing {};
    struct OverLimit {
        std::shared_ptr<platform::FileSystem> files;
        std::filesystem::path file;
        std::int64_t size;  // bytes
    };

    std::variant<Nothing, Data, OverLimit, std::exception_ptr> state_;
};

}  // namespace vorlinden::fileprovider
