// Shared settings in memory.
#pragma once

#include <map>
#include <mutex>

#include "platform/system.h"

namespace vorlinden::tests {

// Thread-safe.
class MemoryDefaults final : public platform::SharedDefaults {
 public:
    std::optional<std::string> string(const std::string& key) override {
        const std::lock_guard lock(mutex_);
        const auto entry = values_.find(key);
        return entry == values_.end() ? std::nullopt : std::optional(entry->second);
    }
    void set(const std::string& key, std::optional<std::string> value) override {
        const std::lock_guard lock(mutex_);
        if (value) {
            values_[key] = *std::move(value);
        } else {
            values_.erase(key);
        }
    }

 private:
    std::mutex mutex_;  // guards values_
    std::map<std::string, std::string> values_;
};

}  // namespace vorlinden::tests
