#include <array>
#include <cstring>
#include <iterator>
#include <stdexcept>

#include <boost/algorithm/hex.hpp>
#include <openssl/evp.h>

#include "platform/text.h"
#include "synckit/upload/upload_planner.h"

namespace vorlinden::ContentClassifier {

namespace {

// A UTF-16 unit takes at most three bytes of UTF-8 (a pair takes four), so a longer buffer is a blob whatever
// it holds: too long if it is text, and not text otherwise. Nothing of it need be read.
constexpr std::size_t maxTextBytes = 3 * maxTextLength;

bool isText(std::string_view bytes) {
    if (bytes.size() > maxTextBytes) return false;
    if (bytes.starts_with("\xEF\xBB\xBF")) return false;
    if (!bytes.empty() && std::memchr(bytes.data(), 0, bytes.size()) != nullptr) return false;
    if (!platform::isValidUTF8(bytes)) return false;
    return bytes.size() <= maxTextLength || platform::utf16Length(bytes) <= maxTextLength;
}

}  // namespace

ContentClassification classify(const Data& data) {
    if (isText(data.view())) return {ContentClassification::Text{std::string(data.view())}};
    return {ContentClassification::Blob{data}};
}

std::string blobHash(const Data& data) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (EVP_Digest(data.data(), data.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("SHA-256 is not available");
    std::string text;
    text.reserve(2 * length);
    boost::algorithm::hex_lower(digest.begin(), digest.begin() + length, std::back_inserter(text));
    return text;
}

}  // namespace vorlinden::ContentClassifier
