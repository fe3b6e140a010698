// The other end of the administrator's door: what `server-ctl` says to a running server.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/failure.h"

namespace vorlinden::server {

// The server refused, or can't be reached.
struct AdminFailure : platform::Failure {
    explicit AdminFailure(std::string sentence) : Failure(std::move(sentence)) {}
    bool operator==(const AdminFailure&) const = default;
};

using AdminParameters = std::vector<std::pair<std::string, std::string>>;

// Asks the server that runs on the folder `data` to do `verb`, with the file's bytes as the request's body if
// one is given. Blocks; gives the answer's JSON. Throws AdminFailure, or platform::FileError about the file.
std::string askServer(const std::filesystem::path& data, const std::string& verb,
                      const AdminParameters& parameters,
                      const std::optional<std::filesystem::path>& body = {});

}  // namespace vorlinden::server
