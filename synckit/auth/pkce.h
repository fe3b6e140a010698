// Proof Key for Code Exchange (RFC 7636), method S256.
#pragma once

#include <string>
#include <string_view>

#include "platform/seams.h"
#include "synckit/types.h"

namespace vorlinden {

// Unpadded base64url (RFC 4648, section 5).
std::string base64URLEncodedString(const Data& data);

struct PKCE {
    std::string verifier;
    std::string challenge;
    std::string method = "S256";
    bool operator==(const PKCE&) const = default;

    explicit PKCE(std::string verifier);
    // A fresh verifier of 86 characters from 64 secure random bytes.
    static PKCE generate(platform::Random& random);
    static std::string challengeFor(std::string_view verifier);
};

}  // namespace vorlinden
