// An extension over a FakeCatalogue, for a whole daemon in a test.
#pragma once

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "tests/mount/fake_catalogue.h"

namespace vorlinden::tests {

// What outlives an extension object: the catalogue, the server behind it, and what the test wants of both.
// Thread-safe. The content of a file tells its origin and version.
class FakeBackend {
 public:
    explicit FakeBackend(std::filesystem::path temporary) : temporary_(std::move(temporary)) {}

    // Changes the catalogue. The daemon knows nothing of it until it is signalled.
    template <class Change>
    void change(Change body) {
        std::lock_guard hold(mutex_);
        body(catalogue_);
    }
    static std::string contentOf(const FakeCatalogue::Row& row);
    std::string contentAt(const std::string& path);

    void failFetches(std::optional<platform::fileprovider::ErrorCode> code);
    void failEverything(std::optional<platform::fileprovider::ErrorCode> code);
    void expireAnchors();
    // Fetches wait until released; each cancelled one is answered at once.
    void holdFetches();
    void releaseFetches();
    std::size_t fetches() const;     // begun so far
    std::size_t waiting() const;     // held now
    std::size_t listings() const;    // folders enumerated so far
    std::size_t extensions() const;  // objects made so far

    std::shared_ptr<platform::fileprovider::ReplicatedExtension> makeExtension();

 private:
    friend class CatalogueExtension;
    struct Fetch {
        ItemIdentifier identifier;
        platform::fileprovider::FetchHandler handler;
    };

    void deliver(const Fetch& fetch);
    void requireWorking() const;  // throws Error

    const std::filesystem::path temporary_;
    mutable std::mutex mutex_;  // guards the fields below
    FakeCatalogue catalogue_;
    std::optional<platform::fileprovider::ErrorCode> fetchFailure_, failure_;
    std::int64_t firstValidAnchor_ = 0;
    bool held_ = false;
    std::list<std::shared_ptr<Fetch>> heldFetches_;
    std::size_t fetches_ = 0, listings_ = 0, extensions_ = 0, counter_ = 0;
};

}  // namespace vorlinden::tests
