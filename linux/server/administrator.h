// What somebody with power over the server can do: play another device, grant and revoke, make clients start
// anew.
//
// Thread-safe. Refuses by throwing Refusal; a brain that doesn't exist is NO_SUCH_BRAIN.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "linux/server/authorization.h"
#include "linux/server/brain_editor.h"
#include "linux/server/importer.h"
#include "linux/server/options.h"
#include "linux/server/storage.h"

namespace vorlinden::server {

class Administrator {
 public:
    Administrator(Storage& storage, Authorization& authorization, const ServerOptions& options)
        : storage_(storage), authorization_(authorization), options_(options) {}

    // Changes as any device makes them, but for the read-only subtrees, which hold nobody here. Each gives
    // the cursor of the feed afterwards.
    std::string put(const std::string& slug, const std::string& path, const IncomingContent& content,
                    const std::optional<std::string>& title = {}) const;
    std::string put(const std::string& slug, const std::string& path, std::string_view bytes) const;
    std::string move(const std::string& slug, const std::string& from, const std::string& to) const;
    std::string remove(const std::string& slug,
                       const std::string& path) const;  // refuses if nothing is there
    std::string makeFolder(const std::string& slug, const std::string& path) const;

    // Forgets the feed, so that every client is given a snapshot. `listFolders`: whether snapshots list every
    // folder with an id of its own, or only the empty ones; absent leaves that as it is.
    std::string reset(const std::string& slug, std::optional<bool> listFolders = {}) const;

    // Makes the brain if there is none. A revoked brain keeps its content.
    void grant(const std::string& slug) const;
    void revoke(const std::string& slug) const;

    ImportReport import(const std::string& slug, const std::filesystem::path& folder) const;

    void expireAccessTokens() const;
    void endSessions() const;

 private:
    template <class Change>
    std::string edit(const std::string& slug, const Change& change) const;
    BrainRow brain(Database& database, const std::string& slug) const;

    Storage& storage_;
    Authorization& authorization_;
    const ServerOptions& options_;
};

}  // namespace vorlinden::server
