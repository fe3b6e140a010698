#include "fileprovider/error_mapping.h"

#include <utility>

#include "synckit/auth/token_manager.h"
#include "synckit/server/sync_errors.h"

namespace vorlinden::fileprovider {

namespace protocol = platform::fileprovider;

namespace {

Error mapServerAnswer(const SyncAPIError& error) {
    if (error.status == 404) return providerError(protocol::noSuchItem);
    if (error.isUnauthenticated()) return providerError(protocol::notAuthenticated);
    if (error.isNotFound()) return providerError(protocol::noSuchItem);
    return providerError(protocol::serverUnreachable);
}

Error mapRefusedWrite(const SyncAPIError& error) {
    if (error.isForbidden() || error.isUnauthenticated()) return providerError(protocol::notAuthenticated);
    const bool passes = error.status >= 500 || error.status == 429 || error.status == 408;
    return providerError(passes ? protocol::serverUnreachable : protocol::cannotSynchronize);
}

}  // namespace

Error providerError(protocol::ErrorCode code, std::optional<std::string> text) {
    return Error(protocol::errorDomain, code, std::move(text));
}

Error userCancelledError() {
    return Error(protocol::cocoaErrorDomain, protocol::userCancelled);
}

Error mapError(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const TokenManagerError& error) {
        const bool signedOut = error.reason == TokenManagerError::Reason::signedOut;
        return providerError(signedOut ? protocol::notAuthenticated : protocol::serverUnreachable);
    } catch (const SyncAPIError& error) {
        return mapServerAnswer(error);
    } catch (const CancelledError&) {
        return userCancelledError();
    } catch (const URLError& error) {
        if (error.code == URLError::Code::cancelled) return userCancelledError();
        return providerError(protocol::serverUnreachable);
    } catch (const Error& error) {
        if (error.domain == protocol::errorDomain) return error;
        return providerError(protocol::serverUnreachable);
    } catch (...) {
        return providerError(protocol::serverUnreachable);
    }
}

Error mapWriteError(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const SyncAPIError& error) {
        return mapRefusedWrite(error);
    } catch (const TokenManagerError&) {
        return mapError(failure);
    } catch (const URLError&) {
        return mapError(failure);
    } catch (const CancelledError&) {
        return mapError(failure);
    } catch (const Error& error) {
        if (error.domain == protocol::errorDomain) return error;
        return providerError(protocol::cannotSynchronize);
    } catch (...) {
        return providerError(protocol::cannotSynchronize);
    }
}

}  // namespace vorlinden::fileprovider
