#include "linux/server/digest.h"

#include <array>
#include <vector>

#include <openssl/evp.h>

namespace vorlinden::server {

namespace {

using Digest = std::array<std::uint8_t, 32>;

struct FreeContext {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

std::string base64URL(std::span<const std::uint8_t> bytes) {
    // The encoder writes a terminating NUL beyond the text.
    std::vector<std::uint8_t> text(4 * ((bytes.size() + 2) / 3) + 1);
    const auto length = EVP_EncodeBlock(text.data(), bytes.data(), static_cast<int>(bytes.size()));
    std::string result(text.begin(), text.begin() + length);
    for (auto& character : result) {
        if (character == '+') character = '-';
        if (character == '/') character = '_';
    }
    result.resize(result.find_last_not_of('=') + 1);
    return result;
}

template <std::size_t Size>
std::string randomText(platform::Random& random) {
    std::array<std::uint8_t, Size> bytes;
    random.fill(bytes);
    return base64URL(bytes);
}

}  // namespace

struct Sha256::State {
    std::unique_ptr<EVP_MD_CTX, FreeContext> context{EVP_MD_CTX_new()};

    Digest end() {
        Digest digest;
        EVP_DigestFinal_ex(context.get(), digest.data(), nullptr);
        return digest;
    }
};

Sha256::Sha256() : state_(std::make_unique<State>()) {
    EVP_DigestInit_ex(state_->context.get(), EVP_sha256(), nullptr);
}
Sha256::Sha256(Sha256&&) noexcept = default;
Sha256& Sha256::operator=(Sha256&&) noexcept = default;
Sha256::~Sha256() = default;

void Sha256::add(std::string_view bytes) {
    EVP_DigestUpdate(state_->context.get(), bytes.data(), bytes.size());
}

std::string Sha256::hex() {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const auto byte : state_->end()) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::string sha256Hex(std::string_view bytes) {
    Sha256 digest;
    digest.add(bytes);
    return digest.hex();
}

std::string sha256Base64URL(std::string_view bytes) {
    Digest digest;
    EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
    return base64URL(digest);
}

std::string randomSecret(platform::Random& random) {
    return randomText<32>(random);
}
std::string randomName(platform::Random& random) {
    return randomText<12>(random);
}

}  // namespace vorlinden::server
