// The file provider domains of this user: registered by the host, read by the daemon and by managers.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/fileprovider/protocol.h"
#include "platform/files.h"

namespace vorlinden::platform::fileprovider {

// One small file per domain in `folder`, replaced atomically, so that processes need no lock between them. A
// value over shared files: copying it is cheap, any thread may call. All operations block and throw
// FileError.
class DomainRegistry {
 public:
    DomainRegistry(std::filesystem::path folder, std::shared_ptr<FileSystem> files);

    // Adds the domain, or replaces the record of its identifier.
    void registerDomain(const Domain& domain) const;
    // Ordered by identifier. A record that can't be understood is left out: its domain isn't registered.
    std::vector<Domain> domains() const;
    bool isRegistered(const std::string& identifier) const;
    // No error if there is no such domain.
    void removeDomain(const std::string& identifier) const;

 private:
    std::filesystem::path recordFile(const std::string& identifier) const;

    std::filesystem::path folder_;
    std::shared_ptr<FileSystem> files_;
};

}  // namespace vorlinden::platform::fileprovider
