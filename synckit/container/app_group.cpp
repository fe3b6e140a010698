#include "synckit/container/app_group.h"

#include "platform/text.h"
#include "synckit/catalogue/metadata_store.h"

namespace vorlinden::AppGroup {

const URL& defaultBaseURL() {
    static const URL url = URL::parse("https://sync.vorlinden.example").value();
    return url;
}

std::filesystem::path containerURL(const platform::System& system) {
    std::optional<std::filesystem::path> container = system.groupContainer(identifier);
    if (!container) throw MetadataStoreError::containerUnavailable(identifier);
    return *std::move(container);
}

std::filesystem::path syncDatabaseURL(const platform::System& system) {
    return MetadataStore::databaseURL(containerURL(system));
}

std::filesystem::path syncExecutionLockURL(const platform::System& system) {
    return syncDatabaseURL(system).replace_filename("sync-execution.lock");
}

std::filesystem::path spoolDirectory(const std::filesystem::path& container) {
    return container / "Library" / "Application Support" / "Vorlinden" / "Spool";
}

std::filesystem::path spoolDirectory(const platform::System& system) {
    return spoolDirectory(containerURL(system));
}

void sweepSpool(const platform::System& system) {
    const std::filesystem::path spool = spoolDirectory(system);
    if (system.files->exists(spool)) system.files->sweepTemporaries(spool);
}

std::shared_ptr<platform::SharedDefaults> defaults(const platform::System& system) {
    return system.sharedDefaults(identifier);
}

URL baseURL(const platform::System& system) {
    const std::shared_ptr<platform::SharedDefaults> settings = defaults(system);
    return baseURL(settings ? settings->string(baseURLOverrideKey) : std::nullopt);
}

URL baseURL(const std::optional<std::string>& override) {
    if (!override) return defaultBaseURL();
    const std::string text = platform::trimmed(*override);
    if (text.empty()) return defaultBaseURL();
    std::optional<URL> url = URL::parse(text);
    if (!url) return defaultBaseURL();
    const std::string scheme = platform::lowerCased(url->scheme().value_or(""));
    if (scheme != "http" && scheme != "https") return defaultBaseURL();
    if (url->host().value_or("").empty()) return defaultBaseURL();
    return *std::move(url);
}

}  // namespace vorlinden::AppGroup
