#include "linux/mount/content_store.h"

#include <utility>

#include "linux/mount/content_fetcher.h"

namespace vorlinden::mount {

std::shared_ptr<ContentStore> openContentStore(platform::System system, ContentStoreOptions options,
                                               ContentStoreSurroundings surroundings) {
    return std::make_shared<ContentFetcher>(std::move(system), std::move(options), std::move(surroundings));
}

}  // namespace vorlinden::mount
