// The administrator over HTTP, for `server-ctl`: POST /admin/VERB?slug=...&path=... with the server's secret.
//
// The secret and the server's URL lie in two files of the data folder that only its owner can read.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "linux/server/administrator.h"
#include "linux/server/faults.h"
#include "linux/server/http_message.h"

namespace vorlinden::server {

class AdminApi {
 public:
    AdminApi(const Administrator& administrator, FaultPlan& faults, std::string secret)
        : administrator_(administrator), faults_(faults), secret_(std::move(secret)) {}

    static bool serves(const RequestHead& head);
    BodyPlan admit(const RequestHead& head) const;  // refuses who doesn't know the secret
    Response answer(const Request& request) const;

 private:
    std::string perform(const std::string& verb, const Request& request) const;
    void addFault(const Request& request) const;

    const Administrator& administrator_;
    FaultPlan& faults_;
    const std::string secret_;
};

// Where `server-ctl` finds the running server of a data folder.
struct AdminContact {
    std::string url;
    std::string secret;

    void write(const std::filesystem::path& data) const;
    // Absent if no server has run there.
    static std::optional<AdminContact> read(const std::filesystem::path& data);
    static void forget(const std::filesystem::path& data);
};

}  // namespace vorlinden::server
