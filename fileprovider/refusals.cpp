#include "fileprovider/refusals.h"

#include "synckit/server/sync_errors.h"
#include "synckit/upload/upload_planner.h"

namespace vorlinden::fileprovider {

namespace {

// 401, 408 and 429 say something about the moment, "FORBIDDEN" about the session; none of them about the
// change.
bool isFinal(const SyncAPIError& error) {
    if (error.status < 400 || error.status > 499) return false;
    return error.status != 401 && error.status != 408 && error.status != 429 && !error.isForbidden();
}

bool isReadOnlySubtree(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const SyncAPIError& error) {
        return error.isForbiddenSubtree();
    } catch (...) {
        return false;
    }
}

}  // namespace

std::optional<std::string> rejectionMessage(const std::exception_ptr& failure, std::string_view prefix) {
    try {
        std::rethrow_exception(failure);
    } catch (const UploadPlanError& error) {
        return std::string(prefix) + error.errorDescription();
    } catch (const SyncAPIError& error) {
        if (!isFinal(error)) return {};
        return std::string(prefix) + error.message;
    } catch (...) {
        return {};
    }
}

Refusal refusalOf(const std::exception_ptr& failure, std::string_view prefix) {
    if (isReadOnlySubtree(failure)) return ReadOnlySubtree{};
    if (auto message = rejectionMessage(failure, prefix)) return RefusedForGood{*std::move(message)};
    std::rethrow_exception(failure);
}

}  // namespace vorlinden::fileprovider
