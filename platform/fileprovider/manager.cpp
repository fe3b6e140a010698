#include "platform/fileprovider/manager.h"

#include <array>
#include <utility>

#include <openssl/evp.h>

#include "platform/url.h"

namespace vorlinden::platform::fileprovider {

namespace {

// With prefixes and suffixes of ours around it, a name stays far below the 255 bytes of a file name.
constexpr std::size_t longestComponent = 80;

// "=" never stands in escaped text, so a digest is never taken for one.
std::string digestName(std::string_view text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_sha256(), nullptr);
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string hex = "=";
    for (unsigned i = 0; i < size; ++i) {
        hex += digits[digest[i] >> 4];
        hex += digits[digest[i] & 15];
    }
    return hex;
}

// A registry that can't be read knows nobody: a manager that can't be had is no failure to who asks for it.
bool isKnown(const DomainRegistry& registry, const Domain& domain) {
    try {
        return registry.isRegistered(domain.identifier);
    } catch (const FileError&) {
        return false;
    }
}

class SignallingManager final : public Manager {
 public:
    SignallingManager(Domain domain, std::shared_ptr<NotificationCenter> notifications,
                      std::shared_ptr<FileSystem> files, std::filesystem::path temporary)
        : domain_(std::move(domain)),
          notifications_(std::move(notifications)),
          files_(std::move(files)),
          temporary_(std::move(temporary)) {}

    void signalEnumerator(const ItemIdentifier& container,
                          std::function<void(std::optional<Error>)> handler) override {
        notifications_->post(enumeratorSignalName(domain_.identifier, container));
        handler({});
    }

    std::filesystem::path temporaryDirectory() override {
        files_->createDirectories(temporary_);
        return temporary_;
    }

 private:
    const Domain domain_;
    const std::shared_ptr<NotificationCenter> notifications_;
    const std::shared_ptr<FileSystem> files_;
    const std::filesystem::path temporary_;
};

}  // namespace

// A dot is escaped too: components are joined by dots, and "." and ".." are no names.
std::string fileNameComponent(std::string_view text) {
    std::string escaped;
    for (const char c : percentEncoded(text)) {
        if (c == '.') {
            escaped += "%2E";
        } else {
            escaped += c;
        }
    }
    return escaped.size() <= longestComponent ? escaped : digestName(text);
}

std::string enumeratorSignalName(const std::string& domainIdentifier, const ItemIdentifier& container) {
    return "signal." + fileNameComponent(domainIdentifier) + "." + fileNameComponent(container);
}

std::filesystem::path domainCacheFolder(const std::filesystem::path& cache,
                                        const std::string& domainIdentifier) {
    return cache / ("domain." + fileNameComponent(domainIdentifier));
}

std::function<std::shared_ptr<Manager>(const Domain&)> managerSource(
    DomainRegistry registry, std::shared_ptr<NotificationCenter> notifications,
    std::shared_ptr<FileSystem> files, std::filesystem::path cache) {
    return [=](const Domain& domain) -> std::shared_ptr<Manager> {
        if (!isKnown(registry, domain)) return nullptr;
        return std::make_shared<SignallingManager>(domain, notifications, files,
                                                   domainCacheFolder(cache, domain.identifier) / "temporary");
    };
}

}  // namespace vorlinden::platform::fileprovider
