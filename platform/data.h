// File content: one immutable buffer, shared by everybody who holds it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vorlinden::platform {

// A value of reference semantics: copying it copies a pointer, never the bytes, so that a plan, a request and
// a spool write of one file share one allocation. The bytes never change after construction; any thread may
// read.
class Data {
 public:
    Data() = default;                                // empty
    explicit Data(std::string bytes);                // takes the string's memory
    explicit Data(std::vector<std::uint8_t> bytes);  // takes the vector's memory
    // Bytes that `owner` keeps alive (a mapping, a slice of a larger buffer).
    Data(std::shared_ptr<const void> owner, const std::uint8_t* bytes, std::size_t size);
    static Data copyOf(std::string_view bytes);

    const std::uint8_t* data() const { return bytes_; }
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    std::string_view view() const { return {reinterpret_cast<const char*>(bytes_), size_}; }
    std::span<const std::uint8_t> span() const { return {bytes_, size_}; }

    friend bool operator==(const Data& a, const Data& b) { return a.view() == b.view(); }

 private:
    std::shared_ptr<const void> owner_;
    const std::uint8_t* bytes_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace vorlinden::platform
