#include "synckit/upload/server_failure.h"

namespace vorlinden {

Setback sorted(const ServerFailure& failure) {
    const auto* error = std::get_if<SyncAPIError>(&failure);
    if (!error) return {Setback::Kind::retryLater};
    if (error->isForbiddenSubtree()) return {Setback::Kind::bounced};
    if (error->isForbidden() || error->isUnauthenticated()) throw SyncAPIError(*error);
    constexpr int requestTimeout = 408, tooManyRequests = 429;
    const bool passes = error->status == requestTimeout || error->status == tooManyRequests;
    if (error->status < 400 || error->status > 499 || passes) return {Setback::Kind::retryLater};
    return {Setback::Kind::givenUp, error->message};
}

}  // namespace vorlinden
