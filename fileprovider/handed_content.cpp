#include "fileprovider/handed_content.h"

#include <utility>

namespace vorlinden::fileprovider {

HandedContent::HandedContent(std::shared_ptr<platform::FileSystem> files,
                             std::filesystem::path file) noexcept {
    try {
        const auto size = static_cast<std::int64_t>(files->size(file));
        if (size > UploadPlanner::maxUploadBytes) {
            state_ = OverLimit{std::move(files), std::move(file), size};
        } else {
            state_ = files->readOrMap(file);
        }
    } catch (...) {
        state_ = std::current_exception();
    }
}

void HandedContent::requireReadable() const {
    if (const auto* failure = std::get_if<std::exception_ptr>(&state_)) std::rethrow_exception(*failure);
}

ContentUploadPlan HandedContent::plan() const {
    if (const auto* large = std::get_if<OverLimit>(&state_))
        return {ContentUploadPlan::TooLarge{large->size}};
    return UploadPlanner::planContentUpload(bytes());
}

Data HandedContent::bytes() const {
    requireReadable();
    if (const auto* large = std::get_if<OverLimit>(&state_)) return large->files->readOrMap(large->file);
    const auto* data = std::get_if<Data>(&state_);
    return data ? *data : Data();
}

}  // namespace vorlinden::fileprovider
