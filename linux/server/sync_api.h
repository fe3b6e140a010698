// The sync API: devices, brains, changes, files, blobs.
//
// Every answer is one transaction. Thread-safe. Refuses by throwing Refusal.
#pragma once

#include <string>
#include <vector>

#include "linux/server/brains.h"
#include "linux/server/http_message.h"
#include "linux/server/options.h"
#include "linux/server/storage.h"

namespace vorlinden::server {

class SyncApi {
 public:
    SyncApi(Storage& storage, const ServerOptions& options) : storage_(storage), options_(options) {}

    static bool serves(const RequestHead& head);
    BodyPlan admit(const RequestHead& head) const;
    Response answer(const Request& request) const;

 private:
    Response brainAnswer(const Request& request, const std::string& action) const;

    Response registerDevice(const Request& request) const;
    Response devices(const RequestHead& head) const;
    Response brains(const RequestHead& head) const;
    Response changes(const RequestHead& head) const;
    Response file(const RequestHead& head) const;
    Response putFile(const Request& request) const;
    Response moveNode(const Request& request) const;
    Response deleteNode(const Request& request) const;
    Response takeBlob(const Request& request) const;

    std::string member(Database& database, const RequestHead& head) const;
    BrainRow brain(Database& database, const RequestHead& head) const;
    // A write by the device that the request names, from the first check to the commit.
    template <class Change>
    auto write(const RequestHead& head, const std::string& deviceId, const Change& change) const;
    std::vector<std::string> readOnlyPaths(const std::string& slug) const;

    Storage& storage_;
    const ServerOptions& options_;
};

}  // namespace vorlinden::server
