#include "linux/host/pauses.h"

#include <algorithm>

#include "platform/failure.h"
#include "synckit/auth/oauth_client.h"
#include "synckit/server/sync_errors.h"

namespace vorlinden::host {

bool isPassing(int status) {
    return status >= 500 || status == 408 || status == 429;
}

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

void DrainPauses::putOff(const platform::UUID& brain, platform::Timestamp now, double chance) {
    auto& pause = pauses_[brain];
    pause.from = now;
    pause.until = now + pauseAfterFailures(++pause.failures, chance);
}

std::set<platform::UUID> DrainPauses::pausing(platform::Timestamp now) const {
    std::set<platform::UUID> brains;
    for (const auto& [brain, pause] : pauses_) {
        const bool clockWentBack = now < pause.from;
        if (now < pause.until && !clockWentBack) brains.insert(brain);
    }
    return brains;
}

std::optional<platform::Timestamp> DrainPauses::next() const {
    std::optional<platform::Timestamp> first;
    for (const auto& [brain, pause] : pauses_)
        if (!first || pause.until < *first) first = pause.until;
    return first;
}

}  // namespace vorlinden::host
