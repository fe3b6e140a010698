// A secret store in memory that can be told to fail.
#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <tuple>

#include "platform/secrets.h"

namespace vorlinden::tests {

// Thread-safe. Behaves as a real store does until told otherwise.
class MemorySecretStore final : public platform::SecretStore {
 public:
    // The next operations give these statuses, one each, and do nothing else.
    void failNext(std::int32_t status);
    // A status-0 answer that brings no bytes along, once.
    void loseNextSecret();
    // Every operation gives this status until cleared with `success`.
    void failAlways(std::int32_t status);

    std::size_t count() const;                                     // entries
    std::optional<platform::Data> secret() const;                  // of the only entry
    void plant(const platform::SecretName&, platform::Data data);  // as if another process had written it

    std::int32_t copyMatching(const platform::SecretName& name,
                              std::optional<platform::Data>& secret) override;
    std::int32_t update(const platform::SecretName& name, const platform::Data& secret) override;
    std::int32_t add(const platform::SecretName& name, const platform::Data& secret) override;
    std::int32_t remove(const platform::SecretName& name) override;
    std::optional<std::string> statusText(std::int32_t status) override;

 private:
    using Key = std::tuple<std::string, std::string, std::string>;
    static Key keyOf(const platform::SecretName& name);
    std::int32_t takeScripted();

    mutable std::mutex mutex_;  // guards the fields below
    std::map<Key, platform::Data> entries_;
    std::deque<std::int32_t> scripted_;
    std::int32_t always_ = success;
    bool loseNext_ = false;
};

}  // namespace vorlinden::tests
