// Hands each request to the part of the server that serves it, and turns what they throw into answers.
#pragma once

#include "linux/server/admin_api.h"
#include "linux/server/http_server.h"
#include "linux/server/oauth_api.h"
#include "linux/server/sync_api.h"

namespace vorlinden::server {

class Router : public Application {
 public:
    Router(const SyncApi& sync, const OAuthApi& oauth, const AdminApi& admin)
        : sync_(sync), oauth_(oauth), admin_(admin) {}

    BodyPlan admit(const RequestHead& head) override;
    Response answer(const Request& request) override;
    Response failure(const RequestHead& head, std::exception_ptr problem) override;
    bool isOnTrial(const RequestHead& head) const override { return !AdminApi::serves(head); }

 private:
    const SyncApi& sync_;
    const OAuthApi& oauth_;
    const AdminApi& admin_;
};

}  // namespace vorlinden::server
