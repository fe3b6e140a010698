// How a sync server is to run. A value; the defaults are those of the command line.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vorlinden::server {

// A path of a brain under which members may read but not write.
struct ReadOnlySubtree {
    std::string slug;
    std::string path;
};

// A real folder whose files become the brain `slug` before the server listens.
struct ImportSource {
    std::string slug;
    std::filesystem::path folder;
};

struct ServerOptions {
    std::filesystem::path data{};       // everything the server keeps; made if it isn't there
    std::string address = "127.0.0.1";  // of the loopback network: there is no TLS
    std::uint16_t port = 0;             // 0: any free one
    std::vector<ImportSource> imports{};
    bool autoApprove = false;  // authorize at once, without the page
    std::chrono::seconds tokenLifetime{3600};
    std::int64_t keepFeed = 10'000;  // entries of a brain's feed that stay; older cursors expire
    std::vector<ReadOnlySubtree> readOnly{};
    std::int64_t maxUpload = 104'857'600;  // bytes of one file
    bool missingDeleteIs404 = false;       // instead of 200 with `deleted` false
    std::chrono::milliseconds delay{0};    // added to every request
    unsigned threads = 16;                 // each serves connections of its own
};

}  // namespace vorlinden::server
