#include "synckit/auth/pkce.h"

#include <algorithm>
#include <array>

#include <openssl/evp.h>
#include <openssl/sha.h>

namespace vorlinden {
namespace {

std::string base64URL(std::span<const std::uint8_t> bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');  // EVP_EncodeBlock ends its output with a NUL
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(),
                                       static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(length));
    while (text.ends_with('='))
        text.pop_back();
    std::ranges::replace(text, '+', '-');
    std::ranges::replace(text, '/', '_');
    return text;
}

}  // namespace

std::string base64URLEncodedString(const Data& data) {
    return base64URL(data.span());
}

PKCE::PKCE(std::string ofVerifier) : verifier(std::move(ofVerifier)), challenge(challengeFor(verifier)) {}

PKCE PKCE::generate(platform::Random& random) {
    std::array<std::uint8_t, 64> bytes;
    random.fill(bytes);
    return PKCE(base64URL(bytes));
}

std::string PKCE::challengeFor(std::string_view verifier) {
    std::array<std::uint8_t, SHA256_DIGEST_LENGTH> digest;
    SHA256(reinterpret_cast<const unsigned char*>(verifier.data()), verifier.size(), digest.data());
    return base64URL(digest);
}

}  // namespace vorlinden
