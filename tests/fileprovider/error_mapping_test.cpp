#include "fileprovider/error_mapping.h"

#include <cerrno>
#include <stdexcept>

#include <gtest/gtest.h>

#include "fileprovider/refusals.h"
#include "synckit/auth/keychain_token_store.h"
#include "synckit/auth/oauth_client.h"
#include "synckit/auth/token_manager.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/server/sync_errors.h"
#include "synckit/upload/upload_planner.h"

namespace vorlinden::fileprovider {
namespace {

using namespace platform::fileprovider;

template <class Failure>
std::exception_ptr thrown(const Failure& failure) {
    return std::make_exception_ptr(failure);
}
std::exception_ptr answer(int status, const char* code) {
    return thrown(SyncAPIError(status, code, "No."));
}

enum class Fate { passes, bounces, refused };

Fate fateOf(const std::exception_ptr& failure) {
    try {
        const auto refusal = refusalOf(failure, notMoved);
        const auto* forGood = std::get_if<RefusedForGood>(&refusal);
        EXPECT_EQ(rejectionMessage(failure, notMoved),
                  forGood ? std::optional(forGood->message) : "Not moved: No.");
        return forGood ? Fate::refused : Fate::bounces;
    } catch (...) {
        EXPECT_EQ(std::current_exception(), failure);
        EXPECT_EQ(rejectionMessage(failure, notMoved), std::nullopt);
        return Fate::passes;
    }
}

TEST(Failures, EachBecomesOneErrorOfALookupOneOfAWriteAndAFateOfTheChange) {
    constexpr auto cancelled = userCancelled;
    struct {
        std::exception_ptr failure;
        std::int64_t lookup, write;
        Fate fate;
    } const table[] = {
        {answer(404, "unknown"), noSuchItem, cannotSynchronize, Fate::refused},
        {answer(410, "NOT_FOUND"), noSuchItem, cannotSynchronize, Fate::refused},
        {answer(401, "UNAUTHENTICATED"), notAuthenticated, notAuthenticated, Fate::passes},
        {answer(401, "NOT_FOUND"), notAuthenticated, notAuthenticated, Fate::passes},
        {answer(403, "FORBIDDEN"), serverUnreachable, notAuthenticated, Fate::passes},
        {answer(500, "FORBIDDEN"), serverUnreachable, notAuthenticated, Fate::passes},
        {answer(403, "FORBIDDEN_SUBTREE"), serverUnreachable, cannotSynchronize, Fate::bounces},
        {answer(400, "BAD"), serverUnreachable, cannotSynchronize, Fate::refused},
        {answer(413, "TOO_LARGE"), serverUnreachable, cannotSynchronize, Fate::refused},
        {answer(499, "ODD"), serverUnreachable, cannotSynchronize, Fate::refused},
        {answer(408, "SLOW"), serverUnreachable, serverUnreachable, Fate::passes},
        {answer(429, "SLOW"), serverUnreachable, serverUnreachable, Fate::passes},
        {answer(500, "unknown"), serverUnreachable, serverUnreachable, Fate::passes},
        {answer(302, "unknown"), serverUnreachable, cannotSynchronize, Fate::passes},
        {thrown(TokenManagerError::signedOut()), notAuthenticated, notAuthenticated, Fate::passes},
        {thrown(TokenManagerError::missingRefreshToken()), serverUnreachable, serverUnreachable,
         Fate::passes},
        {thrown(URLError(URLError::Code::timedOut)), serverUnreachable, serverUnreachable, Fate::passes},
        {thrown(URLError(URLError::Code::cancelled)), cancelled, cancelled, Fate::passes},
        {thrown(CancelledError()), cancelled, cancelled, Fate::passes},
        {thrown(providerError(noSuchItem, "Not there.")), noSuchItem, noSuchItem, Fate::passes},
        {thrown(Error("elsewhere", 7)), serverUnreachable, cannotSynchronize, Fate::passes},
        {thrown(FileError(ENOSPC, "/full")), serverUnreachable, cannotSynchronize, Fate::passes},
        {thrown(SQLiteError(5, "busy")), serverUnreachable, cannotSynchronize, Fate::passes},
        {thrown(MetadataStoreError::corruptRow("row")), serverUnreachable, cannotSynchronize, Fate::passes},
        {thrown(SyncClientError::nonHTTPResponse()), serverUnreachable, cannotSynchronize, Fate::passes},
        {thrown(KeychainTokenStoreError(-1, {})), serverUnreachable, cannotSynchronize, Fate::passes},
        {thrown(OAuthError(503, "busy", {})), serverUnreachable, cannotSynchronize, Fate::passes},
        {thrown(UploadPlanError::noInboxBrain()), serverUnreachable, cannotSynchronize, Fate::refused},
        {thrown(std::runtime_error("?")), serverUnreachable, cannotSynchronize, Fate::passes},
    };
    for (const auto& row : table) {
        const auto place = "row " + std::to_string(&row - table);
        EXPECT_EQ(mapError(row.failure).code, row.lookup) << place;
        EXPECT_EQ(mapWriteError(row.failure).code, row.write) << place;
        EXPECT_EQ(fateOf(row.failure), row.fate) << place;
    }
}

TEST(Failures, TheirErrorsAreBareButForThoseOfTheProtocolWhichPassUnchanged) {
    for (const auto map : {mapError, mapWriteError}) {
        EXPECT_EQ(map(thrown(CancelledError())), Error("NSCocoaErrorDomain", 3072));
        EXPECT_EQ(map(answer(503, "BUSY")), Error("NSFileProviderErrorDomain", -1004));
        const auto own = providerError(cannotSynchronize, "Not there.");
        EXPECT_EQ(map(thrown(own)), own);
    }
    EXPECT_EQ(rejectionMessage(thrown(UploadPlanError::tooLarge(7)), notUploaded),
              "Not uploaded: This file is too large to upload (7 bytes). The limit is 104857600 bytes.");
}

}  // namespace
}  // namespace vorlinden::fileprovider
