#include "platform/fileprovider/domain_registry.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string_view>
#include <utility>

#include <boost/json.hpp>

#include "platform/fileprovider/manager.h"

namespace vorlinden::platform::fileprovider {

namespace json = boost::json;

namespace {

constexpr std::string_view recordPrefix = "domain.";
constexpr std::string_view recordSuffix = ".json";

bool isRecordName(std::string_view name) {
    return name.starts_with(recordPrefix) && name.ends_with(recordSuffix);
}

Data encoded(const Domain& domain) {
    json::object record{{"identifier", domain.identifier}, {"displayName", domain.displayName}};
    return Data(json::serialize(record) + "\n");
}

std::optional<std::string> text(const json::object& record, std::string_view key) {
    const json::value* value = record.if_contains(key);
    if (!value || !value->is_string()) return {};
    return std::string(value->get_string());
}

std::optional<Domain> decoded(const Data& bytes) {
    json::error_code error;
    const json::value value = json::parse(bytes.view(), error);
    if (error || !value.is_object()) return {};
    auto identifier = text(value.get_object(), "identifier");
    auto displayName = text(value.get_object(), "displayName");
    if (!identifier || !displayName) return {};
    return Domain{*std::move(identifier), *std::move(displayName)};
}

// Absent if the file has gone, or holds no record.
std::optional<Domain> readRecord(FileSystem& files, const std::filesystem::path& file) {
    try {
        return decoded(files.read(file));
    } catch (const FileError& failure) {
        if (failure.code != ENOENT) throw;
        return {};
    }
}

}  // namespace

DomainRegistry::DomainRegistry(std::filesystem::path folder, std::shared_ptr<FileSystem> files)
    : folder_(std::move(folder)), files_(std::move(files)) {}

std::filesystem::path DomainRegistry::recordFile(const std::string& identifier) const {
    return folder_ / (std::string(recordPrefix) + fileNameComponent(identifier) + std::string(recordSuffix));
}

void DomainRegistry::registerDomain(const Domain& domain) const {
    files_->createDirectories(folder_);
    files_->writeAtomically(encoded(domain), recordFile(domain.identifier));
}

std::vector<Domain> DomainRegistry::domains() const {
    std::vector<Domain> found;
    if (!files_->exists(folder_)) return found;
    for (const std::string& name : files_->list(folder_)) {
        if (!isRecordName(name)) continue;
        if (auto domain = readRecord(*files_, folder_ / name)) found.push_back(*std::move(domain));
    }
    std::ranges::sort(found, {}, &Domain::identifier);
    return found;
}

bool DomainRegistry::isRegistered(const std::string& identifier) const {
    const auto domain = readRecord(*files_, recordFile(identifier));
    return domain && domain->identifier == identifier;
}

void DomainRegistry::removeDomain(const std::string& identifier) const {
    try {
        files_->remove(recordFile(identifier));
    } catch (const FileError& failure) {
        if (failure.code != ENOENT) throw;
    }
}

}  // namespace vorlinden::platform::fileprovider
