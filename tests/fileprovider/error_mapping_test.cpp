#include "fileprovider/error_mapping.h"

#include <cerrno>
#include <stdexcept>

#include <gtest/gtest.h>

#include "platform/json.h"
#include "synckit/auth/keychain_token_store.h"
#include "synckit/auth/oauth_client.h"
#include "synckit/auth/token_manager.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/server/sync_errors.h"
#include "synckit/upload/upload_planner.h"

namespace vorlinden::fileprovider {
namespace {

namespace protocol = platform::fileprovider;

template <class Failure>
Error mapped(const Failure& failure) {
    return mapError(std::make_exception_ptr(failure));
}

TEST(MapError, TheServersAnswersAreToldApartByStatusThenCode) {
    struct {
        int status;
        std::string code;
        protocol::ErrorCode expected;
    } const table[] = {
        {404, "anything", protocol::noSuchItem},
        {404, "unknown", protocol::noSuchItem},
        {401, "UNAUTHENTICATED", protocol::notAuthenticated},
        {401, "NOT_FOUND", protocol::notAuthenticated},
        {410, "NOT_FOUND", protocol::noSuchItem},
        {403, "FORBIDDEN", protocol::serverUnreachable},
        {410, "GONE", protocol::serverUnreachable},
        {429, "RATE", protocol::serverUnreachable},
        {503, "unknown", protocol::serverUnreachable},
    };
    for (const auto& row : table) {
        EXPECT_EQ(mapped(SyncAPIError(row.status, row.code, "No.")), providerError(row.expected))
            << row.status << row.code;
    }
}

TEST(MapError, ASessionIsLostOnlyWhenItIsSaidToBe) {
    EXPECT_EQ(mapped(TokenManagerError::signedOut()), providerError(protocol::notAuthenticated));
    EXPECT_EQ(mapped(TokenManagerError::missingRefreshToken()), providerError(protocol::serverUnreachable));
}

TEST(MapError, ACancelIsACancelAndOtherTransportTroubleIsTheNetworks) {
    const Error cancelled("NSCocoaErrorDomain", 3072);
    EXPECT_EQ(mapped(CancelledError()), cancelled);
    EXPECT_EQ(mapped(URLError(URLError::Code::cancelled)), cancelled);
    for (const auto code : {URLError::Code::timedOut, URLError::Code::cannotFindHost,
                            URLError::Code::cannotConnect, URLError::Code::other}) {
        EXPECT_EQ(mapped(URLError(code)), providerError(protocol::serverUnreachable));
    }
}

TEST(MapError, ErrorsOfTheProtocolPassUnchanged) {
    const Error own("NSFileProviderErrorDomain", -2005, "Not there.");
    EXPECT_EQ(mapped(own), own);
    EXPECT_EQ(mapped(Error("elsewhere", 7)), providerError(protocol::serverUnreachable));
}

TEST(MapError, EverythingElseCountsAsAServerOutOfReach) {
    const Error unreachable("NSFileProviderErrorDomain", -1004);
    EXPECT_EQ(mapped(FileError(ENOSPC, "/full")), unreachable);
    EXPECT_EQ(mapped(FileError::noSuchFile()), unreachable);
    EXPECT_EQ(mapped(SQLiteError(5, "busy")), unreachable);
    EXPECT_EQ(mapped(MetadataStoreError::corruptRow("row")), unreachable);
    EXPECT_EQ(mapped(SyncClientError::nonHTTPResponse()), unreachable);
    EXPECT_EQ(mapped(KeychainTokenStoreError(-1, {})), unreachable);
    EXPECT_EQ(mapped(OAuthError(400, "invalid_client", {})), unreachable);
    EXPECT_EQ(mapped(UploadPlanError::noInboxBrain()), unreachable);
    EXPECT_EQ(mapped(std::runtime_error("?")), unreachable);
}

}  // namespace
}  // namespace vorlinden::fileprovider
