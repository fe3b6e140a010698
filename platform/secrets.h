// A store of named secrets, shared by this user's processes and private to them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "platform/data.h"

namespace vorlinden::platform {

// The name of one entry.
struct SecretName {
    std::string service;
    std::string account;
    std::string accessGroup;
};

// Status 0 is success; `statusText` gives the words for the others. Blocking, thread-safe.
class SecretStore {
 public:
    static constexpr std::int32_t success = 0;
    static constexpr std::int32_t duplicateItem = -25299;
    static constexpr std::int32_t itemNotFound = -25300;
    // What holds the secret, or would, is open to others or belongs to another user.
    static constexpr std::int32_t notPrivate = -25243;
    static constexpr std::int32_t ioFailure = -61;
    static constexpr std::int32_t internalError = -67671;

    virtual ~SecretStore() = default;
    virtual std::int32_t copyMatching(const SecretName& name, std::optional<Data>& secret) = 0;
    virtual std::int32_t update(const SecretName& name, const Data& secret) = 0;
    virtual std::int32_t add(const SecretName& name, const Data& secret) = 0;
    virtual std::int32_t remove(const SecretName& name) = 0;
    virtual std::optional<std::string> statusText(std::int32_t status) = 0;
};

// The words for the statuses above; absent for any other.
std::optional<std::string> secretStatusText(std::int32_t status);

// One file of mode 0600 per entry in `folder` (mode 0700, made by the first add), replaced atomically. A file
// or folder that others could read or write, or that isn't this user's, is refused with `notPrivate`.
std::shared_ptr<SecretStore> fileSecretStore(std::filesystem::path folder);

}  // namespace vorlinden::platform
