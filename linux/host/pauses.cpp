#include "linux/host/pauses.h"

#include <algorithm>

#include "platform/failure.h"
#include "synckit/auth/oauth_client.h"
#include "synckit/server/sync_errors.h"

namespace vorlinden::host {
namespace {

bool isPassing(int status) {
    return status >= 500 || status == 408 || status == 429;
}

}  // namespace

std::chrono::milliseconds pauseAfterFailures(unsigned failures, double chance) {
    const auto doublings = std::clamp(failures, 1U, 10U) - 1;
    const auto seconds = std::min(300.0, static_cast<double>(1U << doublings));
    return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000.0 * (0.8 + 0.4 * chance)));
}

bool serverIsAway(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const platform::URLError&) {
        return true;
    } catch (const SyncAPIError& error) {
        return isPassing(error.status);
    } catch (const OAuthError& error) {
        return isPassing(error.status);
    } catch (...) {
        return false;
    }
}

}  // namespace vorlinden::host
