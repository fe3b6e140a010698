#include "tests/support/memory_secret_store.h"

#include <utility>

namespace vorlinden::tests {

using platform::Data;
using platform::SecretName;

void MemorySecretStore::failNext(std::int32_t status) {
    const std::lock_guard lock(mutex_);
    scripted_.push_back(status);
}

void MemorySecretStore::loseNextSecret() {
    const std::lock_guard lock(mutex_);
    loseNext_ = true;
}

void MemorySecretStore::failAlways(std::int32_t status) {
    const std::lock_guard lock(mutex_);
    always_ = status;
}

std::size_t MemorySecretStore::count() const {
    const std::lock_guard lock(mutex_);
    return entries_.size();
}

std::optional<Data> MemorySecretStore::secret() const {
    const std::lock_guard lock(mutex_);
    if (entries_.size() != 1) return std::nullopt;
    return entries_.begin()->second;
}

void MemorySecretStore::plant(const SecretName& name, Data data) {
    const std::lock_guard lock(mutex_);
    entries_[keyOf(name)] = std::move(data);
}

std::int32_t MemorySecretStore::copyMatching(const SecretName& name, std::optional<Data>& secret) {
    const std::lock_guard lock(mutex_);
    if (const std::int32_t status = takeScripted(); status != success) return status;
    const auto entry = entries_.find(keyOf(name));
    if (entry == entries_.end()) return itemNotFound;
    if (!std::exchange(loseNext_, false)) secret = entry->second;
    return success;
}

std::int32_t MemorySecretStore::update(const SecretName& name, const Data& secret) {
    const std::lock_guard lock(mutex_);
    if (const std::int32_t status = takeScripted(); status != success) return status;
    const auto entry = entries_.find(keyOf(name));
    if (entry == entries_.end()) return itemNotFound;
    entry->second = secret;
    return success;
}

std::int32_t MemorySecretStore::add(const SecretName& name, const Data& secret) {
    const std::lock_guard lock(mutex_);
    if (const std::int32_t status = takeScripted(); status != success) return status;
    return entries_.emplace(keyOf(name), secret).second ? success : duplicateItem;
}

std::int32_t MemorySecretStore::remove(const SecretName& name) {
    const std::lock_guard lock(mutex_);
    if (const std::int32_t status = takeScripted(); status != success) return status;
    return entries_.erase(keyOf(name)) == 1 ? success : itemNotFound;
}

std::optional<std::string> MemorySecretStore::statusText(std::int32_t status) {
    return platform::secretStatusText(status);
}

MemorySecretStore::Key MemorySecretStore::keyOf(const SecretName& name) {
    return {name.accessGroup, name.service, name.account};
}

std::int32_t MemorySecretStore::takeScripted() {
    if (always_ != success || scripted_.empty()) return always_;
    const std::int32_t status = scripted_.front();
    scripted_.pop_front();
    return status;
}

}  // namespace vorlinden::tests
