#include "linux/server/sync_server.h"

#include "linux/server/admin_api.h"
#include "linux/server/contents.h"
#include "linux/server/digest.h"
#include "linux/server/http_server.h"
#include "linux/server/oauth_api.h"
#include "linux/server/router.h"
#include "linux/server/storage.h"
#include "linux/server/sync_api.h"

namespace vorlinden::server {

namespace {

std::string urlOf(const ServerOptions& options, std::uint16_t port) {
    const bool isIPv6 = options.address.find(':') != std::string::npos;
    return "http://" + (isIPv6 ? "[" + options.address + "]" : options.address) + ":" + std::to_string(port);
}

HttpServer::Settings httpSettings(const ServerOptions& options) {
    return {options.address, options.port, options.threads, options.delay};
}

}  // namespace

// In the order in which each needs the ones before it.
struct SyncServer::Parts {
    Parts(ServerOptions given, std::shared_ptr<platform::Clock> clock,
          std::shared_ptr<platform::Random> random)
        : options(std::move(given)),
          storage(options.data, std::move(clock), std::move(random)),
          http(httpSettings(options), storage, faults),
          url(urlOf(options, http.port())),
          contact{url, randomSecret(storage.random())},
          oauth(authorization, url, options.autoApprove),
          admin(administrator, faults, contact.secret) {}

    const ServerOptions options;
    Storage storage;
    FaultPlan faults;
    HttpServer http;
    const std::string url;
    const AdminContact contact;
    Authorization authorization{storage, options.tokenLifetime};
    const Administrator administrator{storage, authorization, options};
    const SyncApi sync{storage, options};
    const OAuthApi oauth;
    const AdminApi admin;
    Router router{sync, oauth, admin};
    std::vector<ImportReport> imports;
};

SyncServer::SyncServer(ServerOptions options, std::shared_ptr<platform::Clock> clock,
                       std::shared_ptr<platform::Random> random)
    : parts_(std::make_unique<Parts>(std::move(options), std::move(clock), std::move(random))) {
    Contents::sweep(parts_->storage);
    for (const auto& [slug, folder] : parts_->options.imports) {
        parts_->imports.push_back(parts_->administrator.import(slug, folder));
    }
    parts_->contact.write(parts_->options.data);
    parts_->http.start(parts_->router);
}

SyncServer::~SyncServer() {
    stop();
}

std::string SyncServer::url() const {
    return parts_->url;
}
const std::vector<ImportReport>& SyncServer::imports() const {
    return parts_->imports;
}
const Administrator& SyncServer::administrator() const {
    return parts_->administrator;
}
FaultPlan& SyncServer::faults() {
    return parts_->faults;
}

void SyncServer::stop() {
    parts_->http.stop();
    AdminContact::forget(parts_->options.data);
}

}  // namespace vorlinden::server
