#include "platform/data.h"

#include <utility>

namespace vorlinden::platform {

Data::Data(std::string bytes) {
    auto owner = std::make_shared<const std::string>(std::move(bytes));
    bytes_ = reinterpret_cast<const std::uint8_t*>(owner->data());
    size_ = owner->size();
    owner_ = std::move(owner);
}

Data::Data(std::vector<std::uint8_t> bytes) {
    auto owner = std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes));
    bytes_ = owner->data();
    size_ = owner->size();
    owner_ = std::move(owner);
}

Data::Data(std::shared_ptr<const void> owner, const std::uint8_t* bytes, std::size_t size)
    : owner_(std::move(owner)), bytes_(bytes), size_(size) {}

Data Data::copyOf(std::string_view bytes) {
    return Data(std::string(bytes));
}

}  // namespace vorlinden::platform
