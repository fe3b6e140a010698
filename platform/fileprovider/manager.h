// A domain's Manager over named wake-ups and the user's cache folder, so that host, extension and daemon meet
// without a server between them.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/fileprovider/domain_registry.h"
#include "platform/fileprovider/protocol.h"
#include "platform/files.h"
#include "platform/notifications.h"

namespace vorlinden::platform::fileprovider {

// The text as one component of a file name: itself where every byte may stand in one, else escaped; beyond 80
// bytes its SHA-256 in hexadecimal. Different texts give different names.
std::string fileNameComponent(std::string_view text);

// The wake-up that signalEnumerator() posts for a container, and that the daemon listens for.
std::string enumeratorSignalName(const std::string& domainIdentifier, const ItemIdentifier& container);

// Where a domain's fetched content may lie, below `cache`. Everything under it can be had again.
std::filesystem::path domainCacheFolder(const std::filesystem::path& cache,
                                        const std::string& domainIdentifier);

// Gives the manager of a domain, or null where `registry` holds no record of it: at the time of the call, so
// that a domain removed by the host stops its extension's signals. This is System::managerForDomain on Linux.
std::function<std::shared_ptr<Manager>(const Domain&)> managerSource(
    DomainRegistry registry, std::shared_ptr<NotificationCenter> notifications,
    std::shared_ptr<FileSystem> files, std::filesystem::path cache);

}  // namespace vorlinden::platform::fileprovider
