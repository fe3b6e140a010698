// SHA-256, and secrets that can't be guessed.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "platform/seams.h"

namespace vorlinden::server {

// A digest in the making; one thread at a time.
class Sha256 {
 public:
    Sha256();
    Sha256(Sha256&&) noexcept;
    Sha256& operator=(Sha256&&) noexcept;
    ~Sha256();
    void add(std::string_view bytes);
    std::string hex();  // 64 lower-case digits; ends the digest

 private:
    struct State;
    std::unique_ptr<State> state_;
};

std::string sha256Hex(std::string_view bytes);
// The code challenge of method S256: base64url of the digest without padding, 43 characters.
std::string sha256Base64URL(std::string_view bytes);
// 256 random bits as 43 characters that are safe in a URL.
std::string randomSecret(platform::Random& random);
// 96 random bits as 16 characters that are safe in a URL.
std::string randomName(platform::Random& random);

}  // namespace vorlinden::server
